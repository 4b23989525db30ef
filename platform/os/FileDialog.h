#pragma once
// The open- and save-file dialog seam. The desktop answers with a
// QFileDialog (forms/), tests with ScriptedFileDialog. An empty answer
// means the user cancelled.

#include <QString>

#include <deque>
#include <vector>

namespace mv::os {

struct FileDialogRequest {
    enum class Kind { Open, Save };
    Kind kind = Kind::Open;
    QString title;
    QString filterName;  // "XML Files"
    QString pattern;     // "*.xml"
    QString initialName;
    QString initialDir;
    QString defaultExtension;  // appended when the chosen name has none
    bool promptOverwrite = false;
};

class FileDialog {
public:
    virtual ~FileDialog() = default;
    // The chosen path, or an empty string when the user cancelled.
    virtual QString Ask(const FileDialogRequest& request) = 0;
};

// For tests: answers from a queue (an empty answer cancels) and remembers
// every request. With the queue empty the dialog is cancelled.
class ScriptedFileDialog final : public FileDialog {
public:
    void Queue(const QString& answer) { m_answers.push_back(answer); }
    QString Ask(const FileDialogRequest& request) override
    {
        m_requests.push_back(request);
        if (m_answers.empty()) return {};
        QString answer = m_answers.front();
        m_answers.pop_front();
        return answer;
    }
    const std::vector<FileDialogRequest>& requests() const { return m_requests; }

private:
    std::deque<QString> m_answers;
    std::vector<FileDialogRequest> m_requests;
};

}  // namespace mv::os

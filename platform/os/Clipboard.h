#pragma once
#include <QByteArray>
#include <QString>

#include <utility>
#include <vector>

namespace mv::os {

// The clipboard as the toolbar builder uses it: formats by name, and a
// snapshot to restore what the user had. The desktop host backs it with
// QClipboard; the headless host and tests with an in-memory one.
class Clipboard {
public:
    virtual ~Clipboard() = default;
    struct Snapshot {
        std::vector<std::pair<QString, QByteArray>> formats;
    };
    virtual Snapshot Save() const = 0;
    virtual void Restore(const Snapshot& snapshot) = 0;
    virtual void SetData(const QString& format, const QByteArray& data) = 0;  // adds to what is there
    virtual void Clear() = 0;
    virtual QByteArray Data(const QString& format) const = 0;
};

inline constexpr const char* kFaceFormat = "Toolbar Button Face";
inline constexpr const char* kMaskFormat = "Toolbar Button Mask";

class MemoryClipboard : public Clipboard {
public:
    Snapshot Save() const override { return m_data; }
    void Restore(const Snapshot& snapshot) override { m_data = snapshot; }
    void SetData(const QString& format, const QByteArray& data) override
    {
        for (auto& [name, bytes] : m_data.formats)
            if (name == format) { bytes = data; return; }
        m_data.formats.emplace_back(format, data);
    }
    void Clear() override { m_data.formats.clear(); }
    QByteArray Data(const QString& format) const override
    {
        for (const auto& [name, bytes] : m_data.formats)
            if (name == format) return bytes;
        return {};
    }

private:
    Snapshot m_data;
};

}  // namespace mv::os

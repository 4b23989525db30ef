#pragma once
// The preview of one rule: the subjects of the items the rule would move
// now, one line each, under the caption "Rule Preview: <name>". The engine
// fills it (RuleRunner::PreviewRule); OK closes it.

#include "engine/RuleRunner.h"

#include <QDialog>

#include <functional>

class QListWidget;
class QPushButton;

namespace mv::forms {

class frmRulePreview : public QDialog, public engine::PreviewForm {
    Q_OBJECT
public:
    // `runModal` shows the dialog and returns when it is closed; by default
    // exec(). Tests put a non-blocking function in its place.
    explicit frmRulePreview(std::function<void(QDialog&)> runModal = {}, QWidget* parent = nullptr);

    void SetCaption(const QString& caption) override;
    void SetLines(const QStringList& lines) override;
    void ShowModal() override;

    QStringList Lines() const;

private:
    std::function<void(QDialog&)> m_runModal;
    QListWidget* lstPreview = nullptr;
    QPushButton* btnOK = nullptr;
};

}  // namespace mv::forms

#pragma once
// Smart Rule Update: adds addresses of the selected message to an existing
// rule. The user picks the rule, the address field and whether to append
// or replace; OK opens the rule in the editor ("Update" mode) with that
// field already changed and highlighted, and the user saves it there.
//
// Nothing here throws: unexpected errors go to the error report under
// "<procedure> of Form frmRuleUpdate".

#include "frmRuleProps.h"

#include <QDialog>

#include <functional>
#include <memory>

class QComboBox;
class QListWidget;
class QPushButton;

namespace mv::outlook {
class Item;
}

namespace mv::forms {

class frmRuleUpdate : public QDialog {
    Q_OBJECT
public:
    // `context` is handed on to the rule editor; its references must outlive
    // the dialog.
    explicit frmRuleUpdate(RulePropsContext context, QWidget* parent = nullptr);
    ~frmRuleUpdate() override;

    // The selected message; null when nothing is selected.
    void SetSelection(std::unique_ptr<outlook::Item> item);
    // Shows the prepared editor modally. Defaults to exec(); tests drive the
    // editor through it instead of a nested event loop.
    std::function<void(frmRuleProps&)> ShowEditor;

    // Fills the lists, then LoadRules and ParseDefaults. Call once before
    // showing the dialog.
    void Form_Load();
    void LoadRules();
    void ParseDefaults();

    // The editor field each cmbField entry changes, by objectName.
    static const char* FieldName(int fieldIndex);
    // The field's new text: `chosen` joined, appended to or replacing
    // `current`.
    static QString Combine(const QString& current, const QStringList& chosen, bool append);

private:
    void BuildUi();
    void btnOK_Click();
    void AddAddress(const QString& address);
    template <typename F>
    bool Trap(const char* procedure, F&& body) noexcept;

    RulePropsContext m_ctx;
    std::unique_ptr<outlook::Item> m_selection;
    bool m_loaded = false;

    QComboBox* cmbRule = nullptr;
    QComboBox* cmbField = nullptr;
    QComboBox* cmbAction = nullptr;
    QListWidget* lstData = nullptr;
    QPushButton* btnOK = nullptr;
    QPushButton* btnCancel = nullptr;
};

}  // namespace mv::forms

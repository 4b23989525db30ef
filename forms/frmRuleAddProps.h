#pragma once
// The Smart Add settings: which parts of a selected message a Smart Add
// rule takes, how it is named, and the read state and age window it starts
// with. The choices live in the ra* columns of the settings row and are read
// and written here directly; the rule editor reads them when it prefills.
//
// Every list entry carries its stored code as item data; the age list is in
// duration order, so codes are never derived from positions. Nothing here
// throws: unexpected errors go to the error report under
// "<procedure> of Form frmRuleAddProps".

#include <QDialog>

class QCheckBox;
class QComboBox;
class QPushButton;

namespace mv::store {
class cDB;
}
namespace mv::os {
class ErrorReport;
}

namespace mv::forms {

class frmRuleAddProps : public QDialog {
    Q_OBJECT
public:
    // Both must outlive the dialog.
    frmRuleAddProps(store::cDB& db, os::ErrorReport& report, QWidget* parent = nullptr);

    // Fills the lists, selects their defaults, then LoadSettings. Call once
    // before showing the dialog.
    void Form_Load();
    void LoadSettings();
    // Writes the controls to the settings row; false when the save failed
    // (already reported).
    bool UpdateSettings();

private:
    void BuildUi();
    void btnOK_Click();
    // Selects the entry carrying `code`; with none, the selection stays.
    static void SelectCode(QComboBox& list, int code);
    template <typename F>
    bool Trap(const char* procedure, F&& body) noexcept;

    store::cDB& m_db;
    os::ErrorReport& m_report;
    bool m_loaded = false;

    QComboBox* cmbRuleName = nullptr;
    QCheckBox* chkFrom = nullptr;
    QCheckBox* chkTo = nullptr;
    QCheckBox* chkCC = nullptr;
    QCheckBox* chkSubject = nullptr;
    QCheckBox* chkImportance = nullptr;
    QComboBox* cmbStatus = nullptr;
    QComboBox* cmbMsgAge = nullptr;
    QPushButton* btnOK = nullptr;
    QPushButton* btnCancel = nullptr;
};

}  // namespace mv::forms

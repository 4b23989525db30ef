#pragma once
// The rule editor: one rule created ("New", or "NewSA" prefilled from a
// selected message), changed ("Update") or shown ("ReadOnly"). The caller
// sets RuleID and Action (and for "NewSA" the selection), calls Form_Load,
// shows the dialog, and reads Cancelled afterwards.
//
// Every list entry carries its code as item data; codes are what is saved
// and what a loaded value is matched against. Checks run in a fixed order on
// OK and stop at the first failure, leaving the form open and the database
// untouched. Nothing here throws: unexpected errors go to the error report
// under "<procedure> of Form frmRuleProps".

#include "ContactPicker.h"

#include <QDialog>
#include <QString>

#include <cstdint>
#include <memory>

class QComboBox;
class QLineEdit;
class QPushButton;

namespace mv::store {
class cDB;
}
namespace mv::os {
class ErrorReport;
class MessageBoxAnswerer;
class Shell;
}  // namespace mv::os
namespace mv::outlook {
class Folder;
class FolderPicker;
class Item;
class NameSpace;
}  // namespace mv::outlook

namespace mv::forms {

class RuleCommand;

// What the editor works through; all references must outlive the dialog.
struct RulePropsContext {
    store::cDB& db;  // rules and the Smart Add settings
    outlook::NameSpace& nameSpace;
    outlook::FolderPicker& folderPicker;
    ContactPicker& contacts;
    os::MessageBoxAnswerer& answerer;
    os::ErrorReport& report;
    QString hostVersion = QStringLiteral("11.0");  // Application::Version()
    QString title = QStringLiteral("Mailvane");    // title of the editor's message boxes
    QString installDir;                            // help lives under it
    os::Shell* shell = nullptr;                    // opens help; none: no help
};

class frmRuleProps : public QDialog {
    Q_OBJECT
public:
    explicit frmRuleProps(RulePropsContext context, QWidget* parent = nullptr);
    ~frmRuleProps() override;

    // --- properties read and set by the caller ---
    std::int16_t RuleID = 0;
    QString Action = QStringLiteral("New");  // "New", "NewSA", "Update", "ReadOnly"
    bool Cancelled = false;
    // The selected message for "NewSA" and its folder; either may be null
    // (no selection: nothing is prefilled).
    void SetSelection(std::unique_ptr<outlook::Item> item, std::unique_ptr<outlook::Folder> parentFolder);

    // Prepares the form for Action; call once before showing it.
    void Form_Load();

    void LoadRule(std::int16_t ruleId);
    [[nodiscard]] bool InsertRule();
    [[nodiscard]] bool UpdateRule();
    void PrefillFromSelection();
    void LoadSmartAddDefaults();
    QString ChooseContact();
    int OutlookMajorVersion() const;
    void DisableInputs();
    static int SelectByCode(const QComboBox& list, int code);

    // --- checks; each shows its own message when it fails ---
    bool CheckRequiredFields();
    bool CheckSubjectQuotes();
    bool CheckMessageQuotes();
    bool CheckNotCatchAll();
    bool CheckAddressSeparators();

    // The folder identifiers the form keeps apart from the folder names.
    const QString& SrcEntryID() const { return m_srcEntryId; }
    const QString& SrcStoreID() const { return m_srcStoreId; }
    const QString& DstEntryID() const { return m_dstEntryId; }
    const QString& DstStoreID() const { return m_dstStoreId; }
    // FolderExist of the add-in: the folder can be opened.
    bool FolderExist(const QString& entryId, const QString& storeId);

    // Cancel, Close, Escape and the window's close button: Cancelled, nothing written.
    void reject() override;

private:
    void BuildUi();
    void FillLists();
    void ConnectButtons();
    void btnOK_Click();
    void btnCancel_Click();
    void btnHelp_Click();
    void BrowseFolder(bool source);
    void PickContact(QLineEdit* target);
    void Warn(const QString& text);
    static int CodeOf(const QComboBox& list);
    // Runs `body`, reporting any error under "<procedure> of Form frmRuleProps".
    template <typename F>
    bool Trap(const char* procedure, F&& body) noexcept;
    void AddRuleParameters(RuleCommand& command);
    void LoadFolder(const QString& entryId, const QString& storeId, bool source);

    RulePropsContext m_ctx;
    bool m_loaded = false;
    std::unique_ptr<outlook::Item> m_selection;
    std::unique_ptr<outlook::Folder> m_selectionFolder;
    QString m_srcEntryId, m_srcStoreId, m_dstEntryId, m_dstStoreId;

    // Smart Add defaults, as the blank template holds them.
    int m_raRuleName = 0;
    int m_raFrom = 1;
    int m_raTo = 0;
    int m_raCc = 0;
    int m_raSubject = 0;
    int m_raImportance = 0;
    int m_raStatus = 2;
    int m_raMsgAge = 13;

    QLineEdit* txtRuleName = nullptr;
    QLineEdit* txtSrcFolder = nullptr;
    QPushButton* btnSrcFolderBrowse = nullptr;
    QLineEdit* txtDstFolder = nullptr;
    QPushButton* btnDstFolderBrowse = nullptr;
    QLineEdit* txtFrom = nullptr;
    QPushButton* btnFrom = nullptr;
    QLineEdit* txtTo = nullptr;
    QPushButton* btnTo = nullptr;
    QLineEdit* txtCC = nullptr;
    QPushButton* btnCc = nullptr;
    QLineEdit* txtSubject = nullptr;
    QLineEdit* txtMessage = nullptr;
    QComboBox* cmbImportance = nullptr;
    QComboBox* cmbStatus = nullptr;
    QComboBox* cmbFlagStatus = nullptr;
    QComboBox* cmbOnlyItems = nullptr;
    QComboBox* cmbMsgAge = nullptr;
    QPushButton* btnOK = nullptr;
    QPushButton* btnCancel = nullptr;
    QPushButton* btnClose = nullptr;
    QPushButton* btnHelp = nullptr;
};

}  // namespace mv::forms

#pragma once
// The Rules Manager: every rule in the order it runs, with a check box for
// its Active flag. Order and check changes stay in the list until Apply, OK
// or a Yes to Cancel's question; while they are pending Apply is enabled and
// Run All Now is not, so a run never uses an order nobody saved. Renaming,
// New, Modify, Duplicate, Delete and Import write to the store at once.
//
// The list is the only state: a row's text is RuleName, its tag (Qt::UserRole,
// text) the RuleID, its check state Active and its position the SortID that
// saving gives it. Nothing here throws: unexpected errors go to the error
// report under "<procedure> of Form frmRulesMain" and the form stays open.

#include "ContactPicker.h"

#include <QDialog>
#include <QHash>
#include <QString>

#include <cstdint>
#include <functional>

class QAbstractButton;
class QLabel;
class QPushButton;
class QToolButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace mv::addin {
class OutAddIn;
}
namespace mv::os {
class ErrorReport;
class FileDialog;
class MessageBoxAnswerer;
class Shell;
}  // namespace mv::os
namespace mv::outlook {
class FolderPicker;
class NameSpace;
}  // namespace mv::outlook
namespace mv::store {
class cDB;
}

namespace mv::forms {

struct RulePropsContext;

// What the manager works through; all references must outlive the dialog.
struct RulesMainContext {
    addin::OutAddIn& addIn;         // connection 1, runs, the export/import halves, install folder
    outlook::NameSpace* nameSpace;  // the editor's folders; null: New and Modify fail
    outlook::FolderPicker& folderPicker;
    ContactPicker& contacts;
    os::MessageBoxAnswerer& answerer;
    os::ErrorReport& report;
    os::FileDialog& files;
    os::Shell* shell = nullptr;  // help and the updater; none: neither
    QString hostVersion = QStringLiteral("11.0");
    // Shows a modal dialog (the editor, the preview) and returns when it is
    // closed; default exec(). Tests answer the dialog in its place.
    std::function<void(QDialog&)> runModal = {};
    // The About box and the Smart Add settings form; a missing one leaves
    // its button disabled.
    std::function<void(QWidget* parent)> showAbout = {};
    std::function<void(QWidget* parent)> showSettings = {};
};

class frmRulesMain : public QDialog {
    Q_OBJECT
public:
    explicit frmRulesMain(RulesMainContext context, QWidget* parent = nullptr);
    ~frmRulesMain() override;

    // FillRuleList, UpdateButtons, DisableApply; call once before showing.
    void Form_Load();

    int FillRuleList();
    void SaveRuleOrder();
    void UpdateButtons();
    void SetAllChecked(bool checked);
    void EnableApply();
    void DisableApply();
    void EnableRunNow();
    void DisableRunNow();
    // 1-based positions; does nothing when `to` is out of range or equal.
    void ListMoveRow(int from, int to);

    // The in-place rename of `row` (0-based) to `newText`; sets `cancel`
    // when the list must keep the old text.
    void ListView1_AfterLabelEdit(int row, const QString& newText, bool& cancel);

    // Cancel, Escape and the window's close button.
    void reject() override;

    // Positions (1-based) of the selected rows, ascending.
    QList<int> SelectedPositions() const;

private:
    void BuildUi();
    void ConnectUi();
    bool eventFilter(QObject* watched, QEvent* event) override;

    void btnNew_Click();
    void btnModify_Click();
    void btnCopy_Click();
    void btnDelete_Click();
    void btnMoveUp_Click();
    void btnMoveDown_Click();
    void MoveSelectedTo(int position);  // 1-based
    void btnCheckAll_Click();
    void btnCheckNone_Click();
    void btnPreview_Click();
    void btnRunNow_Click();
    void btnSettings_Click();
    void btnImport_Click();
    void btnExport_Click();
    void btnUpdates_Click();
    void btnHelp_Click();
    void btnAbout_Click();
    void btnOK_Click();
    void btnApply_Click();
    void btnCancel_Click();
    void ListView1_ColumnClick(int column);
    void ListView1_ItemCheck(QTreeWidgetItem* item);
    // The selected rule's record (last run, moved, last error) under the list.
    void ShowRuleHealth();
    QString HealthOf(int ruleId) const;

    // The selected row the single-row commands act on (0-based), or -1.
    int SelectedRow() const;
    std::int16_t TagOf(int row) const;
    void SelectRow(int row);
    void RunModal(QDialog& dialog);
    // The rule editor's context; error 91 when there is no namespace.
    RulePropsContext EditorContext();
    store::cDB& Db();
    void Warn(const QString& text);
    template <typename F>
    bool Trap(const char* procedure, F&& body) noexcept;

    RulesMainContext m_ctx;
    Qt::SortOrder m_sortOrder = Qt::DescendingOrder;

    QLabel* Label1 = nullptr;
    QTreeWidget* ListView1 = nullptr;
    QLabel* lblTotalRules = nullptr;
    QLabel* lblRuleHealth = nullptr;  // the selected rule's health, under the list
    QHash<int, QString> m_health;     // RuleID -> health in words, read when the list is filled
    QLabel* imgLogo = nullptr;
    QPushButton* btnNew = nullptr;
    QPushButton* btnModify = nullptr;
    QPushButton* btnCopy = nullptr;
    QPushButton* btnDelete = nullptr;
    QToolButton* btnMoveUp = nullptr;
    QToolButton* btnMoveDown = nullptr;
    QPushButton* btnCheckAll = nullptr;
    QPushButton* btnCheckNone = nullptr;
    QPushButton* btnPreview = nullptr;
    QPushButton* btnRunNow = nullptr;
    QPushButton* btnSettings = nullptr;
    QPushButton* btnImport = nullptr;
    QPushButton* btnExport = nullptr;
    QPushButton* btnUpdates = nullptr;
    QPushButton* btnAbout = nullptr;
    QToolButton* btnHelp = nullptr;
    QPushButton* btnOK = nullptr;
    QPushButton* btnCancel = nullptr;
    QPushButton* btnApply = nullptr;
};

}  // namespace mv::forms

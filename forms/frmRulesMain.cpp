#include "frmRulesMain.h"

#include "FormTrap.h"

#include "RuleExportImport.h"
#include "RuleList.h"
#include "frmRulePreview.h"
#include "frmRuleProps.h"

#include "addin/OutAddIn.h"
#include "engine/RuleRunner.h"
#include "platform/ado/AdoConstants.h"
#include "platform/ado/AdoError.h"
#include "platform/ado/Command.h"
#include "platform/ado/Recordset.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/os/Shell.h"
#include "store/VbConvert.h"
#include "store/cDB.h"

#include <QApplication>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <exception>

namespace mv::forms {

namespace {

const QString kCrLf = QStringLiteral("\r\n");

// The Active flag as the row last showed it, so a check-box click can be
// told apart from a rename in itemChanged.
constexpr int kCheckedRole = Qt::UserRole + 1;

const QString kDuplicate = QStringLiteral(
    "INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
    "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [Active], "
    "[SortID]) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ");

QString Text(const QVariant& v)
{
    return v.isValid() && !v.isNull() ? v.toString() : QString();
}

void AddParameter(ado::Command& cmd, const char* name, int type, long size, const QVariant& value)
{
    cmd.AppendParameter(cmd.CreateParameter(QString::fromLatin1(name), type, ado::adParamInput, size, value));
}

// Commits a rename through the form, which may refuse it (an empty name).
class RenameDelegate final : public QStyledItemDelegate {
public:
    RenameDelegate(frmRulesMain* form, QObject* parent) : QStyledItemDelegate(parent), m_form(form) {}

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override
    {
        QWidget* editor = QStyledItemDelegate::createEditor(parent, option, index);
        editor->setObjectName(QStringLiteral("txtRename"));
        // RuleName is a Text(150) column.
        if (auto* line = qobject_cast<QLineEdit*>(editor)) line->setMaxLength(150);
        return editor;
    }

    void setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const override
    {
        auto* line = qobject_cast<QLineEdit*>(editor);
        if (!line) return;
        const QString text = line->text();
        if (text == index.data(Qt::DisplayRole).toString()) return;
        bool cancel = false;
        m_form->ListView1_AfterLabelEdit(index.row(), text, cancel);
        if (!cancel) model->setData(index, text, Qt::DisplayRole);
    }

private:
    frmRulesMain* m_form;
};

}  // namespace

template <typename F>
bool frmRulesMain::Trap(const char* procedure, F&& body) noexcept
{
    return TrapFormErrors(m_ctx.report, "frmRulesMain", procedure, std::forward<F>(body));
}

frmRulesMain::frmRulesMain(RulesMainContext context, QWidget* parent)
    : QDialog(parent), m_ctx(std::move(context))
{
    setObjectName(QStringLiteral("frmRulesMain"));
    setWindowTitle(QStringLiteral(" Mailvane Rules Manager"));
    setModal(true);
    BuildUi();
    ConnectUi();
}

frmRulesMain::~frmRulesMain() = default;

void frmRulesMain::BuildUi()
{
    auto button = [this](QPushButton*& b, const char* name, const QString& caption) {
        b = new QPushButton(caption, this);
        b->setObjectName(QString::fromLatin1(name));
        b->setAutoDefault(false);
        return b;
    };
    auto picture = [this](QToolButton*& b, const char* name, Qt::ArrowType arrow, const QString& tip) {
        b = new QToolButton(this);
        b->setObjectName(QString::fromLatin1(name));
        b->setArrowType(arrow);
        b->setToolTip(tip);
        return b;
    };

    Label1 = new QLabel(QStringLiteral("Apply Rules in the following order:"), this);
    Label1->setObjectName(QStringLiteral("Label1"));
    ListView1 = new QTreeWidget(this);
    ListView1->setObjectName(QStringLiteral("ListView1"));
    ListView1->setColumnCount(1);
    ListView1->setHeaderLabels({QStringLiteral("Mailvane Rules")});
    ListView1->setRootIsDecorated(false);
    ListView1->setSelectionMode(QAbstractItemView::ExtendedSelection);
    ListView1->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    ListView1->setItemDelegate(new RenameDelegate(this, ListView1));
    ListView1->header()->setSectionsClickable(true);
    ListView1->installEventFilter(this);
    Label1->setBuddy(ListView1);
    lblTotalRules = new QLabel(this);
    lblTotalRules->setObjectName(QStringLiteral("lblTotalRules"));
    lblRuleHealth = new QLabel(this);
    lblRuleHealth->setObjectName(QStringLiteral("lblRuleHealth"));
    lblRuleHealth->setWordWrap(true);
    imgLogo = new QLabel(QStringLiteral("Mailvane"), this);
    imgLogo->setObjectName(QStringLiteral("imgLogo"));
    QFont logoFont = imgLogo->font();
    logoFont.setBold(true);
    logoFont.setPointSizeF(logoFont.pointSizeF() * 1.5);
    imgLogo->setFont(logoFont);

    button(btnNew, "btnNew", QStringLiteral("New..."));
    button(btnModify, "btnModify", QStringLiteral("Modify..."));
    button(btnCopy, "btnCopy", QStringLiteral("Duplicate"));
    button(btnDelete, "btnDelete", QStringLiteral("Delete"));
    picture(btnMoveUp, "btnMoveUp", Qt::UpArrow, QStringLiteral("Move rule up"));
    picture(btnMoveDown, "btnMoveDown", Qt::DownArrow, QStringLiteral("Move rule down"));
    button(btnCheckAll, "btnCheckAll", QStringLiteral("Check All"));
    button(btnCheckNone, "btnCheckNone", QStringLiteral("Check None"));
    button(btnPreview, "btnPreview", QStringLiteral("Preview ..."));
    button(btnRunNow, "btnRunNow", QStringLiteral("Run All Now"));
    button(btnSettings, "btnSettings", QStringLiteral("Settings..."));
    button(btnImport, "btnImport", QStringLiteral("Import Rules..."));
    button(btnExport, "btnExport", QStringLiteral("Export Rules..."));
    button(btnUpdates, "btnUpdates", QStringLiteral("Get Updates..."));
    button(btnAbout, "btnAbout", QStringLiteral("About..."));
    btnHelp = new QToolButton(this);
    btnHelp->setObjectName(QStringLiteral("btnHelp"));
    btnHelp->setText(QStringLiteral("?"));
    btnHelp->setToolTip(QStringLiteral("Help"));
    button(btnOK, "btnOK", QStringLiteral("OK"));
    button(btnCancel, "btnCancel", QStringLiteral("Cancel"));
    button(btnApply, "btnApply", QStringLiteral("Apply"));
    btnOK->setDefault(true);
    btnApply->setEnabled(false);
    btnSettings->setEnabled(bool(m_ctx.showSettings));
    btnAbout->setEnabled(bool(m_ctx.showAbout));

    auto* side = new QVBoxLayout;
    for (QWidget* w : {static_cast<QWidget*>(btnNew), static_cast<QWidget*>(btnModify),
                       static_cast<QWidget*>(btnCopy), static_cast<QWidget*>(btnDelete)})
        side->addWidget(w);
    auto* moves = new QHBoxLayout;
    moves->addWidget(btnMoveUp);
    moves->addWidget(btnMoveDown);
    moves->addStretch();
    side->addLayout(moves);
    for (QWidget* w : {static_cast<QWidget*>(btnCheckAll), static_cast<QWidget*>(btnCheckNone),
                       static_cast<QWidget*>(btnPreview), static_cast<QWidget*>(btnRunNow)})
        side->addWidget(w);
    side->addStretch();
    side->addWidget(imgLogo);

    auto* main = new QGridLayout;
    main->addWidget(Label1, 0, 0);
    main->addWidget(ListView1, 1, 0);
    main->addWidget(lblTotalRules, 2, 0);
    main->addWidget(lblRuleHealth, 3, 0, 1, 2);
    main->addLayout(side, 1, 1);
    main->setColumnStretch(0, 1);
    main->setRowStretch(1, 1);

    auto* tools = new QHBoxLayout;
    for (QWidget* w : {static_cast<QWidget*>(btnSettings), static_cast<QWidget*>(btnImport),
                       static_cast<QWidget*>(btnExport), static_cast<QWidget*>(btnUpdates),
                       static_cast<QWidget*>(btnAbout), static_cast<QWidget*>(btnHelp)})
        tools->addWidget(w);
    tools->addStretch();
    auto* closing = new QHBoxLayout;
    closing->addStretch();
    closing->addWidget(btnOK);
    closing->addWidget(btnCancel);
    closing->addWidget(btnApply);

    auto* all = new QVBoxLayout(this);
    all->addLayout(main);
    all->addLayout(tools);
    all->addLayout(closing);
    resize(600, 440);
}

void frmRulesMain::ConnectUi()
{
    auto on = [this](QAbstractButton* b, void (frmRulesMain::*handler)()) {
        connect(b, &QAbstractButton::clicked, this, handler);
    };
    on(btnNew, &frmRulesMain::btnNew_Click);
    on(btnModify, &frmRulesMain::btnModify_Click);
    on(btnCopy, &frmRulesMain::btnCopy_Click);
    on(btnDelete, &frmRulesMain::btnDelete_Click);
    on(btnMoveUp, &frmRulesMain::btnMoveUp_Click);
    on(btnMoveDown, &frmRulesMain::btnMoveDown_Click);
    on(btnCheckAll, &frmRulesMain::btnCheckAll_Click);
    on(btnCheckNone, &frmRulesMain::btnCheckNone_Click);
    on(btnPreview, &frmRulesMain::btnPreview_Click);
    on(btnRunNow, &frmRulesMain::btnRunNow_Click);
    on(btnSettings, &frmRulesMain::btnSettings_Click);
    on(btnImport, &frmRulesMain::btnImport_Click);
    on(btnExport, &frmRulesMain::btnExport_Click);
    on(btnUpdates, &frmRulesMain::btnUpdates_Click);
    on(btnHelp, &frmRulesMain::btnHelp_Click);
    on(btnAbout, &frmRulesMain::btnAbout_Click);
    on(btnOK, &frmRulesMain::btnOK_Click);
    on(btnApply, &frmRulesMain::btnApply_Click);
    on(btnCancel, &frmRulesMain::btnCancel_Click);
    connect(ListView1, &QTreeWidget::itemSelectionChanged, this, &frmRulesMain::UpdateButtons);
    connect(ListView1, &QTreeWidget::itemSelectionChanged, this, &frmRulesMain::ShowRuleHealth);
    connect(ListView1, &QTreeWidget::itemDoubleClicked, this, [this] { btnModify_Click(); });
    connect(ListView1, &QTreeWidget::itemChanged, this,
            [this](QTreeWidgetItem* item) { ListView1_ItemCheck(item); });
    connect(ListView1->header(), &QHeaderView::sectionClicked, this, &frmRulesMain::ListView1_ColumnClick);
}

bool frmRulesMain::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != ListView1 || event->type() != QEvent::KeyPress)
        return QDialog::eventFilter(watched, event);
    const auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Delete) {
        btnDelete_Click();
        return true;
    }
    // Keyboard moves: Ctrl+Up/Down as the arrow buttons, Ctrl+Home/End to
    // the top or the bottom; all leave the change pending like the buttons.
    if (key->modifiers() & Qt::ControlModifier) {
        switch (key->key()) {
            case Qt::Key_Up:
                btnMoveUp_Click();
                return true;
            case Qt::Key_Down:
                btnMoveDown_Click();
                return true;
            case Qt::Key_Home:
                MoveSelectedTo(1);
                return true;
            case Qt::Key_End:
                MoveSelectedTo(ListView1->topLevelItemCount());
                return true;
            default:
                break;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void frmRulesMain::MoveSelectedTo(int position)
{
    if (ListView1->selectedItems().size() > 1) return;
    const int row = SelectedRow();
    if (row >= 0) ListMoveRow(row + 1, position);
    DisableRunNow();
    EnableApply();
}

store::cDB& frmRulesMain::Db()
{
    store::cDB* db = m_ctx.addIn.DB1();
    if (!db)
        throw ado::AdoError(91, addin::OutAddIn::AppTitle(),
                            QStringLiteral("Object variable or With block variable not set"));
    return *db;
}

void frmRulesMain::Warn(const QString& text)
{
    m_ctx.answerer.Show(text, os::vbExclamation, addin::OutAddIn::AppTitle());
}

void frmRulesMain::RunModal(QDialog& dialog)
{
    if (m_ctx.runModal)
        m_ctx.runModal(dialog);
    else
        dialog.exec();
}

void frmRulesMain::Form_Load()
{
    Trap("Form_Load", [&] {
        FillRuleList();
        UpdateButtons();
        DisableApply();
    });
}

int frmRulesMain::FillRuleList()
{
    int total = 0;
    int active = 0;
    Trap("FillRuleList", [&] {
        const QSignalBlocker quiet(ListView1);
        ListView1->clear();
        // Rows stay in the order they are added until a column is clicked.
        m_sortOrder = Qt::DescendingOrder;
        ListView1->setSortingEnabled(false);
        ListView1->header()->setSectionsClickable(true);  // switched off with the sorting
        ListView1->header()->setSortIndicatorShown(false);

        store::cDB* db = m_ctx.addIn.DB1();
        RuleList rules;
        // Each rule's recent record from the move journal: the row's
        // tooltip and the line under the list.
        m_health.clear();
        if (engine::RuleRunner* runner = m_ctx.addIn.Runner())
            if (auto health = runner->Health())
                for (const journal::RuleHealth& h : *health) m_health.insert(h.ruleId, engine::HealthWords(h));
        if (db && rules.Load(*db)) {
            for (const RuleListRow& rule : rules.Rows()) {
                auto* row = new QTreeWidgetItem(ListView1);
                row->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsUserCheckable |
                              Qt::ItemIsEditable);
                row->setText(0, rule.name);
                row->setData(0, Qt::UserRole, QString::number(rule.ruleId));
                row->setCheckState(0, rule.active ? Qt::Checked : Qt::Unchecked);
                row->setData(0, kCheckedRole, rule.active);
                row->setToolTip(0, HealthOf(rule.ruleId));
                ++total;
                if (rule.active) ++active;
            }
        }
    });
    lblTotalRules->setText(QString::number(total) + QStringLiteral(" rules total, ") +
                           QString::number(active) + QStringLiteral(" active"));
    ListView1->resizeColumnToContents(0);
    return total;
}

QString frmRulesMain::HealthOf(int ruleId) const
{
    return m_health.value(ruleId, engine::HealthWords(std::nullopt));
}

void frmRulesMain::ShowRuleHealth()
{
    const QList<QTreeWidgetItem*> selected = ListView1->selectedItems();
    if (selected.size() != 1) {
        lblRuleHealth->clear();
        return;
    }
    const QTreeWidgetItem* row = selected.front();
    lblRuleHealth->setText(row->text(0) + QStringLiteral(": ") + HealthOf(row->data(0, Qt::UserRole).toInt()));
}

void frmRulesMain::SaveRuleOrder()
{
    Trap("SaveRuleOrder", [&] {
        store::cDB& db = Db();
        const int count = ListView1->topLevelItemCount();
        for (std::int16_t i = 1; i <= count; ++i) {
            QTreeWidgetItem* row = ListView1->topLevelItem(i - 1);
            (void)RuleList::SaveRow(db, i, row->checkState(0) == Qt::Checked, TagOf(i - 1));
        }
    });
}

void frmRulesMain::UpdateButtons()
{
    const int selected = static_cast<int>(ListView1->selectedItems().size());
    const int rows = ListView1->topLevelItemCount();
    QAbstractButton* single[] = {btnPreview, btnMoveDown, btnMoveUp, btnModify, btnCopy};
    if (selected >= 2) {
        for (QAbstractButton* b : single) b->setEnabled(false);
        btnDelete->setEnabled(true);
        return;
    }
    const bool any = rows > 0;
    for (QAbstractButton* b : single) b->setEnabled(any);
    for (QAbstractButton* b :
         {static_cast<QAbstractButton*>(btnExport), static_cast<QAbstractButton*>(btnCheckNone),
          static_cast<QAbstractButton*>(btnCheckAll), static_cast<QAbstractButton*>(btnDelete)})
        b->setEnabled(any);
    // Pending order or check changes keep the run off until they are saved.
    btnRunNow->setEnabled(any && !btnApply->isEnabled());
}

void frmRulesMain::SetAllChecked(bool checked)
{
    const QSignalBlocker quiet(ListView1);
    for (int i = 0; i < ListView1->topLevelItemCount(); ++i) {
        QTreeWidgetItem* row = ListView1->topLevelItem(i);
        row->setCheckState(0, checked ? Qt::Checked : Qt::Unchecked);
        row->setData(0, kCheckedRole, checked);
    }
}

void frmRulesMain::EnableApply()
{
    btnApply->setEnabled(true);
}
void frmRulesMain::DisableApply()
{
    btnApply->setEnabled(false);
}
void frmRulesMain::EnableRunNow()
{
    btnRunNow->setEnabled(true);
}
void frmRulesMain::DisableRunNow()
{
    btnRunNow->setEnabled(false);
}

void frmRulesMain::ListMoveRow(int from, int to)
{
    const int count = ListView1->topLevelItemCount();
    if (from == to || to < 1 || to > count || from < 1 || from > count) return;
    const QSignalBlocker quiet(ListView1);
    QTreeWidgetItem* row = ListView1->takeTopLevelItem(from - 1);
    ListView1->insertTopLevelItem(to - 1, row);
    ListView1->clearSelection();
    ListView1->setCurrentItem(row);
    row->setSelected(true);
}

QList<int> frmRulesMain::SelectedPositions() const
{
    QList<int> positions;
    for (int i = 0; i < ListView1->topLevelItemCount(); ++i)
        if (ListView1->topLevelItem(i)->isSelected()) positions << i + 1;
    return positions;
}

int frmRulesMain::SelectedRow() const
{
    QTreeWidgetItem* current = ListView1->currentItem();
    if (current && current->isSelected()) return ListView1->indexOfTopLevelItem(current);
    const QList<int> selected = SelectedPositions();
    return selected.isEmpty() ? -1 : selected.front() - 1;
}

std::int16_t frmRulesMain::TagOf(int row) const
{
    return store::CInt(ListView1->topLevelItem(row)->data(0, Qt::UserRole));
}

void frmRulesMain::SelectRow(int row)
{
    if (row < 0 || row >= ListView1->topLevelItemCount()) return;
    ListView1->clearSelection();
    QTreeWidgetItem* item = ListView1->topLevelItem(row);
    ListView1->setCurrentItem(item);
    item->setSelected(true);
    ListView1->scrollToItem(item);
}

// --- list events ---

void frmRulesMain::ListView1_AfterLabelEdit(int row, const QString& newText, bool& cancel)
{
    if (newText.isEmpty()) {
        cancel = true;
        return;
    }
    Trap("ListView1_AfterLabelEdit", [&] {
        const std::int16_t ruleId = TagOf(row);
        // The name was always put into the statement as it stands, so an
        // apostrophe ended it. The failure is kept, but nothing after the
        // quote ever reaches the database: the name goes in as a parameter.
        if (newText.contains(u'\''))
            throw ado::AdoError(
                ado::kErrSyntax, QStringLiteral("Microsoft JET Database Engine"),
                QStringLiteral("Syntax error (missing operator) in query expression 'RuleName='") + newText +
                    QStringLiteral("''."));
        ado::Command cmd;
        cmd.SetCommandType(ado::adCmdText);
        cmd.SetCommandText(QStringLiteral("UPDATE [Rules] SET RuleName=? WHERE RuleID=") +
                           QString::number(ruleId));
        AddParameter(cmd, "RuleName", ado::adVarWChar, static_cast<long>(newText.size()) + 1, newText);
        (void)Db().ExecuteSQL(QString(), &cmd);
    });
}

void frmRulesMain::ListView1_ItemCheck(QTreeWidgetItem* item)
{
    const bool checked = item->checkState(0) == Qt::Checked;
    if (item->data(0, kCheckedRole).toBool() == checked) return;  // a rename, not a check
    item->setData(0, kCheckedRole, checked);
    DisableRunNow();
    EnableApply();
}

void frmRulesMain::ListView1_ColumnClick(int column)
{
    m_sortOrder = m_sortOrder == Qt::DescendingOrder ? Qt::AscendingOrder : Qt::DescendingOrder;
    ListView1->header()->setSortIndicatorShown(true);
    ListView1->header()->setSortIndicator(column, m_sortOrder);
    ListView1->sortItems(column, m_sortOrder);
    EnableApply();
    UpdateButtons();
}

// --- buttons ---

void frmRulesMain::btnMoveUp_Click()
{
    const int row = SelectedRow();
    if (row >= 0) ListMoveRow(row + 1, row);
    DisableRunNow();
    EnableApply();
}

void frmRulesMain::btnMoveDown_Click()
{
    const int row = SelectedRow();
    if (row >= 0) ListMoveRow(row + 1, row + 2);
    DisableRunNow();
    EnableApply();
}

void frmRulesMain::btnCheckAll_Click()
{
    SetAllChecked(true);
    DisableRunNow();
    EnableApply();
}

void frmRulesMain::btnCheckNone_Click()
{
    SetAllChecked(false);
    DisableRunNow();
    EnableApply();
}

void frmRulesMain::btnApply_Click()
{
    Trap("btnApply_Click", [&] {
        QApplication::setOverrideCursor(Qt::WaitCursor);
        SaveRuleOrder();
        FillRuleList();
        DisableApply();
        UpdateButtons();
        EnableRunNow();
        QApplication::restoreOverrideCursor();
    });
}

void frmRulesMain::btnOK_Click()
{
    Trap("btnOK_Click", [&] {
        QApplication::setOverrideCursor(Qt::WaitCursor);
        QCoreApplication::processEvents();
        // Always saved, pending changes or not.
        SaveRuleOrder();
        QApplication::restoreOverrideCursor();
        accept();
    });
}

void frmRulesMain::btnCancel_Click()
{
    Trap("btnCancel_Click", [&] {
        if (btnApply->isEnabled()) {
            const int answer =
                m_ctx.answerer.Show(QStringLiteral("You have made changes that have not been saved") + kCrLf +
                                        QStringLiteral("Do you want to save them now?"),
                                    os::vbYesNoCancel + os::vbExclamation, addin::OutAddIn::AppTitle());
            if (answer == os::vbCancel) return;
            if (answer == os::vbYes) SaveRuleOrder();
        }
        QDialog::reject();
    });
}

void frmRulesMain::reject()
{
    btnCancel_Click();
}

RulePropsContext frmRulesMain::EditorContext()
{
    if (!m_ctx.nameSpace)
        throw ado::AdoError(91, addin::OutAddIn::AppTitle(),
                            QStringLiteral("Object variable or With block variable not set"));
    return RulePropsContext{Db(),
                            *m_ctx.nameSpace,
                            m_ctx.folderPicker,
                            m_ctx.contacts,
                            m_ctx.answerer,
                            m_ctx.report,
                            m_ctx.hostVersion,
                            addin::OutAddIn::AppTitle(),
                            m_ctx.addIn.InstallDir(),
                            m_ctx.shell};
}

void frmRulesMain::btnNew_Click()
{
    Trap("btnNew_Click", [&] {
        frmRuleProps editor(EditorContext(), this);
        editor.Action = QStringLiteral("New");
        editor.Form_Load();
        RunModal(editor);
        if (editor.Cancelled) return;
        // Pending order and check changes are saved with the new rule's
        // place; the reload below would otherwise drop them.
        if (btnApply->isEnabled()) SaveRuleOrder();
        FillRuleList();
        UpdateButtons();
        btnApply_Click();
    });
}

void frmRulesMain::btnModify_Click()
{
    Trap("btnModify_Click", [&] {
        const int row = SelectedRow();
        if (row < 0) return;
        frmRuleProps editor(EditorContext(), this);
        editor.RuleID = TagOf(row);
        editor.Action = QStringLiteral("Update");
        editor.Form_Load();
        RunModal(editor);
        if (editor.Cancelled) return;
        // Unapplied order and check changes are lost by the reload; Apply
        // keeps its state.
        if (FillRuleList() > row) SelectRow(row);
    });
}

void frmRulesMain::btnCopy_Click()
{
    Trap("btnCopy_Click", [&] {
        const int row = SelectedRow();
        if (row < 0) return;
        store::cDB& db = Db();
        std::unique_ptr<ado::Recordset> rs;
        if (!db.CreateRS(
                rs, QStringLiteral("SELECT * From [Rules] WHERE RuleID=") + QString::number(TagOf(row))) ||
            !rs)
            return;
        if (db.RecordCount(*rs) > 0) {
            auto value = [&rs](const char* column) { return rs->Value(QString::fromLatin1(column)); };
            auto text = [&value](const char* column) { return Text(value(column)); };
            ado::Command cmd;
            cmd.SetCommandType(ado::adCmdText);
            cmd.SetCommandText(kDuplicate);
            AddParameter(cmd, "RuleName", ado::adVarWChar, 150, text("RuleName") + QStringLiteral(" Copy"));
            AddParameter(cmd, "FromAddress", ado::adVarWChar, 150, text("FromAddress"));
            AddParameter(cmd, "ToAddress", ado::adVarWChar, 150, text("ToAddress"));
            AddParameter(cmd, "CcAddress", ado::adVarWChar, 150, text("CcAddress"));
            AddParameter(cmd, "Subject", ado::adVarWChar, 255, text("Subject"));
            for (const char* code : {"Importance", "Status", "FlagStatus", "MsgAgeID"})
                AddParameter(cmd, code, ado::adInteger, 10, int(store::CInt(value(code))));
            for (const char* id : {"SrcEntryID", "SrcStoreID", "DstEntryID", "DstStoreID"}) {
                const QString v = text(id);
                AddParameter(cmd, id, ado::adLongVarChar, static_cast<long>(v.size()) + 1, v);
            }
            AddParameter(cmd, "Active", ado::adBoolean, 10, false);
            AddParameter(cmd, "SortID", ado::adInteger, 10, int(store::CInt(value("SortID"))));
            rs->Close();
            (void)db.ExecuteSQL(QString(), &cmd);
            const int rows = FillRuleList();
            UpdateButtons();
            if (rows > 0) SelectRow(rows - 1);
        } else {
            rs->Close();
        }
    });
}

void frmRulesMain::btnDelete_Click()
{
    Trap("btnDelete_Click", [&] {
        if (SelectedRow() < 0) return;
        const int remembered = ListView1->topLevelItemCount() == 1 ? SelectedRow() : -1;
        if (m_ctx.answerer.Show(QStringLiteral("Delete the selected Rule(s)?"),
                                os::vbYesNo + os::vbExclamation, addin::OutAddIn::AppTitle()) != os::vbYes)
            return;
        store::cDB& db = Db();
        for (int position : SelectedPositions())
            (void)RuleList::Delete(db, TagOf(position - 1));
        const int rows = FillRuleList();
        UpdateButtons();
        if (rows > 0 && remembered >= 0) SelectRow(remembered);
    });
}

void frmRulesMain::btnPreview_Click()
{
    Trap("btnPreview_Click", [&] {
        const int row = SelectedRow();
        if (row < 0) return;
        engine::RuleRunner* runner = m_ctx.addIn.Runner();
        if (!runner)
            throw ado::AdoError(91, addin::OutAddIn::AppTitle(),
                                QStringLiteral("Object variable or With block variable not set"));
        frmRulePreview preview([this](QDialog& d) { RunModal(d); }, this);
        (void)runner->PreviewRule(TagOf(row), preview);
    });
}

void frmRulesMain::btnRunNow_Click()
{
    Trap("btnRunNow_Click", [&] {
        hide();
        m_ctx.addIn.RunAllRulesOnDemand();
    });
    done(QDialog::Accepted);
}

void frmRulesMain::btnSettings_Click()
{
    Trap("btnSettings_Click", [&] {
        if (m_ctx.showSettings) m_ctx.showSettings(this);
    });
}

void frmRulesMain::btnAbout_Click()
{
    Trap("btnAbout_Click", [&] {
        if (m_ctx.showAbout) m_ctx.showAbout(this);
    });
}

void frmRulesMain::btnExport_Click()
{
    Trap("btnExport_Click", [&] {
        RuleExportImport files(m_ctx.addIn, m_ctx.files);
        (void)files.ExportRules();
    });
}

void frmRulesMain::btnImport_Click()
{
    Trap("btnImport_Click", [&] {
        RuleExportImport files(m_ctx.addIn, m_ctx.files);
        (void)files.ImportRules();
        FillRuleList();
        DisableApply();
        UpdateButtons();
        EnableRunNow();
    });
}

void frmRulesMain::btnUpdates_Click()
{
    Trap("btnUpdates_Click", [&] {
        const QString updater = m_ctx.addIn.InstallDir() + QStringLiteral("/update");
        const QFileInfo info(updater);
        if (m_ctx.shell && info.isFile() && info.isExecutable()) {
            const Status started = m_ctx.shell->Start(updater, {}, m_ctx.addIn.InstallDir());
            if (!started.ok()) Warn(started.error().message);
            return;
        }
        // Without an updater beside the program, the installation came from
        // a package, and so do its updates.
        m_ctx.answerer.Show(QStringLiteral("Mailvane was installed without its own updater.") + kCrLf +
                                QStringLiteral("Updates come with the package manager that installed it."),
                            os::vbInformation, addin::OutAddIn::AppTitle());
    });
}

void frmRulesMain::btnHelp_Click()
{
    Trap("btnHelp_Click", [&] {
        if (!m_ctx.shell) return;
        const Status opened =
            m_ctx.shell->Open(m_ctx.addIn.InstallDir() + QStringLiteral("/help/index.html"));
        if (!opened.ok()) Warn(opened.error().message);
    });
}

}  // namespace mv::forms

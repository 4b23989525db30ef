#include "frmRuleProps.h"

#include "FormTrap.h"

#include "RuleChoices.h"

#include "platform/ado/AdoConstants.h"
#include "platform/ado/AdoError.h"
#include "platform/ado/Command.h"
#include "platform/ado/Recordset.h"
#include "platform/mapi/PropTags.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/os/Shell.h"
#include "platform/outlook/Folder.h"
#include "platform/outlook/FolderPicker.h"
#include "platform/outlook/Item.h"
#include "platform/outlook/NameSpace.h"
#include "store/VbConvert.h"
#include "store/cDB.h"

#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <exception>

namespace mv::forms {

namespace {

// How far the fields inside the group box sit to the right of the form's
// own left edge, so the two label columns can be lined up.
int FrameInset(const QGroupBox& frame, const QGridLayout& grid)
{
    return frame.contentsMargins().left() + grid.contentsMargins().left();
}

const QString kCrLf = QStringLiteral("\r\n");

const QString kInsert = QStringLiteral(
    "INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
    "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [LastVerb], "
    "[Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ");

const QString kUpdate = QStringLiteral(
    "UPDATE [Rules] SET [RuleName]=?, [FromAddress]=?, [ToAddress]=?, [CcAddress]=?, [Subject]=?, "
    "[Importance]=?, [Status]=?, [FlagStatus]=?, [MsgAgeID]=?, [SrcEntryID]=?, [SrcStoreID]=?, "
    "[DstEntryID]=?, [DstStoreID]=?, [LastVerb]=?, [Message]=? WHERE [RuleID]=?");

const QString kSaveProblem = QStringLiteral("There was a problem saving your changes.") + kCrLf + kCrLf +
                             QStringLiteral("If this problem persists, please contact Sorquin support.");

// The sender and the receiving mailbox as the selected message names them.
struct Party {
    mapi::PropTag addrType, name, email;
};
constexpr Party kSender{mapi::PR_SENT_REPRESENTING_ADDRTYPE, mapi::PR_SENT_REPRESENTING_NAME,
                        mapi::PR_SENT_REPRESENTING_EMAIL_ADDRESS};
constexpr Party kReceiver{mapi::PR_RCVD_REPRESENTING_ADDRTYPE, mapi::PR_RCVD_REPRESENTING_NAME,
                          mapi::PR_RCVD_REPRESENTING_EMAIL_ADDRESS};

QString Text(const QVariant& v) { return v.isValid() && !v.isNull() ? v.toString() : QString(); }
bool Present(const QVariant& v) { return v.isValid() && !v.isNull(); }

void Fill(QComboBox& list, std::span<const Choice> choices)
{
    list.clear();
    for (const Choice& c : choices) list.addItem(QString::fromUtf8(c.label), c.code);
}

}  // namespace

// The parameterised command of an insert or an update; the wrapper only
// keeps the parameter order and types in one place.
class RuleCommand {
public:
    explicit RuleCommand(const QString& text)
    {
        m_cmd.SetCommandType(ado::adCmdText);
        m_cmd.SetCommandText(text);
    }
    void Add(const char* name, int type, long size, const QVariant& value)
    {
        m_cmd.AppendParameter(m_cmd.CreateParameter(QString::fromLatin1(name), type, ado::adParamInput, size, value));
    }
    void Text(const char* name, int type, const QString& value)
    {
        Add(name, type, static_cast<long>(value.size()) + 1, value);
    }
    ado::Command& Command() { return m_cmd; }

private:
    ado::Command m_cmd;
};

template <typename F>
bool frmRuleProps::Trap(const char* procedure, F&& body) noexcept
{
    return TrapFormErrors(m_ctx.report, "frmRuleProps", procedure, std::forward<F>(body));
}

frmRuleProps::frmRuleProps(RulePropsContext context, QWidget* parent) : QDialog(parent), m_ctx(std::move(context))
{
    setObjectName(QStringLiteral("frmRuleProps"));
    setWindowTitle(QStringLiteral(" Mailvane Rule Properties"));
    setModal(true);
    BuildUi();
    ConnectButtons();
}

frmRuleProps::~frmRuleProps() = default;

void frmRuleProps::BuildUi()
{
    auto edit = [this](QLineEdit*& field, const char* name, bool readOnly = false) {
        field = new QLineEdit(this);
        field->setObjectName(QString::fromLatin1(name));
        field->setReadOnly(readOnly);
        return field;
    };
    auto button = [this](QPushButton*& b, const char* name, const QString& caption) {
        b = new QPushButton(caption, this);
        b->setObjectName(QString::fromLatin1(name));
        b->setAutoDefault(false);
        return b;
    };
    auto combo = [this](QComboBox*& c, const char* name) {
        c = new QComboBox(this);
        c->setObjectName(QString::fromLatin1(name));
        return c;
    };
    auto label = [this](const QString& caption, QWidget* buddy) {
        auto* l = new QLabel(caption, this);
        l->setBuddy(buddy);
        return l;
    };

    auto* top = new QGridLayout;
    top->addWidget(label(QStringLiteral("Rule &Name:"), edit(txtRuleName, "txtRuleName")), 0, 0);
    top->addWidget(txtRuleName, 0, 1, 1, 2);
    txtRuleName->setMaxLength(150);
    top->addWidget(label(QStringLiteral("&Source Folder:"), edit(txtSrcFolder, "txtSrcFolder", true)), 1, 0);
    top->addWidget(txtSrcFolder, 1, 1);
    top->addWidget(button(btnSrcFolderBrowse, "btnSrcFolderBrowse", QStringLiteral("...")), 1, 2);
    top->addWidget(label(QStringLiteral("&Destination Folder:"), edit(txtDstFolder, "txtDstFolder", true)), 2, 0);
    top->addWidget(txtDstFolder, 2, 1);
    top->addWidget(button(btnDstFolderBrowse, "btnDstFolderBrowse", QStringLiteral("...")), 2, 2);
    top->setColumnStretch(1, 1);
    btnSrcFolderBrowse->setToolTip(QStringLiteral("Choose the source folder"));
    btnDstFolderBrowse->setToolTip(QStringLiteral("Choose the destination folder"));

    auto* frame = new QGroupBox(QStringLiteral("Message characteristics"), this);
    auto* grid = new QGridLayout(frame);
    int row = 0;
    auto addressRow = [&](QPushButton*& b, const char* bName, const QString& caption, QLineEdit*& t,
                          const char* tName) {
        grid->addWidget(button(b, bName, caption), row, 0);
        grid->addWidget(edit(t, tName), row, 1);
        ++row;
    };
    addressRow(btnFrom, "btnFrom", QStringLiteral("&From:"), txtFrom, "txtFrom");
    addressRow(btnTo, "btnTo", QStringLiteral("Sen&t To:"), txtTo, "txtTo");
    addressRow(btnCc, "btnCc", QStringLiteral("&Cc:"), txtCC, "txtCC");
    auto textRow = [&](const QString& caption, QWidget* w) {
        grid->addWidget(label(caption, w), row, 0);
        grid->addWidget(w, row, 1);
        ++row;
    };
    textRow(QStringLiteral("Su&bject Contains:"), edit(txtSubject, "txtSubject"));
    textRow(QStringLiteral("&Message Contains:"), edit(txtMessage, "txtMessage"));
    textRow(QStringLiteral("&Importance:"), combo(cmbImportance, "cmbImportance"));
    textRow(QStringLiteral("St&atus:"), combo(cmbStatus, "cmbStatus"));
    textRow(QStringLiteral("F&lag Status:"), combo(cmbFlagStatus, "cmbFlagStatus"));
    textRow(QStringLiteral("Only Items t&hat:"), combo(cmbOnlyItems, "cmbOnlyItems"));
    textRow(QStringLiteral("Message &Older Than:"), combo(cmbMsgAge, "cmbMsgAge"));

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(button(btnHelp, "btnHelp", QStringLiteral("?")));
    btnHelp->setToolTip(QStringLiteral("Help"));
    buttons->addStretch();
    buttons->addWidget(button(btnOK, "btnOK", QStringLiteral("Add Rule")));
    buttons->addWidget(button(btnCancel, "btnCancel", QStringLiteral("&Cancel")));
    buttons->addWidget(button(btnClose, "btnClose", QStringLiteral("&Close")));
    btnOK->setDefault(true);

    // The "..." and "?" buttons are as small as their text; the fields get
    // the width, and the fields inside the frame line up with those above.
    for (QPushButton* small : {btnSrcFolderBrowse, btnDstFolderBrowse, btnHelp})
        small->setFixedWidth(small->fontMetrics().horizontalAdvance(QStringLiteral("MMM")) + 12);
    grid->setColumnStretch(1, 1);
    txtRuleName->setMinimumWidth(txtRuleName->fontMetrics().averageCharWidth() * 40);
    int labelWidth = 0;
    for (int r = 0; r < grid->rowCount(); ++r) {
        if (QLayoutItem* item = grid->itemAtPosition(r, 0); item && item->widget())
            labelWidth = std::max(labelWidth, item->widget()->sizeHint().width());
    }
    for (int r = 0; r < top->rowCount(); ++r) {
        if (QLayoutItem* item = top->itemAtPosition(r, 0); item && item->widget())
            labelWidth = std::max(labelWidth, item->widget()->sizeHint().width() - FrameInset(*frame, *grid));
    }
    grid->setColumnMinimumWidth(0, labelWidth);
    top->setColumnMinimumWidth(0, labelWidth + FrameInset(*frame, *grid));

    auto* outer = new QVBoxLayout(this);
    outer->addLayout(top);
    outer->addWidget(frame);
    outer->addLayout(buttons);

    // Down the form, each picker button after its field.
    const QWidget* order[] = {txtRuleName, txtSrcFolder, btnSrcFolderBrowse, txtDstFolder, btnDstFolderBrowse,
                              txtFrom,     btnFrom,      txtTo,              btnTo,        txtCC,
                              btnCc,       txtSubject,   txtMessage,         cmbImportance, cmbStatus,
                              cmbFlagStatus, cmbOnlyItems, cmbMsgAge,        btnOK,        btnCancel,
                              btnClose,    btnHelp};
    for (std::size_t i = 1; i < std::size(order); ++i)
        setTabOrder(const_cast<QWidget*>(order[i - 1]), const_cast<QWidget*>(order[i]));
}

void frmRuleProps::ConnectButtons()
{
    connect(btnOK, &QPushButton::clicked, this, [this] { btnOK_Click(); });
    connect(btnCancel, &QPushButton::clicked, this, [this] { btnCancel_Click(); });
    connect(btnClose, &QPushButton::clicked, this, [this] { btnCancel_Click(); });
    connect(btnHelp, &QPushButton::clicked, this, [this] { btnHelp_Click(); });
    connect(btnSrcFolderBrowse, &QPushButton::clicked, this, [this] { BrowseFolder(true); });
    connect(btnDstFolderBrowse, &QPushButton::clicked, this, [this] { BrowseFolder(false); });
    connect(btnFrom, &QPushButton::clicked, this, [this] { PickContact(txtFrom); });
    connect(btnTo, &QPushButton::clicked, this, [this] { PickContact(txtTo); });
    connect(btnCc, &QPushButton::clicked, this, [this] { PickContact(txtCC); });
}

void frmRuleProps::SetSelection(std::unique_ptr<outlook::Item> item, std::unique_ptr<outlook::Folder> parentFolder)
{
    m_selection = std::move(item);
    m_selectionFolder = std::move(parentFolder);
}

int frmRuleProps::OutlookMajorVersion() const { return forms::OutlookMajorVersion(m_ctx.hostVersion); }

void frmRuleProps::FillLists()
{
    Fill(*cmbMsgAge, MsgAgeChoices());
    Fill(*cmbImportance, ImportanceChoices());
    Fill(*cmbStatus, StatusChoices());
    Fill(*cmbFlagStatus, FlagStatusChoices(OutlookMajorVersion()));
    Fill(*cmbOnlyItems, LastVerbChoices());
    cmbMsgAge->setCurrentIndex(SelectByCode(*cmbMsgAge, m_raMsgAge));
    cmbImportance->setCurrentIndex(3);
    cmbStatus->setCurrentIndex(SelectByCode(*cmbStatus, m_raStatus));
    cmbFlagStatus->setCurrentIndex(0);
    cmbOnlyItems->setCurrentIndex(0);
}

void frmRuleProps::Form_Load()
{
    if (m_loaded) return;
    m_loaded = true;
    Trap("Form_Load", [&] {
        btnClose->hide();
        LoadSmartAddDefaults();
        FillLists();
        if (Action == QLatin1String("Update")) {
            btnOK->setText(QStringLiteral("Update Rule"));
            LoadRule(RuleID);
        } else if (Action == QLatin1String("New") || Action == QLatin1String("NewSA")) {
            btnOK->setText(QStringLiteral("Add Rule"));
            if (Action == QLatin1String("NewSA")) PrefillFromSelection();
        } else if (Action == QLatin1String("ReadOnly")) {
            btnClose->show();
            btnOK->hide();
            btnCancel->hide();
            btnClose->setDefault(true);
            LoadRule(RuleID);
            DisableInputs();
        }
    });
}

int frmRuleProps::SelectByCode(const QComboBox& list, int code)
{
    for (int i = 0; i < list.count(); ++i)
        if (list.itemData(i).toInt() == code) return i;
    return 0;
}

int frmRuleProps::CodeOf(const QComboBox& list) { return list.currentData().toInt(); }

void frmRuleProps::LoadSmartAddDefaults()
{
    Trap("LoadSmartAddDefaults", [&] {
        std::unique_ptr<ado::Recordset> rs;
        if (!m_ctx.db.CreateRS(rs, QStringLiteral("SELECT * From [settings]"))) return;
        if (m_ctx.db.RecordCount(*rs) == 1) {
            const std::pair<const char*, int*> fields[] = {
                {"raRuleName", &m_raRuleName}, {"raFrom", &m_raFrom},     {"raTo", &m_raTo},
                {"raCc", &m_raCc},             {"raSubject", &m_raSubject}, {"raImportance", &m_raImportance},
                {"raStatus", &m_raStatus},     {"raMsgAge", &m_raMsgAge}};
            for (const auto& [name, target] : fields) {
                const QVariant v = rs->Value(QString::fromLatin1(name));
                if (Present(v)) *target = store::CInt(v);
            }
        }
        rs->Close();
    });
}

bool frmRuleProps::FolderExist(const QString& entryId, const QString& storeId)
{
    if (entryId.isEmpty() || storeId.isEmpty()) return false;
    return m_ctx.nameSpace.GetFolderFromID(entryId, storeId) != nullptr;
}

void frmRuleProps::LoadFolder(const QString& entryId, const QString& storeId, bool source)
{
    (source ? m_srcEntryId : m_dstEntryId) = entryId;
    (source ? m_srcStoreId : m_dstStoreId) = storeId;
    QLineEdit* box = source ? txtSrcFolder : txtDstFolder;
    // One lookup both tells whether the folder exists and opens it: on an
    // IMAP store each lookup is a round trip.
    std::unique_ptr<outlook::Folder> folder =
        entryId.isEmpty() || storeId.isEmpty() ? nullptr : m_ctx.nameSpace.GetFolderFromID(entryId, storeId);
    if (folder) {
        box->setText(folder->Name());
        return;
    }
    box->clear();
    Warn(source ? QStringLiteral("The source folder could not be found, please re-select.")
                : QStringLiteral("The destination folder could not be found, please re-select."));
}

void frmRuleProps::LoadRule(std::int16_t ruleId)
{
    Trap("LoadRule", [&] {
        std::unique_ptr<ado::Recordset> rs;
        if (!m_ctx.db.CreateRS(rs, QStringLiteral("SELECT * From [Rules] WHERE RuleID=") + QString::number(ruleId)))
            return;
        if (m_ctx.db.RecordCount(*rs) != 1) {
            rs->Close();
            return;
        }
        const std::pair<const char*, QLineEdit*> texts[] = {
            {"RuleName", txtRuleName}, {"FromAddress", txtFrom}, {"ToAddress", txtTo},
            {"CcAddress", txtCC},      {"Subject", txtSubject},  {"message", txtMessage}};
        for (const auto& [column, box] : texts) {
            const QVariant v = rs->Value(QString::fromLatin1(column));
            if (Present(v)) box->setText(v.toString());
        }
        const std::pair<const char*, QComboBox*> lists[] = {{"Importance", cmbImportance},
                                                            {"Status", cmbStatus},
                                                            {"FlagStatus", cmbFlagStatus},
                                                            {"LastVerb", cmbOnlyItems},
                                                            {"MsgAgeID", cmbMsgAge}};
        for (const auto& [column, list] : lists) {
            const QVariant v = rs->Value(QString::fromLatin1(column));
            if (Present(v)) list->setCurrentIndex(SelectByCode(*list, store::CInt(v)));
        }
        const QVariant srcEntry = rs->Value(QStringLiteral("SrcEntryID"));
        const QVariant srcStore = rs->Value(QStringLiteral("SrcStoreID"));
        const QVariant dstEntry = rs->Value(QStringLiteral("DstEntryID"));
        const QVariant dstStore = rs->Value(QStringLiteral("DstStoreID"));
        rs->Close();
        if (Present(srcEntry) && Present(srcStore)) LoadFolder(Text(srcEntry), Text(srcStore), true);
        if (Present(dstEntry) && Present(dstStore)) LoadFolder(Text(dstEntry), Text(dstStore), false);
    });
}

void frmRuleProps::AddRuleParameters(RuleCommand& cmd)
{
    cmd.Add("RuleName", ado::adVarWChar, 150, txtRuleName->text());
    cmd.Text("FromAddress", ado::adVarWChar, txtFrom->text());
    cmd.Text("ToAddress", ado::adVarWChar, txtTo->text());
    cmd.Text("CcAddress", ado::adVarWChar, txtCC->text());
    cmd.Text("Subject", ado::adVarWChar, txtSubject->text());
    cmd.Add("Importance", ado::adInteger, 10, CodeOf(*cmbImportance));
    cmd.Add("Status", ado::adInteger, 10, CodeOf(*cmbStatus));
    cmd.Add("FlagStatus", ado::adInteger, 10, CodeOf(*cmbFlagStatus));
    cmd.Add("MsgAgeID", ado::adInteger, 10, CodeOf(*cmbMsgAge));
    cmd.Text("SrcEntryID", ado::adLongVarChar, m_srcEntryId);
    cmd.Text("SrcStoreID", ado::adLongVarChar, m_srcStoreId);
    cmd.Text("DstEntryID", ado::adLongVarChar, m_dstEntryId);
    cmd.Text("DstStoreID", ado::adLongVarChar, m_dstStoreId);
    cmd.Add("LastVerb", ado::adInteger, 10, CodeOf(*cmbOnlyItems));
    cmd.Text("Message", ado::adVarWChar, txtMessage->text());
}

bool frmRuleProps::InsertRule()
{
    bool saved = false;
    Trap("InsertRule", [&] {
        // Read before the insert: the new row has no place in the order yet.
        std::int16_t maxSort = 0;
        std::unique_ptr<ado::Recordset> rs;
        if (m_ctx.db.CreateRS(rs, QStringLiteral("SELECT MAX(SortID) As MaxID From Rules"))) {
            if (!rs->IsEOF()) {
                const QVariant v = rs->Value(QStringLiteral("MaxID"));
                if (Present(v)) maxSort = store::CInt(v);
            }
            rs->Close();
        }
        RuleCommand cmd(kInsert);
        AddRuleParameters(cmd);
        if (!m_ctx.db.ExecuteSQL(QString(), &cmd.Command())) {
            m_ctx.report.Show(kSaveProblem);
            return;
        }
        saved = true;
        // A rule added from anywhere but the Rules Manager (which saves the
        // whole order after an add) would otherwise sit outside the run order.
        RuleCommand place(QStringLiteral("UPDATE [Rules] SET [SortID]=? WHERE [RuleID]=?"));
        place.Add("SortID", ado::adInteger, 10, int(store::AddInt(maxSort, 1)));
        place.Add("RuleID", ado::adInteger, 10, int(m_ctx.db.NewID()));
        if (!m_ctx.db.ExecuteSQL(QString(), &place.Command())) m_ctx.report.Show(kSaveProblem);
    });
    return saved;
}

bool frmRuleProps::UpdateRule()
{
    bool saved = false;
    Trap("UpdateRule", [&] {
        RuleCommand cmd(kUpdate);
        AddRuleParameters(cmd);
        cmd.Add("RuleID", ado::adInteger, 10, int(RuleID));
        if (!m_ctx.db.ExecuteSQL(QString(), &cmd.Command())) {
            m_ctx.report.Show(kSaveProblem);
            return;
        }
        saved = true;
    });
    return saved;
}

void frmRuleProps::PrefillFromSelection()
{
    Trap("PrefillFromSelection", [&] {
        if (!m_selection) return;
        const outlook::Item& item = *m_selection;
        cmbStatus->setCurrentIndex(SelectByCode(*cmbStatus, m_raStatus));
        cmbMsgAge->setCurrentIndex(SelectByCode(*cmbMsgAge, m_raMsgAge));
        QString sourceName;
        if (m_selectionFolder) {
            m_srcEntryId = m_selectionFolder->EntryID();
            m_srcStoreId = m_selectionFolder->StoreID();
            sourceName = m_selectionFolder->Name();
        }
        // Only mail, meeting and report items have the sender and receiver
        // properties the prefill reads.
        const QString messageClass = item.MessageClass().toUpper();
        const bool wrapped = messageClass.contains(QLatin1String("IPM.SCHEDULE")) ||
                             messageClass.contains(QLatin1String("REPORT.")) ||
                             messageClass.contains(QLatin1String("IPM.NOTE"));
        auto party = [&](const Party& p) {
            if (!wrapped) return QString();
            if (Text(item.Fields(p.addrType)) == QLatin1String("EX")) return Text(item.Fields(p.name));
            return Text(item.Fields(p.email));
        };
        if (m_raFrom == 1) txtFrom->setText(party(kSender));
        if (m_raTo == 1) txtTo->setText(party(kReceiver));
        switch (m_raRuleName) {
        case 0: txtRuleName->setText(item.Subject()); break;
        case 1: txtRuleName->setText(txtFrom->text()); break;
        case 2: txtRuleName->setText(txtTo->text()); break;
        default: break;
        }
        if (m_raCc == 1 && messageClass.contains(QLatin1String("IPM.NOTE"))) txtCC->setText(item.CC());
        if (m_raSubject == 1) txtSubject->setText(item.Subject());
        if (m_raImportance == 1 && item.Importance() != 1)
            cmbImportance->setCurrentIndex(SelectByCode(*cmbImportance, item.Importance()));
        txtSrcFolder->setText(sourceName);
    });
}

QString frmRuleProps::ChooseContact()
{
    QString result;
    Trap("ChooseContact", [&] {
        const std::vector<AddressBookEntry> chosen = m_ctx.contacts.AddressBook(QStringLiteral("Choose a Contact"));
        for (const AddressBookEntry& e : chosen) {
            if (!e.hasAddressEntry) continue;
            result += (e.addrType == QLatin1String("EX") ? e.displayName : e.address) + QStringLiteral("; ");
        }
    });
    return result;
}

void frmRuleProps::PickContact(QLineEdit* target)
{
    const QString chosen = ChooseContact();
    if (!chosen.isEmpty()) target->setText(chosen);
}

void frmRuleProps::BrowseFolder(bool source)
{
    Trap(source ? "btnSrcFolderBrowse_Click" : "btnDstFolderBrowse_Click", [&] {
        std::unique_ptr<outlook::Folder> folder = m_ctx.folderPicker.Pick(m_ctx.nameSpace);
        if (!folder) return;
        (source ? txtSrcFolder : txtDstFolder)->setText(folder->Name());
        (source ? m_srcEntryId : m_dstEntryId) = folder->EntryID();
        (source ? m_srcStoreId : m_dstStoreId) = folder->StoreID();
    });
}

void frmRuleProps::DisableInputs()
{
    for (QWidget* w : std::initializer_list<QWidget*>{
             txtRuleName, txtSrcFolder, btnSrcFolderBrowse, txtDstFolder, btnDstFolderBrowse, txtFrom, btnFrom,
             txtTo, btnTo, txtCC, btnCc, txtSubject, txtMessage, cmbImportance, cmbStatus, cmbFlagStatus,
             cmbOnlyItems, cmbMsgAge})
        w->setEnabled(false);
}

void frmRuleProps::Warn(const QString& text) { m_ctx.answerer.Show(text, os::vbOKOnly + os::vbExclamation, m_ctx.title); }

bool frmRuleProps::CheckRequiredFields()
{
    QString missing;
    if (txtRuleName->text().isEmpty()) missing += QStringLiteral("RuleName") + kCrLf;
    if (txtSrcFolder->text().isEmpty()) missing += QStringLiteral("Source Folder") + kCrLf;
    if (txtDstFolder->text().isEmpty()) missing += QStringLiteral("Destination Folder") + kCrLf;
    if (missing.isEmpty()) return true;
    Warn(QStringLiteral("The Following Fields are Required to save this rule:") + kCrLf + kCrLf + missing);
    return false;
}

bool frmRuleProps::CheckSubjectQuotes()
{
    if (NoOfOccurances(txtSubject->text(), QStringLiteral("\"")) % 2 == 0) return true;
    Warn(QStringLiteral("There are unmatched quote characters in the Subject contains field."));
    return false;
}

bool frmRuleProps::CheckMessageQuotes()
{
    if (NoOfOccurances(txtMessage->text(), QStringLiteral("\"")) % 2 == 0) return true;
    Warn(QStringLiteral("There are unmatched quote characters in the Message contains field."));
    return false;
}

bool frmRuleProps::CheckNotCatchAll()
{
    const bool catchAll = txtFrom->text().isEmpty() && txtTo->text().isEmpty() && txtCC->text().isEmpty() &&
                          txtSubject->text().isEmpty() && txtMessage->text().isEmpty() &&
                          CodeOf(*cmbMsgAge) == kAnyMsgAge && CodeOf(*cmbImportance) == kAnyImportance &&
                          CodeOf(*cmbStatus) == kAnyStatus && CodeOf(*cmbFlagStatus) == kAnyFlag &&
                          CodeOf(*cmbOnlyItems) == kAnyLastVerb;
    if (!catchAll) return true;
    Warn(QStringLiteral("The rule as configured is invalid:") + kCrLf + kCrLf +
         QStringLiteral("This would result in all messages being moved regardless of any criteria."));
    return false;
}

bool frmRuleProps::CheckAddressSeparators()
{
    bool ok = true;
    const std::pair<QLineEdit*, const char*> fields[] = {{txtFrom, "From"}, {txtTo, "To"}, {txtCC, "Cc"}};
    for (const auto& [box, name] : fields) {
        if (!box->text().contains(u',')) continue;
        Warn(QStringLiteral("Please separate multiple email addresses in the %1 field with a semicolon (;).")
                 .arg(QLatin1String(name)));
        ok = false;
    }
    return ok;
}

void frmRuleProps::btnOK_Click()
{
    // Commas in address fields are accepted on purpose: CheckAddressSeparators
    // is not part of this sequence.
    if (!CheckRequiredFields() || !CheckSubjectQuotes() || !CheckMessageQuotes() || !CheckNotCatchAll()) return;
    const bool isNew = Action == QLatin1String("New") || Action == QLatin1String("NewSA");
    // A failed save keeps the form open so that nothing typed is lost.
    if (!(isNew ? InsertRule() : UpdateRule())) return;
    Cancelled = false;
    accept();
}

void frmRuleProps::btnCancel_Click() { reject(); }

void frmRuleProps::reject()
{
    // Escape and the window's close button leave the same way as Cancel.
    Cancelled = true;
    QDialog::reject();
}

void frmRuleProps::btnHelp_Click()
{
    Trap("btnHelp_Click", [&] {
        if (!m_ctx.shell) return;
        const Status opened = m_ctx.shell->Open(m_ctx.installDir + QStringLiteral("/help/index.html"));
        if (!opened.ok()) Warn(opened.error().message);
    });
}

}  // namespace mv::forms

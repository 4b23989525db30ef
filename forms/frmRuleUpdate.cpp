#include "frmRuleUpdate.h"

#include "DialogButtons.h"

#include "FormTrap.h"

#include "platform/ado/AdoError.h"
#include "platform/ado/Recordset.h"
#include "platform/mapi/PropTags.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/outlook/Item.h"
#include "store/VbConvert.h"
#include "store/cDB.h"

#include <QApplication>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPalette>
#include <QPushButton>
#include <QVBoxLayout>

#include <exception>

namespace mv::forms {

namespace {

// Sender and receiving mailbox: an Exchange address is useless to a rule,
// so such a party is offered by its display name.
struct Party {
    mapi::PropTag addrType, name, email;
};
constexpr Party kParties[] = {
    {mapi::PR_SENT_REPRESENTING_ADDRTYPE, mapi::PR_SENT_REPRESENTING_NAME,
     mapi::PR_SENT_REPRESENTING_EMAIL_ADDRESS},
    {mapi::PR_RCVD_REPRESENTING_ADDRTYPE, mapi::PR_RCVD_REPRESENTING_NAME,
     mapi::PR_RCVD_REPRESENTING_EMAIL_ADDRESS},
};

// cmbField entries in order, with the editor field each one changes.
constexpr std::pair<const char*, const char*> kFields[] = {
    {"From Address", "txtFrom"}, {"To Address", "txtTo"}, {"Cc Address", "txtCC"}};

QString Text(const QVariant& v)
{
    return v.isValid() && !v.isNull() ? v.toString() : QString();
}

}  // namespace

template <typename F>
bool frmRuleUpdate::Trap(const char* procedure, F&& body) noexcept
{
    return TrapFormErrors(m_ctx.report, "frmRuleUpdate", procedure, std::forward<F>(body));
}

frmRuleUpdate::frmRuleUpdate(RulePropsContext context, QWidget* parent)
    : QDialog(parent), m_ctx(std::move(context))
{
    setObjectName(QStringLiteral("frmRuleUpdate"));
    setWindowTitle(QStringLiteral(" Smart Rule Update"));
    setModal(true);
    ShowEditor = [](frmRuleProps& editor) { editor.exec(); };
    BuildUi();
    connect(btnOK, &QPushButton::clicked, this, [this] { btnOK_Click(); });
    connect(btnCancel, &QPushButton::clicked, this, [this] { reject(); });
}

frmRuleUpdate::~frmRuleUpdate() = default;

void frmRuleUpdate::BuildUi()
{
    auto combo = [this](QComboBox*& c, const char* name) {
        c = new QComboBox(this);
        c->setObjectName(QString::fromLatin1(name));
        return c;
    };
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("&Rule:"), combo(cmbRule, "cmbRule"));
    form->addRow(QStringLiteral("&Field:"), combo(cmbField, "cmbField"));
    form->addRow(QStringLiteral("&Action:"), combo(cmbAction, "cmbAction"));

    lstData = new QListWidget(this);
    lstData->setObjectName(QStringLiteral("lstData"));
    lstData->setSelectionMode(QAbstractItemView::MultiSelection);
    auto* dataLabel = new QLabel(QStringLiteral("Addresses of the selected &message:"), this);
    dataLabel->setBuddy(lstData);

    auto* buttons = MakeOkCancelRow(this, btnOK, btnCancel, QStringLiteral("&Cancel"));

    auto* outer = new QVBoxLayout(this);
    outer->addLayout(form);
    outer->addWidget(dataLabel);
    outer->addWidget(lstData);
    outer->addLayout(buttons);
}

void frmRuleUpdate::SetSelection(std::unique_ptr<outlook::Item> item)
{
    m_selection = std::move(item);
}

void frmRuleUpdate::Form_Load()
{
    if (m_loaded) return;
    m_loaded = true;
    Trap("Form_Load", [&] {
        cmbAction->clear();
        cmbAction->addItem(QStringLiteral("Append to Contents"));
        cmbAction->addItem(QStringLiteral("Replace Contents"));
        cmbField->clear();
        for (const auto& [label, field] : kFields) cmbField->addItem(QString::fromLatin1(label));
        LoadRules();
        ParseDefaults();
    });
}

void frmRuleUpdate::LoadRules()
{
    Trap("LoadRules", [&] {
        cmbRule->clear();
        std::unique_ptr<ado::Recordset> rs;
        if (m_ctx.db.CreateRS(rs, QStringLiteral("SELECT * From Rules ORDER By RuleName"))) {
            while (!rs->IsEOF()) {
                cmbRule->addItem(Text(rs->Value(QStringLiteral("RuleName"))),
                                 int(store::CInt(rs->Value(QStringLiteral("RuleID")))));
                rs->MoveNext();
            }
            rs->Close();
        }
        // With no rule there is nothing to update.
        btnOK->setEnabled(cmbRule->count() > 0);
    });
}

void frmRuleUpdate::AddAddress(const QString& address)
{
    const QString trimmed = address.trimmed();
    if (trimmed.isEmpty()) return;
    for (int i = 0; i < lstData->count(); ++i)
        if (lstData->item(i)->text().compare(trimmed, Qt::CaseInsensitive) == 0) return;
    lstData->addItem(trimmed);
}

void frmRuleUpdate::ParseDefaults()
{
    Trap("ParseDefaults", [&] {
        lstData->clear();
        if (!m_selection) return;
        const outlook::Item& item = *m_selection;
        // Mail, meeting and report items carry the sender and receiver
        // properties; any other class (a contact, a task) offers nothing.
        const QString messageClass = item.MessageClass().toUpper();
        const bool isNote = messageClass.contains(QLatin1String("IPM.NOTE"));
        if (!isNote && !messageClass.contains(QLatin1String("IPM.SCHEDULE")) &&
            !messageClass.contains(QLatin1String("REPORT.")))
            return;
        for (const Party& p : kParties) {
            const bool exchange = Text(item.Fields(p.addrType)) == QLatin1String("EX");
            AddAddress(Text(item.Fields(exchange ? p.name : p.email)));
        }
        if (!isNote) return;
        // The copy line shows names; the recipients behind it give the
        // addresses a rule can match. A name stands in where there is none.
        bool fromRecipients = false;
        for (const outlook::Recipient& r : item.Recipients()) {
            if (r.type != 2) continue;
            fromRecipients = true;
            AddAddress(r.address.isEmpty() ? r.name : r.address);
        }
        if (!fromRecipients)
            for (const QString& part : item.CC().split(u';')) AddAddress(part);
    });
}

const char* frmRuleUpdate::FieldName(int fieldIndex)
{
    if (fieldIndex < 0 || fieldIndex >= int(std::size(kFields))) return kFields[0].second;
    return kFields[fieldIndex].second;
}

QString frmRuleUpdate::Combine(const QString& current, const QStringList& chosen, bool append)
{
    QString joined;
    for (const QString& address : chosen) joined += address + QStringLiteral("; ");
    if (!append) return joined;
    // Trailing blanks would leave "; ; " behind, an empty term in the list.
    QString base = current;
    while (!base.isEmpty() && base.back().isSpace()) base.chop(1);
    if (base.isEmpty()) return joined;
    QString result = base + QStringLiteral("; ") + joined;
    while (result.contains(QLatin1String(";;"))) result.replace(QLatin1String(";;"), QLatin1String(";"));
    return result;
}

void frmRuleUpdate::btnOK_Click()
{
    QStringList chosen;
    for (int i = 0; i < lstData->count(); ++i)
        if (lstData->item(i)->isSelected()) chosen << lstData->item(i)->text();
    if (chosen.isEmpty()) {
        m_ctx.answerer.Show(
            QStringLiteral("Please select one or more email addresses to complete this action."),
            os::vbOKOnly + os::vbInformation, m_ctx.title);
        return;
    }
    Trap("btnOK_Click", [&] {
        auto editor = std::make_unique<frmRuleProps>(m_ctx, this);
        editor->RuleID = static_cast<std::int16_t>(cmbRule->currentData().toInt());
        editor->Action = QStringLiteral("Update");
        editor->Form_Load();
        auto* field = editor->findChild<QLineEdit*>(QString::fromLatin1(FieldName(cmbField->currentIndex())));
        if (!field) return;
        const bool append = cmbAction->currentIndex() == 0;
        field->setText(Combine(field->text(), chosen, append));
        // The info-tip background, so the user sees at once what changed.
        QPalette palette = field->palette();
        palette.setColor(QPalette::Base, QApplication::palette().color(QPalette::ToolTipBase));
        palette.setColor(QPalette::Text, QApplication::palette().color(QPalette::ToolTipText));
        field->setPalette(palette);
        ShowEditor(*editor);
    });
    accept();
}

}  // namespace mv::forms

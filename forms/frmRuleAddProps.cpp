#include "frmRuleAddProps.h"

#include "DialogButtons.h"

#include "FormTrap.h"

#include "RuleChoices.h"

#include "platform/ado/AdoConstants.h"
#include "platform/ado/AdoError.h"
#include "platform/ado/Command.h"
#include "platform/ado/Recordset.h"
#include "platform/os/ErrorReport.h"
#include "store/VbConvert.h"
#include "store/cDB.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <exception>
#include <span>

namespace mv::forms {

namespace {

const Choice kRuleNameChoices[] = {
    {"Email Subject", 0}, {"From Email", 1}, {"Destination Email", 2}, {"Leave Blank", 3}};

// The editor's age list without its longest windows: a Smart Add rule is
// meant for recent mail.
const Choice kSmartAgeChoices[] = {
    {"Any Time", 13}, {"15 minutes", 14}, {"1 hour", 1},    {"2 hours", 2},   {"4 hours", 3}, {"8 hours", 4},
    {"1 day", 5},     {"2 days", 6},      {"3 days", 15},   {"4 days", 16},   {"5 days", 17}, {"1 week", 7},
    {"2 weeks", 8},   {"1 month", 9},     {"2 months", 10}, {"3 months", 11}, {"1 year", 12}};
constexpr int kDefaultAgeEntry = 4;  // "4 hours"

const QString kUpdate = QStringLiteral(
    "UPDATE [settings] SET [raRuleName]=?, [raFrom]=?, [raTo]=?, [raCc]=?, [raSubject]=?, [raImportance]=?, "
    "[raStatus]=?, [raMsgAge]=?");

void Fill(QComboBox& list, std::span<const Choice> choices)
{
    list.clear();
    for (const Choice& c : choices) list.addItem(QString::fromUtf8(c.label), c.code);
}

bool Present(const QVariant& v)
{
    return v.isValid() && !v.isNull();
}

}  // namespace

template <typename F>
bool frmRuleAddProps::Trap(const char* procedure, F&& body) noexcept
{
    return TrapFormErrors(m_report, "frmRuleAddProps", procedure, std::forward<F>(body));
}

frmRuleAddProps::frmRuleAddProps(store::cDB& db, os::ErrorReport& report, QWidget* parent)
    : QDialog(parent), m_db(db), m_report(report)
{
    setObjectName(QStringLiteral("frmRuleAddProps"));
    setWindowTitle(QStringLiteral(" Smart Add Rule Settings"));
    setModal(true);
    BuildUi();
    connect(btnOK, &QPushButton::clicked, this, [this] { btnOK_Click(); });
    connect(btnCancel, &QPushButton::clicked, this, [this] { reject(); });
}

void frmRuleAddProps::BuildUi()
{
    auto combo = [this](QComboBox*& c, const char* name) {
        c = new QComboBox(this);
        c->setObjectName(QString::fromLatin1(name));
        return c;
    };
    auto check = [this](QCheckBox*& c, const char* name, const QString& caption) {
        c = new QCheckBox(caption, this);
        c->setObjectName(QString::fromLatin1(name));
        return c;
    };

    auto* intro = new QLabel(
        QStringLiteral("When a rule is added from a selected message, take these parts of the message:"),
        this);
    intro->setWordWrap(true);

    auto* naming = new QFormLayout;
    naming->addRow(QStringLiteral("Rule &Name:"), combo(cmbRuleName, "cmbRuleName"));

    auto* parts = new QGroupBox(QStringLiteral("Copy from the message"), this);
    auto* partsLayout = new QVBoxLayout(parts);
    partsLayout->addWidget(check(chkFrom, "chkFrom", QStringLiteral("&From address")));
    partsLayout->addWidget(check(chkTo, "chkTo", QStringLiteral("&To address")));
    partsLayout->addWidget(check(chkCC, "chkCC", QStringLiteral("&Cc addresses")));
    partsLayout->addWidget(check(chkSubject, "chkSubject", QStringLiteral("&Subject")));
    partsLayout->addWidget(check(chkImportance, "chkImportance", QStringLiteral("&Importance")));

    auto* criteria = new QFormLayout;
    criteria->addRow(QStringLiteral("St&atus:"), combo(cmbStatus, "cmbStatus"));
    criteria->addRow(QStringLiteral("Message &Older Than:"), combo(cmbMsgAge, "cmbMsgAge"));

    auto* buttons = MakeOkCancelRow(this, btnOK, btnCancel, QStringLiteral("&Cancel"));

    // The two label columns line up although the group box sits between them.
    QWidget* labels[] = {naming->labelForField(cmbRuleName), criteria->labelForField(cmbStatus),
                         criteria->labelForField(cmbMsgAge)};
    int labelWidth = 0;
    for (QWidget* l : labels) labelWidth = std::max(labelWidth, l->sizeHint().width());
    for (QWidget* l : labels) l->setMinimumWidth(labelWidth);
    setMinimumWidth(intro->fontMetrics().averageCharWidth() * 62);

    auto* outer = new QVBoxLayout(this);
    outer->addWidget(intro);
    outer->addLayout(naming);
    outer->addWidget(parts);
    outer->addLayout(criteria);
    outer->addLayout(buttons);
}

void frmRuleAddProps::Form_Load()
{
    if (m_loaded) return;
    m_loaded = true;
    Fill(*cmbRuleName, kRuleNameChoices);
    Fill(*cmbStatus, StatusChoices());
    Fill(*cmbMsgAge, kSmartAgeChoices);
    cmbRuleName->setCurrentIndex(0);
    cmbStatus->setCurrentIndex(0);
    cmbMsgAge->setCurrentIndex(kDefaultAgeEntry);
    LoadSettings();
}

void frmRuleAddProps::SelectCode(QComboBox& list, int code)
{
    for (int i = 0; i < list.count(); ++i) {
        if (list.itemData(i).toInt() == code) {
            list.setCurrentIndex(i);
            return;
        }
    }
}

void frmRuleAddProps::LoadSettings()
{
    Trap("LoadSettings", [&] {
        std::unique_ptr<ado::Recordset> rs;
        if (!m_db.CreateRS(rs, QStringLiteral("SELECT * From [settings]"))) return;
        if (m_db.RecordCount(*rs) == 1) {
            const std::pair<const char*, QComboBox*> lists[] = {
                {"raRuleName", cmbRuleName}, {"raStatus", cmbStatus}, {"raMsgAge", cmbMsgAge}};
            const std::pair<const char*, QCheckBox*> checks[] = {{"raFrom", chkFrom},
                                                                 {"raTo", chkTo},
                                                                 {"raCc", chkCC},
                                                                 {"raSubject", chkSubject},
                                                                 {"raImportance", chkImportance}};
            // Column order as stored; lists and check boxes do not depend on
            // each other, so they are read in two passes.
            for (const auto& [column, list] : lists) {
                const QVariant v = rs->Value(QString::fromLatin1(column));
                if (Present(v)) SelectCode(*list, store::CInt(v));
            }
            for (const auto& [column, box] : checks) {
                const QVariant v = rs->Value(QString::fromLatin1(column));
                // Only 1 means "take it" to the editor, so only 1 shows checked.
                if (Present(v)) box->setChecked(store::CInt(v) == 1);
            }
        }
        rs->Close();
    });
}

bool frmRuleAddProps::UpdateSettings()
{
    bool saved = false;
    Trap("UpdateSettings", [&] {
        ado::Command cmd;
        cmd.SetCommandType(ado::adCmdText);
        cmd.SetCommandText(kUpdate);
        auto add = [&](const char* name, int value) {
            cmd.AppendParameter(
                cmd.CreateParameter(QString::fromLatin1(name), ado::adInteger, ado::adParamInput, 10, value));
        };
        add("raRuleName", cmbRuleName->currentData().toInt());
        add("raFrom", chkFrom->isChecked() ? 1 : 0);
        add("raTo", chkTo->isChecked() ? 1 : 0);
        add("raCc", chkCC->isChecked() ? 1 : 0);
        add("raSubject", chkSubject->isChecked() ? 1 : 0);
        add("raImportance", chkImportance->isChecked() ? 1 : 0);
        add("raStatus", cmbStatus->currentData().toInt());
        add("raMsgAge", cmbMsgAge->currentData().toInt());
        if (!m_db.ExecuteSQL(QString(), &cmd)) {
            m_report.Show(QStringLiteral("Unable to save settings, update failed"));
            return;
        }
        saved = true;
    });
    return saved;
}

void frmRuleAddProps::btnOK_Click()
{
    // The form closes even when the save failed: the failure was reported,
    // and the choices shown were never stored.
    (void)UpdateSettings();
    accept();
}

}  // namespace mv::forms

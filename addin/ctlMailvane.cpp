#include "ctlMailvane.h"

#include "OutAddIn.h"

#include "platform/common/ProgIdRegistry.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace mv::addin {

namespace {

bool NonZero(std::int16_t v)
{
    return v != 0;
}
bool Positive(std::int16_t v)
{
    return v > 0;
}
bool One(std::int16_t v)
{
    return v == 1;
}

// Day numbers as the age windows count them: 1 = Sunday ... 7 = Saturday.
const char* const kDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

}  // namespace

const ctlMailvane::Switch ctlMailvane::kSwitches[] = {
    {"chkToolbar", "Show the Mailvane toolbar", &OutAddIn::Toolbar, &OutAddIn::SetToolbar, NonZero},
    {"chkMenubar", "Show the Mailvane entries in the Tools menu", &OutAddIn::Menubar, &OutAddIn::SetMenubar,
     Positive},
    {"chkRunOnStart", "Run all rules shortly after start-up", &OutAddIn::RunOnStart, &OutAddIn::SetRunOnStart,
     One},
    {"chkStatusPops", "Show the status window while rules run", &OutAddIn::StatusPops,
     &OutAddIn::SetStatusPops, NonZero},
    {"chkAlignTime", "Align message ages to calendar boundaries (end of day, start of week, month, year)",
     &OutAddIn::AlignTime, &OutAddIn::SetAlignTime, One},
};

ctlMailvane::ctlMailvane(OutAddIn& addIn, QWidget* parent) : QWidget(parent), m_addIn(addIn)
{
    setObjectName(QStringLiteral("ctlMailvane"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    m_cmbWeekStart = new QComboBox(this);
    m_cmbWeekStart->setObjectName(QStringLiteral("cmbWeekStart"));
    for (int day = 1; day <= 7; ++day) m_cmbWeekStart->addItem(QString::fromLatin1(kDays[day - 1]), day);
    auto* lblWeekStart = new QLabel(QStringLiteral("&First day of the week:"), this);
    lblWeekStart->setObjectName(QStringLiteral("lblWeekStart"));
    lblWeekStart->setBuddy(m_cmbWeekStart);
    form->addRow(lblWeekStart, m_cmbWeekStart);
    layout->addLayout(form);
    for (const Switch& s : kSwitches) {
        auto* box = new QCheckBox(QString::fromLatin1(s.caption), this);
        box->setObjectName(QString::fromLatin1(s.objectName));
        layout->addWidget(box);
        m_boxes.push_back(box);
    }
    auto* note =
        new QLabel(QStringLiteral("Toolbar and menu changes show the next time Mailvane starts."), this);
    note->setObjectName(QStringLiteral("lblNote"));
    note->setWordWrap(true);
    layout->addWidget(note);
    layout->addStretch(1);

    LoadSettings();
    connect(m_cmbWeekStart, &QComboBox::currentIndexChanged, this, [this] { Changed(); });
    for (QCheckBox* box : m_boxes) connect(box, &QCheckBox::toggled, this, [this] { Changed(); });
}

void ctlMailvane::LoadSettings()
{
    // A stored day outside 1..7 selects nothing and is kept unless a day is chosen.
    m_cmbWeekStart->setCurrentIndex(m_cmbWeekStart->findData(int{m_addIn.WeekStart()}));
    for (std::size_t i = 0; i < m_boxes.size(); ++i)
        m_boxes[i]->setChecked(kSwitches[i].isOn((m_addIn.*kSwitches[i].get)()));
}

void ctlMailvane::Changed()
{
    m_dirty = true;
    if (m_site) m_site();
}

bool ctlMailvane::Apply()
{
    if (m_cmbWeekStart->currentIndex() >= 0)
        m_addIn.SetWeekStart(static_cast<std::int16_t>(m_cmbWeekStart->currentData().toInt()));
    for (std::size_t i = 0; i < m_boxes.size(); ++i) {
        const Switch& s = kSwitches[i];
        const bool on = m_boxes[i]->isChecked();
        if (on != s.isOn((m_addIn.*s.get)())) (m_addIn.*s.set)(on ? 1 : 0);
    }
    const bool saved = m_addIn.SaveSettings();  // a failure is reported by the add-in
    if (saved) m_dirty = false;
    if (m_site) m_site();
    return saved;
}

void RegisterOptionsPage(ProgIdRegistry& progIds, OutAddIn& addIn)
{
    progIds.Register<outlook::PropertyPage>(
        QString::fromLatin1(kOptionsPageProgId), [&addIn]() -> std::unique_ptr<outlook::PropertyPage> {
            if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return nullptr;
            return std::make_unique<ctlMailvane>(addIn);
        });
}

}  // namespace mv::addin

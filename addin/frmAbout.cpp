#include "frmAbout.h"

#include "OutAddIn.h"

#include "platform/logging/Logger.h"
#include "platform/os/MessageBox.h"
#include "platform/os/Registry.h"
#include "platform/os/Shell.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#ifndef MV_VERSION_MAJOR
#error "MV_VERSION_MAJOR/MINOR/PATCH come from the project version in CMake"
#endif

namespace mv::addin {

namespace {

QPushButton* AddButton(QDialogButtonBox* box, const char* text, const char* name,
                       QDialogButtonBox::ButtonRole role)
{
    QPushButton* button = box->addButton(QString::fromLatin1(text), role);
    button->setObjectName(QString::fromLatin1(name));
    return button;
}

}  // namespace

frmAbout::frmAbout(QString installDir, logging::Logger* log, os::MessageBoxAnswerer& answerer,
                   const os::Shell& shell, const os::Registry& registry, QWidget* parent)
    : QDialog(parent),
      m_installDir(std::move(installDir)),
      m_log(log),
      m_answerer(answerer),
      m_shell(shell),
      m_registry(registry)
{
    setObjectName(QStringLiteral("frmAbout"));
    auto* layout = new QVBoxLayout(this);
    auto* lblTitle = new QLabel(QStringLiteral("<b>%1</b>").arg(OutAddIn::AppTitle()), this);
    lblTitle->setObjectName(QStringLiteral("lblTitle"));
    layout->addWidget(lblTitle);
    m_lblVersion = new QLabel(this);
    m_lblVersion->setObjectName(QStringLiteral("lblVersion"));
    layout->addWidget(m_lblVersion);
    auto* lblDescription = new QLabel(QStringLiteral("This Add-in provides Message Automation Rules."), this);
    lblDescription->setObjectName(QStringLiteral("lblDescription"));
    layout->addWidget(lblDescription);
    layout->addSpacing(layout->spacing() * 2);

    auto* buttons = new QDialogButtonBox(this);
    QPushButton* ok = AddButton(buttons, "OK", "btnOK", QDialogButtonBox::AcceptRole);
    QPushButton* sysInfo = AddButton(buttons, "&System Info...", "btnSysInfo", QDialogButtonBox::ActionRole);
    QPushButton* help = AddButton(buttons, "&Help", "btnHelp", QDialogButtonBox::HelpRole);
    ok->setDefault(true);
    layout->addWidget(buttons);
    setMinimumWidth(fontMetrics().averageCharWidth() * 60);
    connect(ok, &QPushButton::clicked, this, [this] { btnOK_Click(); });
    connect(sysInfo, &QPushButton::clicked, this, [this] { btnSysInfo_Click(); });
    connect(help, &QPushButton::clicked, this, [this] { btnHelp_Click(); });
    Form_Load();
}

QString frmAbout::VersionText()
{
    return QStringLiteral("Version %1.%2.%3")
        .arg(MV_VERSION_MAJOR)
        .arg(MV_VERSION_MINOR)
        .arg(MV_VERSION_PATCH);
}

void frmAbout::Form_Load()
{
    setWindowTitle(QStringLiteral("About ") + OutAddIn::AppTitle());
    m_lblVersion->setText(VersionText());
}

void frmAbout::btnOK_Click()
{
    accept();
}

QString frmAbout::FindSystemInfo(const os::Registry& registry)
{
    if (auto path = registry.ReadString(QString::fromLatin1(kMsInfoKey), QStringLiteral("PATH"));
        path && QFileInfo(*path).isFile())
        return *path;
    if (auto dir = registry.ReadString(QString::fromLatin1(kSharedToolsKey), QStringLiteral("MSINFO"))) {
        const QString program = *dir + QStringLiteral("/MSINFO32.EXE");
        if (QFileInfo(program).isFile()) return program;
    }
    return {};
}

void frmAbout::btnSysInfo_Click()
{
    const QString program = FindSystemInfo(m_registry);
    if (program.isEmpty()) {
        m_answerer.Show(QStringLiteral("System Information Is Unavailable At This Time"), os::vbOKOnly,
                        OutAddIn::AppTitle());
        return;
    }
    if (Status started = m_shell.Start(program); !started && m_log)
        m_log->Write(4, QStringLiteral("btnSysInfo_Click"),
                     QStringLiteral("Shell Error: ") + started.error().message);
}

void frmAbout::btnHelp_Click()
{
    // No message box: the About box stays usable and the reason is in the log.
    const Status opened = m_shell.Open(m_installDir + u'/' + QLatin1String(kHelpIndex));
    if (!opened && m_log)
        m_log->Write(4, QStringLiteral("btnHelp_Click"),
                     QStringLiteral("Shell Error: ") + opened.error().message);
}

}  // namespace mv::addin

// The About box: its texts, OK, the help manual and the system-information
// program, with real files, a real registry file and real processes.

#include "addin/frmAbout.h"

#include "tests/addin/AddInFixture.h"

#include "platform/logging/MemoryLogger.h"
#include "platform/os/MessageBox.h"
#include "platform/os/Registry.h"
#include "platform/os/Shell.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

class AboutTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }

    QString Path(const QString& name) const { return m_dir.filePath(name); }
    // An executable that leaves "<itself>.ran" behind when it runs.
    QString MakeProgram(const QString& path)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("#!/bin/sh\ntouch \"$0.ran\"\n");
        f.close();
        f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }
    static bool Ran(const QString& program)
    {
        const QDeadlineTimer deadline(10000);
        while (!deadline.hasExpired()) {
            if (QFile::exists(program + QStringLiteral(".ran"))) return true;
            QCoreApplication::processEvents();
            QThread::msleep(20);
        }
        return false;
    }
    void MakeManual(const QString& installDir)
    {
        ASSERT_TRUE(QDir().mkpath(installDir + QStringLiteral("/help")));
        QFile f(installDir + QStringLiteral("/help/index.html"));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("<html></html>");
    }
    std::unique_ptr<addin::frmAbout> Form(const QString& installDir)
    {
        return std::make_unique<addin::frmAbout>(installDir, &m_log, m_answerer, m_shell, m_registry);
    }
    void Click(QWidget& form, const char* button) { form.findChild<QPushButton*>(button)->click(); }

    QTemporaryDir m_dir;
    logging::MemoryLogger m_log;
    os::ScriptedAnswerer m_answerer;
    os::Shell m_shell{QStringLiteral("/bin/true")};
    os::Registry m_registry{m_dir.filePath(QStringLiteral("registry.ini"))};
};

TEST_F(AboutTest, CaptionVersionAndOk)
{
    auto form = Form(Path("install"));
    EXPECT_EQ(form->windowTitle(), "About Mailvane");
    const QString version = form->findChild<QLabel*>("lblVersion")->text();
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^Version \\d+\\.\\d+\\.\\d+$")).match(version).hasMatch())
        << version.toStdString();
    form->show();
    Click(*form, "btnOK");
    EXPECT_FALSE(form->isVisible());
    EXPECT_EQ(form->result(), QDialog::Accepted);
}

struct HelpCase {
    const char* name;
    bool manual;
    const char* opener;
    bool logged;  // a "Shell Error:" line is expected
};

class AboutHelpTest : public AboutTest, public ::testing::WithParamInterface<HelpCase> {};

TEST_P(AboutHelpTest, HelpOpensTheManualOrLogsWhy)
{
    const HelpCase& c = GetParam();
    const QString install = Path("install");
    QDir().mkpath(install);
    if (c.manual) MakeManual(install);
    m_shell = os::Shell(QString::fromLatin1(c.opener));
    auto form = Form(install);
    Click(*form, "btnHelp");
    EXPECT_TRUE(m_answerer.shown().empty()) << "help failures are only logged";
    if (!c.logged) {
        EXPECT_TRUE(m_log.lines().empty()) << m_log.texts().join(u'|').toStdString();
        return;
    }
    ASSERT_EQ(m_log.lines().size(), 1u);
    EXPECT_EQ(m_log.lines()[0].level, 4);
    EXPECT_EQ(m_log.lines()[0].source, "btnHelp_Click");
    EXPECT_TRUE(m_log.lines()[0].text.startsWith("Shell Error: ")) << m_log.lines()[0].text.toStdString();
    EXPECT_GT(m_log.lines()[0].text.size(), QStringLiteral("Shell Error: ").size()) << "the reason follows";
}

INSTANTIATE_TEST_SUITE_P(frmAbout, AboutHelpTest,
                         ::testing::Values(HelpCase{"ManualOpened", true, "/bin/true", false},
                                           HelpCase{"NoManual", false, "/bin/true", true},
                                           HelpCase{"NoBrowserOpener", true, "/nonexistent/xdg-open", true}),
                         [](const auto& info) { return std::string(info.param.name); });

struct SysInfoCase {
    const char* name;
    const char* pathValue;    // the MSINFO key's PATH, relative to the temp dir; nullptr: not set
    const char* toolsFolder;  // the shared tools' MSINFO folder; nullptr: not set
    const char* programs;     // programs that exist, ';'-separated
    const char* started;      // the one expected to run; "" for the message box
};

class AboutSysInfoTest : public AboutTest, public ::testing::WithParamInterface<SysInfoCase> {};

TEST_P(AboutSysInfoTest, StartsTheRegisteredProgramOrSaysItIsUnavailable)
{
    const SysInfoCase& c = GetParam();
    for (const QString& p : QString::fromLatin1(c.programs).split(u';', Qt::SkipEmptyParts))
        MakeProgram(Path(p));
    if (c.pathValue) {
        ASSERT_TRUE(
            m_registry.WriteString(QString::fromLatin1(addin::kMsInfoKey), "PATH", Path(c.pathValue)));
    }
    if (c.toolsFolder) {
        ASSERT_TRUE(m_registry.WriteString(QString::fromLatin1(addin::kSharedToolsKey), "MSINFO",
                                           Path(c.toolsFolder)));
    }

    auto form = Form(Path("install"));
    Click(*form, "btnSysInfo");
    if (QByteArray(c.started).isEmpty()) {
        ASSERT_EQ(m_answerer.shown().size(), 1u);
        EXPECT_EQ(m_answerer.shown()[0].text, "System Information Is Unavailable At This Time");
        EXPECT_EQ(m_answerer.shown()[0].style & os::kMsgBoxButtonsMask, os::vbOKOnly);
        return;
    }
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
    EXPECT_TRUE(Ran(Path(c.started)));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.texts().join(u'|').toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    frmAbout, AboutSysInfoTest,
    ::testing::Values(SysInfoCase{"NothingRegistered", nullptr, nullptr, "", ""},
                      SysInfoCase{"RegisteredFilesMissing", "bin/sysinfo", "tools", "", ""},
                      SysInfoCase{"PathValue", "bin/sysinfo", nullptr, "bin/sysinfo", "bin/sysinfo"},
                      SysInfoCase{"SharedToolsFolder", nullptr, "tools", "tools/MSINFO32.EXE",
                                  "tools/MSINFO32.EXE"},
                      SysInfoCase{"PathWinsOverFolder", "bin/sysinfo", "tools",
                                  "bin/sysinfo;tools/MSINFO32.EXE", "bin/sysinfo"},
                      SysInfoCase{"MissingPathFallsBackToFolder", "bin/gone", "tools", "tools/MSINFO32.EXE",
                                  "tools/MSINFO32.EXE"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(AddInTest, ShowAboutOpensTheBoxModally)
{
    addin::OutAddIn& addIn = Start();
    QString seen;
    QTimer::singleShot(0, [&] {
        QWidget* box = QApplication::activeModalWidget();
        if (!box) return;
        seen = box->objectName() + u'|' + box->windowTitle();
        box->findChild<QPushButton*>("btnOK")->click();
    });
    addIn.ShowAbout();
    EXPECT_EQ(seen, "frmAbout|About Mailvane");
}

}  // namespace
}  // namespace mv::test

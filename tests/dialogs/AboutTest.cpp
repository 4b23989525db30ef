// The About box over real files, a real registry file and real processes:
// which system-information program it finds, and that Help only logs why
// the manual did not open.

#include "addin/frmAbout.h"

#include "tests/addin/AddInFixture.h"

#include "platform/logging/MemoryLogger.h"
#include "platform/os/MessageBox.h"
#include "platform/os/Registry.h"
#include "platform/os/Shell.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

// An executable at `path` that leaves "<path>.ran" behind when it runs.
void MakeProgram(const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("#!/bin/sh\ntouch \"$0.ran\"\n");
    f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

TEST(AboutTest, SystemInfoIsTheRegisteredPathElseTheSharedToolsProgram)
{
    const struct {
        const char* path;      // the MSINFO key's PATH; nullptr: not set
        const char* folder;    // the shared tools' MSINFO folder; nullptr: not set
        const char* programs;  // files that exist, ';'-separated
        const char* found;     // "": none
    } cases[] = {
        {nullptr, nullptr, "", ""},
        {"bin/sysinfo", "tools", "", ""},
        {"bin/sysinfo", nullptr, "bin/sysinfo", "bin/sysinfo"},
        {nullptr, "tools", "tools/MSINFO32.EXE", "tools/MSINFO32.EXE"},
        {"bin/sysinfo", "tools", "bin/sysinfo;tools/MSINFO32.EXE", "bin/sysinfo"},
        {"bin/gone", "tools", "tools/MSINFO32.EXE", "tools/MSINFO32.EXE"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.programs);
        QTemporaryDir dir;
        os::Registry registry(dir.filePath(QStringLiteral("registry.ini")));
        for (const QString& p : QString::fromLatin1(c.programs).split(u';', Qt::SkipEmptyParts))
            MakeProgram(dir.filePath(p));
        for (const auto& [key, name, value] : {std::tuple{addin::kMsInfoKey, "PATH", c.path},
                                               std::tuple{addin::kSharedToolsKey, "MSINFO", c.folder}}) {
            EXPECT_TRUE(!value || registry.WriteString(QString::fromLatin1(key), name, dir.filePath(value)));
        }
        EXPECT_EQ(addin::frmAbout::FindSystemInfo(registry), *c.found ? dir.filePath(c.found) : QString());
    }
}

TEST(AboutTest, ButtonsStartTheProgramSayItIsMissingOrLogWhyHelpFailed)
{
    QTemporaryDir dir;
    const QString install = dir.filePath(QStringLiteral("install"));
    ASSERT_TRUE(QDir().mkpath(install + QStringLiteral("/help")));
    logging::MemoryLogger log;
    os::ScriptedAnswerer answerer;
    os::Registry registry(dir.filePath(QStringLiteral("registry.ini")));
    const os::Shell opener(QStringLiteral("/bin/true")), noOpener(QStringLiteral("/nonexistent/xdg-open"));
    auto click = [&](const os::Shell& shell, const char* button) {
        addin::frmAbout form(install, &log, answerer, shell, registry);
        EXPECT_EQ(form.windowTitle(), QStringLiteral("About Mailvane"));
        const QString version = form.findChild<QLabel*>(QStringLiteral("lblVersion"))->text();
        EXPECT_TRUE(
            QRegularExpression(QStringLiteral("^Version \\d+\\.\\d+\\.\\d+$")).match(version).hasMatch())
            << version.toStdString();
        form.findChild<QPushButton*>(QLatin1String(button))->click();
        return form.result();
    };
    EXPECT_EQ(click(opener, "btnOK"), QDialog::Accepted);
    click(opener, "btnSysInfo");
    EXPECT_EQ(answerer.texts(), QStringList({"System Information Is Unavailable At This Time"}));
    EXPECT_EQ(answerer.shown()[0].style & os::kMsgBoxButtonsMask, os::vbOKOnly);

    const QString program = dir.filePath(QStringLiteral("bin/sysinfo"));
    MakeProgram(program);
    ASSERT_TRUE(registry.WriteString(QString::fromLatin1(addin::kMsInfoKey), "PATH", program));
    click(opener, "btnSysInfo");
    EXPECT_TRUE(QTest::qWaitFor([&] { return QFile::exists(program + QStringLiteral(".ran")); }, 10000));

    // Help never shows a box: without the manual, or without an opener, the reason is logged.
    click(opener, "btnHelp");
    QFile manual(install + QStringLiteral("/help/index.html"));
    ASSERT_TRUE(manual.open(QIODevice::WriteOnly));
    manual.close();
    click(opener, "btnHelp");
    click(noOpener, "btnHelp");
    EXPECT_EQ(answerer.shown().size(), 1u);
    ASSERT_EQ(log.lines().size(), 2u) << log.texts().join(u'|').toStdString();
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.level, 4);
        EXPECT_EQ(line.source, QStringLiteral("btnHelp_Click"));
        EXPECT_TRUE(line.text.startsWith(QStringLiteral("Shell Error: ")) && line.text.size() > 13)
            << line.text.toStdString();
    }
}

TEST_F(AddInTest, ShowAboutOpensTheBoxModally)
{
    addin::OutAddIn& addIn = Start();
    QString seen;
    QTimer::singleShot(0, [&] {
        QWidget* box = QApplication::activeModalWidget();
        if (!box) return;
        seen = box->objectName() + u'|' + box->windowTitle();
        box->findChild<QPushButton*>(QStringLiteral("btnOK"))->click();
    });
    addIn.ShowAbout();
    EXPECT_EQ(seen, QStringLiteral("frmAbout|About Mailvane"));
}

}  // namespace
}  // namespace mv::test

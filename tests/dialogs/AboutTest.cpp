// The About box over real files, a real registry file and real processes:
// which system-information program it finds, and that Help only logs why
// the manual did not open.

#include "addin/frmAbout.h"

#include "platform/logging/MemoryLogger.h"
#include "platform/os/MessageBox.h"
#include "platform/os/Registry.h"
#include "platform/os/Shell.h"

#include <QDir>
#include <QFile>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace mv::test {

using namespace Qt::StringLiterals;
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
        os::Registry registry(dir.filePath(u"registry.ini"_s));
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
    const QString install = dir.filePath(u"install"_s);
    ASSERT_TRUE(QDir().mkpath(install + u"/help"_s));
    logging::MemoryLogger log;
    os::ScriptedAnswerer answerer;
    os::Registry registry(dir.filePath(u"registry.ini"_s));
    const os::Shell opener(u"/bin/true"_s), noOpener(u"/nonexistent/xdg-open"_s);
    auto click = [&](const os::Shell& shell, const char* button) {
        addin::frmAbout form(install, &log, answerer, shell, registry);
        form.findChild<QPushButton*>(QLatin1String(button))->click();
        return form.result();
    };
    EXPECT_EQ(click(opener, "btnOK"), QDialog::Accepted);
    click(opener, "btnSysInfo");
    EXPECT_EQ(answerer.texts(), QStringList({"System Information Is Unavailable At This Time"}));
    EXPECT_EQ(answerer.shown()[0].style & os::kMsgBoxButtonsMask, os::vbOKOnly);

    const QString program = dir.filePath(u"bin/sysinfo"_s);
    MakeProgram(program);
    ASSERT_TRUE(registry.WriteString(QString::fromLatin1(addin::kMsInfoKey), "PATH", program));
    click(opener, "btnSysInfo");
    EXPECT_TRUE(QTest::qWaitFor([&] { return QFile::exists(program + u".ran"_s); }, 10000));

    // Help never shows a box: without the manual, or without an opener, the reason is logged.
    click(opener, "btnHelp");
    QFile manual(install + u"/help/index.html"_s);
    ASSERT_TRUE(manual.open(QIODevice::WriteOnly));
    manual.close();
    click(opener, "btnHelp");
    click(noOpener, "btnHelp");
    EXPECT_EQ(answerer.shown().size(), 1u);
    ASSERT_EQ(log.lines().size(), 2u) << log.texts().join(u'|').toStdString();
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.level, 4);
        EXPECT_EQ(line.source, u"btnHelp_Click"_s);
        EXPECT_TRUE(line.text.startsWith(u"Shell Error: "_s) && line.text.size() > 13)
            << line.text.toStdString();
    }
}

}  // namespace
}  // namespace mv::test

// What the system gives: known folders from XDG and the install folder,
// time zone biases from TZ, and programs run or opened through the shell.

#include "platform/os/ErrorReport.h"
#include "platform/os/KnownFolders.h"
#include "platform/os/Shell.h"
#include "platform/os/TimeZone.h"
#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <ctime>
#include <optional>

using namespace mv::os;
using mv::ErrorKind;

namespace {

// Sets environment variables and puts them back afterwards; looks at the
// real XDG lookup, not the test-mode folders.
class SystemTest : public ::testing::Test {
protected:
    void SetUp() override { QStandardPaths::setTestModeEnabled(false); }
    void TearDown() override
    {
        for (auto it = saved.rbegin(); it != saved.rend(); ++it) {
            if (it->second) qputenv(it->first, *it->second);
            else qunsetenv(it->first);
        }
        ::tzset();
        QStandardPaths::setTestModeEnabled(true);
    }
    // A null value unsets the variable.
    void Set(const char* name, const char* value)
    {
        saved.emplace_back(name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt);
        if (value) qputenv(name, value);
        else qunsetenv(name);
    }
    void SetPath(const char* name, const QString& value) { Set(name, QFile::encodeName(value).constData()); }
    QString MakeInstall(const QString& name)
    {
        const QString dir = tmp.filePath(name);
        QDir().mkpath(dir + QStringLiteral("/Database"));
        QFile(dir + QLatin1Char('/') + QLatin1String(kTemplateRelPath)).open(QIODevice::WriteOnly);
        return dir;
    }

    std::vector<std::pair<const char*, std::optional<QByteArray>>> saved;
    QTemporaryDir tmp;
    ScriptedAnswerer answerer;
    ErrorReport report{answerer};
};

TEST_F(SystemTest, KnownFoldersFollowXdgHomeAndTmpdir)
{
    SetPath("XDG_DATA_HOME", tmp.path() + QStringLiteral("/data/"));
    SetPath("TMPDIR", tmp.path() + QLatin1Char('/'));
    EXPECT_EQ(DataDir(), tmp.path() + QStringLiteral("/data/Sorquin Software/Mailvane"));
    EXPECT_EQ(GetSpecialFolderLocation(CSIDL_APPDATA, report), tmp.path() + QStringLiteral("/data"));
    EXPECT_EQ(TempPath(), tmp.path());
    Set("XDG_DATA_HOME", nullptr);
    SetPath("HOME", tmp.path());
    EXPECT_EQ(AppDataDir(), tmp.path() + QStringLiteral("/.local/share"));
    EXPECT_TRUE(answerer.shown().empty());

    EXPECT_EQ(GetSpecialFolderLocation(0x7FFF, report), QString());
    ASSERT_EQ(answerer.shown().size(), 1u);
    EXPECT_TRUE(answerer.shown()[0].text.endsWith(QStringLiteral(") in procedure GetSpecialFolderLocation of Module modSpecialFolders")));
}

TEST_F(SystemTest, InstallDirIsTheFirstCandidateHoldingTheTemplate)
{
    const QString empty = tmp.filePath(QStringLiteral("empty"));
    const QString first = MakeInstall(QStringLiteral("first"));
    const QString second = MakeInstall(QStringLiteral("second"));
    EXPECT_EQ(FindInstallDir({empty, first, second}), first);
    EXPECT_EQ(FindInstallDir({second, first}), second);
    // None holds it: the first is named, so the caller's error points there.
    EXPECT_EQ(FindInstallDir({empty, tmp.filePath(QStringLiteral("none"))}), empty);

    SetPath(kInstallDirVariable, second + QLatin1Char('/'));
    const QStringList candidates = InstallDirCandidates();
    ASSERT_EQ(candidates.size(), 3);
    EXPECT_EQ(candidates.front(), second);
    EXPECT_EQ(candidates.last(), QStringLiteral(MV_BINARY_DIR));
    EXPECT_EQ(InstallDir(), second);
}

TEST_F(SystemTest, TimeZoneBiasesAsTheOldApiGaveThem)
{
    const struct {
        const char* tz;
        const char* utc;
        long bias, daylightBias;
        bool hasRule, inDaylight;
        long offset;
    } cases[] = {
        {"America/New_York", "2026-01-15T12:00:00Z", 300, -60, true, false, -18000},
        {"America/New_York", "2026-07-15T12:00:00Z", 300, -60, true, true, -14400},
        {"Europe/Berlin", "2026-11-22T10:00:00Z", -60, -60, true, false, 3600},
        {"Europe/Berlin", "2026-07-15T12:00:00Z", -60, -60, true, true, 7200},
        {"America/Phoenix", "2026-07-15T12:00:00Z", 420, 0, false, false, -25200},
        // POSIX rules: the second either side of spring-forward, the southern
        // hemisphere, a half-hour zone and UTC.
        {"EST5EDT,M3.2.0,M11.1.0", "2026-03-08T06:59:59Z", 300, -60, true, false, -18000},
        {"EST5EDT,M3.2.0,M11.1.0", "2026-03-08T07:00:00Z", 300, -60, true, true, -14400},
        {"AEST-10AEDT,M10.1.0,M4.1.0/3", "2026-01-15T00:00:00Z", -600, -60, true, true, 39600},
        {"<+0530>-5:30", "2026-07-15T12:00:00Z", -330, 0, false, false, 19800},
        {"UTC0", "2026-07-15T12:00:00Z", 0, 0, false, false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.tz) + " at " + c.utc);
        Set("TZ", c.tz);
        const auto info = SystemTimeZone().Information(QDateTime::fromString(QLatin1String(c.utc), Qt::ISODate));
        ASSERT_TRUE(info.has_value());
        EXPECT_EQ((std::vector<long>{info->Bias, info->StandardBias, info->DaylightBias, info->hasDaylightRule,
                                     info->inDaylight, UtcOffsetSeconds(*info)}),
                  (std::vector<long>{c.bias, 0, c.daylightBias, c.hasRule, c.inDaylight, c.offset}));
    }
    // The daylight bias counts only with a rule in force.
    EXPECT_EQ(UtcOffsetSeconds({300, 0, -60, false, true}), -18000);
    EXPECT_EQ(UtcOffsetSeconds({-60, 10, -60, true, false}), 3000);
}

// Opening the manual, found or not, is the About box's test.
TEST_F(SystemTest, ShellOpensUrlsAndRunsPrograms)
{
    const Shell opener(QStringLiteral("true"));
    EXPECT_TRUE(opener.Open(QStringLiteral("https://example.invalid/manual/index.html#rules")).ok());
    EXPECT_FALSE(opener.Open(QStringLiteral("  ")).ok());

    const Shell shell;
    auto done = shell.Run(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("echo out; echo err >&2; exit 3")});
    ASSERT_TRUE(done.ok()) << done.error().message.toStdString();
    EXPECT_EQ(QStringList({QString::number(done->exitCode), done->out, done->err}), QStringList({"3", "out\n", "err\n"}));
    EXPECT_EQ(shell.Run(QStringLiteral("/nonexistent/update")).error().kind, ErrorKind::Permanent);
    // Killed after the timeout; worth trying again later.
    EXPECT_EQ(shell.Run(QStringLiteral("sleep"), {QStringLiteral("30")}, 200).error().kind, ErrorKind::Temporary);
}

}  // namespace

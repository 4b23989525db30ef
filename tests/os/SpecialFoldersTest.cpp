#include "ScopedEnv.h"

#include "platform/os/ErrorReport.h"
#include "platform/os/SpecialFolders.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace mv::os;

namespace {

// Looks at the real XDG lookup, not the test-mode folders.
class SpecialFolders : public ::testing::Test {
protected:
    void SetUp() override { QStandardPaths::setTestModeEnabled(false); }
    void TearDown() override { QStandardPaths::setTestModeEnabled(true); }

    QTemporaryDir tmp;
    ScopedEnv env;
    ScriptedAnswerer answerer;
    ErrorReport report{answerer};
};

TEST_F(SpecialFolders, AppDataHonoursXdgDataHome)
{
    env.Set("XDG_DATA_HOME", QFile::encodeName(tmp.path() + QStringLiteral("/data/")).constData());
    EXPECT_EQ(AppDataDir(), tmp.path() + QStringLiteral("/data"));
    EXPECT_EQ(DataDir(), tmp.path() + QStringLiteral("/data/Sorquin Software/Mailvane"));
    EXPECT_EQ(GetSpecialFolderLocation(CSIDL_APPDATA, report), tmp.path() + QStringLiteral("/data"));
    EXPECT_TRUE(answerer.shown().empty());
}

TEST_F(SpecialFolders, AppDataDefaultsUnderHome)
{
    env.Set("XDG_DATA_HOME", nullptr);
    env.Set("HOME", QFile::encodeName(tmp.path()).constData());
    EXPECT_EQ(AppDataDir(), tmp.path() + QStringLiteral("/.local/share"));
}

TEST_F(SpecialFolders, TempPathHonoursTmpdir)
{
    env.Set("TMPDIR", QFile::encodeName(tmp.path() + QLatin1Char('/')).constData());
    EXPECT_EQ(TempPath(), tmp.path());
}

TEST_F(SpecialFolders, UnknownCsidlIsReportedAndGivesNothing)
{
    EXPECT_EQ(GetSpecialFolderLocation(0x7FFF, report), QString());
    ASSERT_EQ(answerer.shown().size(), 1u);
    EXPECT_TRUE(answerer.shown()[0].text.endsWith(
        QStringLiteral(") in procedure GetSpecialFolderLocation of Module modSpecialFolders")));
    EXPECT_EQ(answerer.shown()[0].title, ErrorReport::Title());
}

void MakeTemplate(const QString& dir)
{
    ASSERT_TRUE(QDir().mkpath(dir + QStringLiteral("/Database")));
    QFile f(dir + QLatin1Char('/') + QLatin1String(kTemplateRelPath));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
}

TEST_F(SpecialFolders, InstallDirIsTheFirstCandidateHoldingTheTemplate)
{
    const QString empty = tmp.filePath(QStringLiteral("empty"));
    const QString first = tmp.filePath(QStringLiteral("first"));
    const QString second = tmp.filePath(QStringLiteral("second"));
    MakeTemplate(first);
    MakeTemplate(second);
    EXPECT_EQ(FindInstallDir({empty, first, second}), first);
    EXPECT_EQ(FindInstallDir({second, first}), second);
    // None holds it: the first place is named, so the caller's error points there.
    EXPECT_EQ(FindInstallDir({empty, tmp.filePath(QStringLiteral("none"))}), empty);
    EXPECT_EQ(FindInstallDir({}), QString());
}

TEST_F(SpecialFolders, InstallDirVariableComesFirst)
{
    const QString installed = tmp.filePath(QStringLiteral("share/mailvane"));
    MakeTemplate(installed);
    env.Set(kInstallDirVariable, QFile::encodeName(installed + QLatin1Char('/')).constData());
    const QStringList candidates = InstallDirCandidates();
    ASSERT_GE(candidates.size(), 3);
    EXPECT_EQ(candidates.front(), installed);
    EXPECT_EQ(candidates.last(), QStringLiteral(MV_BINARY_DIR));
    EXPECT_EQ(InstallDir(), installed);
}

}  // namespace

#include "ScopedEnv.h"

#include "platform/os/ErrorReport.h"
#include "platform/os/KnownFolders.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace mv::os;

namespace {

// Looks at the real XDG lookup, not the test-mode folders.
class KnownFolders : public ::testing::Test {
protected:
    void SetUp() override { QStandardPaths::setTestModeEnabled(false); }
    void TearDown() override { QStandardPaths::setTestModeEnabled(true); }
    void SetPath(const char* var, const QString& value) { env.Set(var, QFile::encodeName(value).constData()); }
    QString MakeInstall(const QString& name)
    {
        const QString dir = tmp.filePath(name);
        QDir().mkpath(dir + QStringLiteral("/Database"));
        QFile(dir + QLatin1Char('/') + QLatin1String(kTemplateRelPath)).open(QIODevice::WriteOnly);
        return dir;
    }

    QTemporaryDir tmp;
    ScopedEnv env;
    ScriptedAnswerer answerer;
    ErrorReport report{answerer};
};

TEST_F(KnownFolders, FollowXdgHomeAndTmpdir)
{
    SetPath("XDG_DATA_HOME", tmp.path() + QStringLiteral("/data/"));
    SetPath("TMPDIR", tmp.path() + QLatin1Char('/'));
    EXPECT_EQ(DataDir(), tmp.path() + QStringLiteral("/data/Sorquin Software/Mailvane"));
    EXPECT_EQ(GetSpecialFolderLocation(CSIDL_APPDATA, report), tmp.path() + QStringLiteral("/data"));
    EXPECT_EQ(TempPath(), tmp.path());

    env.Set("XDG_DATA_HOME", nullptr);
    SetPath("HOME", tmp.path());
    EXPECT_EQ(AppDataDir(), tmp.path() + QStringLiteral("/.local/share"));
    EXPECT_TRUE(answerer.shown().empty());
}

TEST_F(KnownFolders, UnknownCsidlIsReportedAndGivesNothing)
{
    EXPECT_EQ(GetSpecialFolderLocation(0x7FFF, report), QString());
    ASSERT_EQ(answerer.shown().size(), 1u);
    EXPECT_TRUE(answerer.shown()[0].text.endsWith(
        QStringLiteral(") in procedure GetSpecialFolderLocation of Module modSpecialFolders")));
}

TEST_F(KnownFolders, InstallDirIsTheFirstCandidateHoldingTheTemplate)
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

}  // namespace

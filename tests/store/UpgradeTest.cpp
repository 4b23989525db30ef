// The schema upgrade chain on real files of every older release, one start
// of the add-in at a time.

#include "StoreFixture.h"

#include "addin/OutAddIn.h"
#include "platform/os/Clock.h"

#include <QRegularExpression>

namespace mv::test {
namespace {

class UpgradeTest : public StoreTest {
protected:
    // One start of the add-in's database side; returns the reports it made.
    QStringList Start(const QString& path)
    {
        m_answerer.clear();
        addin::OutAddIn addIn(m_report, nullptr, m_progIds, m_clock, m_dir.path());
        EXPECT_TRUE(addIn.OpenDatabases(path));
        return Reports();
    }
    static QString Version(const QString& path) { return Query(path, QStringLiteral("SELECT version FROM Settings")); }
    static QString RuleRows(const QString& path)
    {
        return Query(path, QStringLiteral("SELECT RuleID, RuleName, FromAddress, ToAddress, CcAddress, Subject, "
                                          "Importance, Status, FlagStatus, MsgAgeID, SrcEntryID, SrcStoreID, "
                                          "DstEntryID, DstStoreID, Active, SortID FROM Rules ORDER BY RuleID"));
    }
    static QString MsgAgeIds(const QString& path)
    {
        return Query(path, QStringLiteral("SELECT group_concat(MsgAgeID) FROM MsgAge"));
    }
    static QString Everything(const QString& path)
    {
        return Columns(path, QStringLiteral("Rules")) + u'\n' + Columns(path, QStringLiteral("Settings")) + u'\n' +
               Query(path, QStringLiteral("SELECT * FROM Rules")) + u'\n' +
               Query(path, QStringLiteral("SELECT * FROM Settings")) + u'\n' +
               Query(path, QStringLiteral("SELECT * FROM MsgAge"));
    }

    os::FakeClock m_clock;
};

const char* const kLoadSettingsLabel = "in procedure LoadSettings of Class Module OutAddIn";

TEST_F(UpgradeTest, OldestFileNeedsThreeStartsAndKeepsItsRules)
{
    const QString path = CopyDatabase(QStringLiteral("v100"));
    const QString rules = RuleRows(path);

    // First start: 1.1.0 .. 1.4.0. A 1.4.0 file has no alignTime yet, so
    // loading the settings reports that one missing field.
    const QStringList first = Start(path);
    ASSERT_EQ(first.size(), 1) << first.join(u'\n').toStdString();
    EXPECT_TRUE(first.first().endsWith(QLatin1String(kLoadSettingsLabel)));
    EXPECT_EQ(Version(path), QStringLiteral("1.4.0"));
    EXPECT_EQ(Query(path, QStringLiteral("SELECT raRuleName, raFrom, raTo, raCc, raSubject, raImportance, raStatus, "
                                         "raMsgAge, statusPopups FROM Settings")),
              QStringLiteral("0|1|1|0|1|1|1|1|1"));
    EXPECT_EQ(Query(path, QStringLiteral("SELECT WeekStart, toolbar, menubar, runOnStart, tbTop, tbLeft, tbRow, "
                                         "tbPos, init FROM Settings")),
              QStringLiteral("1|1|0|1|120|340|2|1|1"))
        << "the user's own settings survive";
    EXPECT_EQ(MsgAgeIds(path), QStringLiteral("1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17"));
    EXPECT_EQ(Columns(path, QStringLiteral("Rules")),
              Columns(BuiltDatabase(QStringLiteral("v140")), QStringLiteral("Rules")))
        << "address and subject columns are long text, LastVerb and Message added, order kept";
    EXPECT_EQ(RuleRows(path), rules);
    EXPECT_EQ(Query(path, QStringLiteral("SELECT group_concat(LastVerb || '[' || Message || ']') FROM Rules")),
              QStringLiteral("0[],0[],0[]"));

    // Second start: 1.5.0.
    EXPECT_TRUE(Start(path).isEmpty());
    EXPECT_EQ(Query(path, QStringLiteral("SELECT version, alignTime FROM Settings")), QStringLiteral("1.5.0|1"));
    EXPECT_EQ(Query(path, QStringLiteral("SELECT group_concat(MsgAgeID || timeField || timeDiff, ' ') FROM MsgAge "
                                         "WHERE MsgAgeID > 17")),
              QStringLiteral("18m-6 19yyyy-1 20yyyy-2"));

    // Third start: 1.8.0 and nothing else changes; a fourth changes nothing.
    QString before = Everything(path);
    EXPECT_TRUE(Start(path).isEmpty());
    EXPECT_EQ(Version(path), QStringLiteral("1.8.0"));
    EXPECT_EQ(Everything(path), before.replace(QLatin1String("1.5.0"), QLatin1String("1.8.0")));
    const QString settled = Everything(path);
    EXPECT_TRUE(Start(path).isEmpty());
    EXPECT_EQ(Everything(path), settled);
    EXPECT_EQ(RuleRows(path), rules);
}

struct OneStartCase {
    const char* fixture;
    const char* versionAfter;
    const char* msgAgeAfter;
    bool loadSettingsFails;  // a file below 1.5.0 has no alignTime to load
};

class UpgradeOneStartTest : public UpgradeTest, public ::testing::WithParamInterface<OneStartCase> {};

TEST_P(UpgradeOneStartTest, MovesToItsNextStop)
{
    const auto& c = GetParam();
    const QString path = CopyDatabase(QString::fromLatin1(c.fixture));
    const QString rules = RuleRows(path);
    const QStringList reports = Start(path);
    EXPECT_EQ(Version(path), QString::fromLatin1(c.versionAfter));
    EXPECT_EQ(MsgAgeIds(path), QString::fromLatin1(c.msgAgeAfter));
    EXPECT_EQ(RuleRows(path), rules);
    if (c.loadSettingsFails) {
        ASSERT_EQ(reports.size(), 1);
        EXPECT_TRUE(reports.first().endsWith(QLatin1String(kLoadSettingsLabel)));
    } else {
        EXPECT_TRUE(reports.isEmpty()) << reports.join(u'\n').toStdString();
    }
    if (QString::fromLatin1(c.versionAfter) == QLatin1String("1.4.0")) {
        EXPECT_EQ(Query(path, QStringLiteral("SELECT count(*) FROM Rules WHERE LastVerb = 0 AND Message = ''")),
                  QStringLiteral("3"));
    }
}

const char* const k17 = "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17";
const char* const k20 = "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20";

INSTANTIATE_TEST_SUITE_P(
    Releases, UpgradeOneStartTest,
    ::testing::Values(OneStartCase{"v100", "1.4.0", k17, true}, OneStartCase{"v110", "1.4.0", k17, true},
                      OneStartCase{"v120", "1.4.0", k17, true}, OneStartCase{"v130", "1.4.0", k17, true},
                      OneStartCase{"v140", "1.5.0", k20, false}, OneStartCase{"v150", "1.8.0", k20, false},
                      OneStartCase{"template", "1.8.0", k20, false}),
    [](const auto& info) { return std::string(info.param.fixture); });

TEST_F(UpgradeTest, UnknownVersionIsLeftUntouched)
{
    const QString path = CopyDatabase(QStringLiteral("v140"));
    {
        auto db = Open(path);
        ASSERT_TRUE(db->ExecuteSQL(QStringLiteral("UPDATE [settings] SET version='2.0.0-beta'")));
    }
    const QString before = Everything(path);
    addin::OutAddIn addIn(m_report, nullptr, m_progIds, m_clock, m_dir.path());
    ASSERT_TRUE(addIn.OpenDatabases(path));
    EXPECT_EQ(Everything(path), before);
}

TEST_F(UpgradeTest, StepThatFailsFirstKeepsNothingOfItselfAndTheChainGoesOn)
{
    // A 1.0.0 file whose Settings already has the Smart Add columns.
    const QString path = CopyDatabase(QStringLiteral("v100_ra"));
    const QString rules = RuleRows(path);
    addin::OutAddIn addIn(m_report, nullptr, m_progIds, m_clock, m_dir.path());
    ASSERT_TRUE(addIn.OpenDatabases(path));

    const QStringList reports = Reports();
    ASSERT_GE(reports.size(), 2) << reports.join(u'\n').toStdString();
    EXPECT_TRUE(reports.at(0).endsWith(QLatin1String("in procedure ExecuteSQL, Contact Sorquin Support")));
    EXPECT_TRUE(reports.at(1).startsWith(QLatin1String("Error ")));
    EXPECT_TRUE(reports.at(1).endsWith(QLatin1String("in procedure UpgradeTo110")));
    // Same error, reported under the step's own name.
    EXPECT_EQ(reports.at(0).section(QLatin1String(" in procedure "), 0, 0),
              reports.at(1).section(QLatin1String(" in procedure "), 0, 0));
    EXPECT_TRUE(reports.filter(QRegularExpression(QStringLiteral("UpgradeTo1[2-4]0$"))).isEmpty());

    EXPECT_EQ(MsgAgeIds(path), QStringLiteral("1,2,3,4,5,6,7,8,9,10,11,12"));
    EXPECT_EQ(Version(path), QStringLiteral("1.4.0"));
    EXPECT_EQ(Query(path, QStringLiteral("SELECT raRuleName, raMsgAge FROM Settings")), QStringLiteral("2|6"))
        << "the defaults of the failed step were never written";
    EXPECT_EQ(RuleRows(path), rules);
}

TEST_F(UpgradeTest, RerunOfAHalfAppliedStepFailsAgainAtItsFirstStatement)
{
    const QString path = CopyDatabase(QStringLiteral("v150"));
    {
        auto db = Open(path);
        ASSERT_TRUE(db->ExecuteSQL(QStringLiteral("UPDATE [settings] SET version='1.4.0'")));
    }
    addin::OutAddIn addIn(m_report, nullptr, m_progIds, m_clock, m_dir.path());
    ASSERT_TRUE(addIn.OpenDatabases(path));
    EXPECT_EQ(Version(path), QStringLiteral("1.4.0"));
    EXPECT_EQ(MsgAgeIds(path), QString::fromLatin1(k20));
    ASSERT_EQ(Reports().size(), 2);
    EXPECT_TRUE(Reports().at(1).endsWith(QLatin1String("in procedure UpgradeTo150")));
}

}  // namespace
}  // namespace mv::test

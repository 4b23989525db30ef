// The schema upgrade chain on real files of every older release, one start
// of the add-in at a time.

#include "StoreFixture.h"

#include "addin/OutAddIn.h"
#include "platform/os/Clock.h"

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
    static QString RuleRows(const QString& path)
    {
        return Query(path, QStringLiteral("SELECT RuleID, RuleName, FromAddress, ToAddress, CcAddress, Subject, "
                                          "Importance, Status, FlagStatus, MsgAgeID, SrcEntryID, SrcStoreID, "
                                          "DstEntryID, DstStoreID, Active, SortID FROM Rules ORDER BY RuleID"));
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

TEST_F(UpgradeTest, EachReleaseMovesToItsNextStopInOneStartAndKeepsItsRules)
{
    // The age windows after the twelve of 1.0.0.
    const char* const k12 = "";
    const char* const k17 = "13x0 14n-15 15d-3 16d-4 17d-5";
    const char* const k20 = "13x0 14n-15 15d-3 16d-4 17d-5 18m-6 19yyyy-1 20yyyy-2";
    const char* const kLoad = "LoadSettings of Class Module OutAddIn";  // no alignTime below 1.5.0
    const char* const kExec = "ExecuteSQL, Contact Sorquin Support";
    const struct {
        const char* name;
        const char* release;
        const char* prepare;  // SQL run on the file first, or nullptr
        const char* versionAfter;
        const char* msgAgeAfter;
        std::vector<const char*> reports;  // the procedure each report names, in order
    } cases[] = {
        {"v100", "v100", nullptr, "1.4.0", k17, {kLoad}},
        {"v110", "v110", nullptr, "1.4.0", k17, {kLoad}},
        {"v120", "v120", nullptr, "1.4.0", k17, {kLoad}},
        {"v130", "v130", nullptr, "1.4.0", k17, {kLoad}},
        {"v140", "v140", nullptr, "1.5.0", k20, {}},
        {"v150", "v150", nullptr, "1.8.0", k20, {}},
        {"untouched current", "template", nullptr, "1.8.0", k20, {}},
        {"untouched unknown version", "v150", "UPDATE [settings] SET version='2.0.0-beta'", "2.0.0-beta", k20, {}},
        // A 1.0.0 file that already has the Smart Add columns: the first step
        // fails at once and adds no MsgAge rows; the next steps still run.
        {"smart add columns present", "v100_ra", nullptr, "1.4.0", k12, {kExec, "UpgradeTo110", kLoad}},
        // Re-running a step whose first ADD already happened fails again there.
        {"rerun of applied step", "v150", "UPDATE [settings] SET version='1.4.0'", "1.4.0", k20, {kExec, "UpgradeTo150"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = CopyDatabase(QString::fromLatin1(c.release), QString::fromLatin1(c.name) + QStringLiteral(".mdb"));
        if (c.prepare) {
            ASSERT_TRUE(Open(path)->ExecuteSQL(QString::fromLatin1(c.prepare)));
        }
        const QString rules = RuleRows(path);
        QString before = Everything(path);
        const QStringList reports = Start(path);
        EXPECT_EQ(Query(path, QStringLiteral("SELECT version FROM Settings")), QString::fromLatin1(c.versionAfter));
        EXPECT_EQ(Query(path, QStringLiteral("SELECT coalesce(group_concat(MsgAgeID || timeField || timeDiff, ' '), '') "
                                             "FROM MsgAge WHERE MsgAgeID > 12")),
                  QString::fromLatin1(c.msgAgeAfter));
        EXPECT_EQ(RuleRows(path), rules);
        ASSERT_EQ(static_cast<size_t>(reports.size()), c.reports.size()) << reports.join(u'\n').toStdString();
        for (int i = 0; i < reports.size(); ++i) {
            EXPECT_TRUE(reports.at(i).startsWith(QLatin1String("Error ")));
            EXPECT_TRUE(reports.at(i).endsWith(QLatin1String(" in procedure ") + QLatin1String(c.reports[i])))
                << reports.at(i).toStdString();
            // A step reports the error of its failed statement under its own name.
            if (i > 0 && QByteArray(c.reports[i - 1]).startsWith("ExecuteSQL")) {
                EXPECT_EQ(reports.at(i).section(QLatin1String(" in procedure "), 0, 0),
                          reports.at(i - 1).section(QLatin1String(" in procedure "), 0, 0));
            }
        }
        if (QByteArray(c.versionAfter) == "1.4.0" && !c.prepare) {
            EXPECT_EQ(Query(path, QStringLiteral("SELECT count(*) FROM Rules WHERE LastVerb = 0 AND Message = ''")),
                      QStringLiteral("3"));
        }
        // The last step only sets the version; a current file is left alone.
        if (QByteArray(c.versionAfter) == "1.8.0" || QByteArray(c.name).startsWith("untouched")) {
            EXPECT_EQ(Everything(path), before.replace(QLatin1String("1.5.0"), QLatin1String("1.8.0")));
        }
    }
}

TEST_F(UpgradeTest, OldestFileKeepsItsSettingsAndTakesTheNewLayout)
{
    const QString path = CopyDatabase(QStringLiteral("v100"));
    Start(path);
    EXPECT_EQ(Query(path, QStringLiteral("SELECT raRuleName, raFrom, raTo, raCc, raSubject, raImportance, raStatus, "
                                         "raMsgAge, statusPopups FROM Settings")),
              QStringLiteral("0|1|1|0|1|1|1|1|1"));
    EXPECT_EQ(Query(path, QStringLiteral("SELECT WeekStart, toolbar, menubar, runOnStart, tbTop, tbLeft, tbRow, "
                                         "tbPos, init FROM Settings")),
              QStringLiteral("1|1|0|1|120|340|2|1|1"))
        << "the user's own settings survive";
    EXPECT_EQ(Columns(path, QStringLiteral("Rules")),
              Columns(BuiltDatabase(QStringLiteral("v140")), QStringLiteral("Rules")))
        << "address and subject columns are long text, LastVerb and Message added, order kept";
    EXPECT_TRUE(Start(path).isEmpty());
    EXPECT_EQ(Query(path, QStringLiteral("SELECT version, alignTime FROM Settings")), QStringLiteral("1.5.0|1"));
}

}  // namespace
}  // namespace mv::test

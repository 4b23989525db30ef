// Rules of another tool through the mailvane program: translated, listed
// with what did not map, appended by the ordinary import, and then moving
// mail on a Maildir profile.

#include "E2eSupport.h"

#include <QFile>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

TEST(Import, SieveRulesMoveMailAndReportWhatDidNotMap)
{
    World world({.local = true, .server = false, .hideCapabilities = {}});
    ASSERT_EQ(world.Start(), QString());
    const QString script = world.Path(QStringLiteral("rules.sieve"));
    QFile f(script);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(R"(require "fileinto";
if address :contains "from" ["boss@corp.example", "ceo@corp.example"] { fileinto "Work/Boss"; stop; }
if allof (header :contains "subject" "sale", exists "list-id") { fileinto "Ads"; }
if header :contains "subject" "x" { discard; }
)");
    f.close();
    world.Write(QString(), {.id = QStringLiteral("boss@e2e"),
                            .subject = QStringLiteral("Plan"),
                            .from = QStringLiteral("Boss <boss@corp.example>")});
    world.Write(QString(), {.id = QStringLiteral("sale@e2e"), .subject = QStringLiteral("Big sale")});

    Result r =
        world.Run({QStringLiteral("import"), QStringLiteral("--from"), QStringLiteral("sieve"), script});
    EXPECT_EQ(r.code, 1) << r.err.toStdString();
    for (const char* printed :
         {"Work/Boss (sieve line 2)", "Ads (sieve line 3)  (off)",
          "not mapped: the folder \"Work/Boss\" does not exist", "not mapped: line 3: exists \"list-id\"",
          "not mapped: line 4: if block without fileinto", "Folders missing in",
          "2 rule(s) imported, 2 of them switched off; 4 part(s) did not map"})
        EXPECT_TRUE(r.out.contains(QLatin1String(printed))) << printed << "\n" << r.out.toStdString();

    r = world.Run({QStringLiteral("import"), QStringLiteral("--from"), QStringLiteral("sieve"), script,
                   QStringLiteral("--create-folders")});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.out.contains(QStringLiteral("Folders created in"))) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains(QStringLiteral("2 rule(s) imported, 1 of them switched off")))
        << r.out.toStdString();

    r = world.Run({QStringLiteral("run")});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(world.Ids(QStringLiteral("Work/Boss")), QStringList{QStringLiteral("boss@e2e")});
    EXPECT_EQ(world.Ids(QStringLiteral("Inbox")), QStringList{QStringLiteral("sale@e2e")});

    // A file the format does not fit is refused with its reason, adding nothing.
    const QString before = world.Run({QStringLiteral("rules")}).out;
    r = world.Run({QStringLiteral("import"), QStringLiteral("--from"), QStringLiteral("mdb"), script});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains(QStringLiteral("is not a Jet database"))) << r.err.toStdString();
    EXPECT_EQ(world.Run({QStringLiteral("rules")}).out, before);
}

}  // namespace
}  // namespace mv::e2e

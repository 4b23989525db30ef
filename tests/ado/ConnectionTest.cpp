// Opening files that are not ours, locked or read-only, the connection
// string, and the errors a caller sees from Execute.

#include "AdoTestDb.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include <gtest/gtest.h>

namespace mv::ado::test {
namespace {

void Write(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

TEST(ConnectionTest, FilesThatAreNotOursAreRefusedClearlyAndLeftAsTheyWere)
{
    QByteArray jet("\x00\x01\x00\x00Standard Jet DB\x00\x01\x00\x00\x00", 24);
    jet.append(4096 - jet.size(), '\x5a');
    QByteArray damaged("SQLite format 3\0", 16);
    damaged.append(4080, '\xff');
    const struct {
        const char* name;
        std::function<void(const QString& path)> make;  // nothing made: the file is missing
        const char* says;
    } cases[] = {
        {"missing", nullptr, "Could not find file"},
        {"Jet file", [&](const QString& p) { Write(p, jet); }, "not a Mailvane (SQLite) database (it is a Jet"},
        {"empty file", [](const QString& p) { Write(p, QByteArray()); }, "not a Mailvane (SQLite) database (the file is empty)"},
        {"text file", [](const QString& p) { Write(p, "RuleName;From\nnews;a@b\n"); }, "not a Mailvane (SQLite) database"},
        {"folder", [](const QString& p) { QDir().mkpath(p); }, "not a file"},
        {"damaged SQLite", [&](const QString& p) { Write(p, damaged); }, "not a Mailvane (SQLite) database or is damaged"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("mv.mdb"));
        if (c.make) c.make(path);
        const bool existed = QFileInfo::exists(path);
        const QByteArray before = ReadBytes(path);
        Connection conn;
        try {
            conn.Open(JetConnectionString(path), QString(), QString(), -1);
            ADD_FAILURE() << "opened";
        } catch (const AdoError& e) {
            EXPECT_TRUE(e.Description().contains(QLatin1String(c.says))) << e.Description().toStdString();
            EXPECT_EQ(e.Source(), kProviderSource);
            EXPECT_FALSE(e.IsTemporary());
        }
        EXPECT_EQ(conn.State(), adStateClosed);
        EXPECT_EQ(QFileInfo::exists(path), existed);
        EXPECT_EQ(ReadBytes(path), before);
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).size(),
                  existed ? 1 : 0);  // no journal left
    }
}

TEST(ConnectionTest, DataSourceIsFoundInEveryStringLayout)
{
    const std::pair<const char*, const char*> cases[] = {
        {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=/home/u/mv.mdb;Jet OLEDB:Database Password=;Jet OLEDB:Engine Type=5;", "/home/u/mv.mdb"},
        {"Driver={Microsoft Access Driver (*.mdb)};DBQ=/home/u/mv.mdb;DefaultDir=/opt/;UID=admin;PWD=;", "/home/u/mv.mdb"},
        {" data source = /a b/mv.mdb ;", "/a b/mv.mdb"},
        {"Data Source=\"/a;b/mv.mdb\";Jet OLEDB:Engine Type=5;", "/a;b/mv.mdb"},
        {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=C:\\x\\mv.mdb;", "C:\\x\\mv.mdb"},
        {"Provider=Microsoft.Jet.OLEDB.4.0;Jet OLEDB:Engine Type=5;", ""},
    };
    for (const auto& [string, source] : cases)
        EXPECT_EQ(Connection::DataSourceOf(QString::fromUtf8(string)), QString::fromUtf8(source)) << string;
}

TEST(ConnectionTest, OpenKeepsTheConnectionStringAndNeedsADataSource)
{
    AdoTestDb db;
    EXPECT_EQ(db.connection.ConnectionString(), JetConnectionString(db.path));
    EXPECT_EQ(db.connection.DataSource(), db.path);
    EXPECT_THROW(db.connection.Open(), AdoError);  // already open
    db.connection.Close();
    db.connection.Close();  // harmless
    db.connection.Open();   // reopens with the stored string
    EXPECT_EQ(db.connection.State(), adStateOpen);

    Connection none;
    EXPECT_THROW(none.Open(QStringLiteral("Provider=Microsoft.Jet.OLEDB.4.0;")), AdoError);
    EXPECT_THROW(Connection::CreateDatabase(db.path), AdoError);  // never over an existing file

    // A command needs an open connection.
    Command cmd;
    cmd.SetCommandText(QStringLiteral("SELECT 1"));
    try {
        cmd.Execute();
        FAIL();
    } catch (const AdoError& e) {
        EXPECT_EQ(e.Number(), kErrInvalidConnection);
    }
    db.connection.Close();
    EXPECT_THROW(db.connection.Execute(QStringLiteral("SELECT 1")), AdoError);
    cmd.SetActiveConnection(&db.connection);
    EXPECT_THROW(cmd.Execute(), AdoError);
}

// Another program's locks: an exclusive one fails the open after the busy
// wait, a write lock fails writes and rebuilds while reads go on; each as a
// temporary error that writes nothing and leaves nothing locked behind.
TEST(LockTest, LocksFailAsTemporaryErrorsAndLeaveNothingBehind)
{
    AdoTestDb db(QStringLiteral("v100"));
    db.connection.Close();
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open_v2(db.path.toUtf8().constData(), &other, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> closeOther(other, sqlite3_close_v2);
    const auto hold = [&](const char* how) {
        ASSERT_EQ(sqlite3_exec(other, how, nullptr, nullptr, nullptr), SQLITE_OK);
    };
    const QByteArray before = ReadBytes(db.path);
    const auto expectTemporary = [&](const std::function<void()>& run, const QString& says) {
        try {
            run();
            ADD_FAILURE() << "ran through a lock: " << says.toStdString();
        } catch (const AdoError& e) {
            EXPECT_TRUE(e.IsTemporary()) << e.Description().toStdString();
            EXPECT_TRUE(e.Description().contains(says)) << e.Description().toStdString();
        }
        EXPECT_EQ(ReadBytes(db.path), before);
    };

    hold("BEGIN EXCLUSIVE");
    Connection c;
    c.SetBusyTimeout(300);
    QElapsedTimer timer;
    timer.start();
    expectTemporary([&] { c.Open(JetConnectionString(db.path)); }, QStringLiteral("locked"));
    EXPECT_GE(timer.elapsed(), 250);
    hold("ROLLBACK");
    EXPECT_NO_THROW(c.Open(JetConnectionString(db.path)));

    db.connection.SetBusyTimeout(100);
    db.connection.Open();
    hold("BEGIN IMMEDIATE");
    EXPECT_EQ(db.connection.Execute(QStringLiteral("SELECT version From Settings"))->Fields(0).Value().toString(),
              QStringLiteral("1.0.0"));
    const QString update = QStringLiteral("UPDATE [settings] SET version='1.2.0'");
    const QString rebuild = QStringLiteral("ALTER TABLE [Rules] ALTER COLUMN FromAddress Memo");
    expectTemporary([&] { db.connection.Execute(update, adExecuteNoRecords); }, QStringLiteral("UPDATE [settings]"));
    expectTemporary([&] { db.connection.Execute(rebuild, adExecuteNoRecords); }, QString());
    hold("ROLLBACK");
    EXPECT_NO_THROW(db.connection.Execute(update, adExecuteNoRecords));
    db.connection.Execute(rebuild);
    EXPECT_EQ(db.connection.Execute(QStringLiteral("SELECT FromAddress FROM Rules"))->Fields(0).Type(), adLongVarWChar);
}

// Runs `body` where file permissions count: as "nobody" in a child process
// when the test runs as root (root may write anything), else in place.
int AsUnprivileged(const std::function<int()>& body)
{
    if (geteuid() != 0) return body();
    const pid_t pid = fork();
    if (pid == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(100);
        _exit(body());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 101;
}

TEST(ReadOnlyTest, FileOrFolderIsRefusedAtOpenAndUnchanged)
{
    const auto readAll = QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther;
    const auto writeAll = QFile::WriteOwner | QFile::WriteGroup | QFile::WriteOther;
    const auto exeAll = QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    const struct {
        const char* name;
        QFile::Permissions file, folder;
    } cases[] = {{"read-only file", readAll, readAll | writeAll}, {"read-only folder", readAll | writeAll, readAll}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AdoTestDb db(QStringLiteral("v100"));
        db.connection.Close();
        const QByteArray before = ReadBytes(db.path);
        ASSERT_TRUE(QFile::setPermissions(db.path, c.file));
        ASSERT_TRUE(QFile::setPermissions(db.dir.path(), c.folder | exeAll));
        const QString path = db.path;
        EXPECT_EQ(AsUnprivileged([path] {
                      Connection conn;
                      try {
                          conn.Open(JetConnectionString(path));
                          return 1;
                      } catch (const AdoError& e) {
                          return e.Number() == kErrReadOnly && e.Description().contains(QLatin1String("Check the")) ? 0 : 2;
                      }
                  }),
                  0);
        QFile::setPermissions(db.dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        EXPECT_EQ(ReadBytes(db.path), before);
    }
}

TEST(ExecuteErrorTest, NamesTheProblemAndTheStatementAndWritesNothing)
{
    const struct {
        const char* sql;
        int parameters;  // integer parameters bound
        const char* value;
        long number;
        const char* says;
    } cases[] = {
        {"UPDATE [Settings] SET [WeekStart]=?, [toolbar]=?", 1, "5", kErrParameterCount, "2 \"?\" placeholders but 1"},
        {"UPDATE [Settings] SET [WeekStart]=?", 2, "5", kErrParameterCount, "1 \"?\" placeholders but 2"},
        {"UPDATE [Settings] SET [WeekStart]=?", 1, "Monday", kErrTypeMismatch, "'Monday' is not a number"},
        {"UPDATE [Settings] SET [WeekStart]=?", 1, "32768", kErrTypeMismatch, "overflow"},
        {"UPDATE [Settings] SET [WeekBegin]=3", 0, "", kErrSyntax, "no such column: WeekBegin"},
        {"UPDATE [Rules] SET RuleName='O'Brien' WHERE RuleID=1", 0, "", kErrSyntax, "Brien"},
        {"UPDATE [Settings] SET WeekStart=3; DELETE FROM Rules", 0, "", kErrSyntax, "after end of SQL statement"},
        {"ALTER TABLE [settings] ADD WeekStart integer", 0, "", kErrSyntax, "duplicate column name"},
    };
    AdoTestDb db(QStringLiteral("v100"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.sql);
        Command cmd;
        cmd.SetActiveConnection(&db.connection);
        cmd.SetCommandText(QString::fromUtf8(c.sql));
        for (int i = 0; i < c.parameters; ++i)
            cmd.AppendParameter(cmd.CreateParameter(QStringLiteral("p"), i == 0 ? adSmallInt : adInteger,
                                                    adParamInput, 10, QString::fromUtf8(c.value)));
        try {
            cmd.Execute(adExecuteNoRecords);
            ADD_FAILURE() << "no error";
        } catch (const AdoError& e) {
            EXPECT_EQ(e.Number(), c.number) << e.Description().toStdString();
            EXPECT_TRUE(e.Description().contains(QLatin1String(c.says))) << e.Description().toStdString();
            EXPECT_FALSE(e.IsTemporary());
        }
        EXPECT_EQ(db.Open(QStringLiteral("SELECT * From Settings"))->Value(QStringLiteral("WeekStart")).toInt(), 1);
        EXPECT_EQ(db.Open(QStringLiteral("SELECT * From Rules"))->RecordCount(), 3);
    }
}

TEST(ConnectionTest, IdentityIsTheLastPreparedInsertAndSurvivesATableRebuild)
{
    AdoTestDb db;
    db.CreateCurrentRules();
    Command cmd;
    cmd.SetActiveConnection(&db.connection);
    cmd.SetCommandText(QStringLiteral("INSERT INTO [Rules] ([RuleName], [SortID]) VALUES (?, ?)"));
    cmd.AppendParameter(cmd.CreateParameter(QStringLiteral("RuleName"), adVarWChar, adParamInput, 150, QStringLiteral("a")));
    cmd.AppendParameter(cmd.CreateParameter(QStringLiteral("SortID"), adInteger, adParamInput, 10, 1));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(cmd.Execute(adExecuteNoRecords), nullptr);
    db.connection.Execute(QStringLiteral("DELETE FROM [Rules] WHERE RuleID=3"), adExecuteNoRecords);

    const auto identity = [&](const char* sql) { return db.connection.Execute(QString::fromLatin1(sql))->Fields(0).Value().toInt(); };
    EXPECT_EQ(identity("SELECT @@Identity"), 3);
    db.connection.Execute(QStringLiteral("ALTER TABLE [Rules] ALTER COLUMN RuleName Memo"), adExecuteNoRecords);
    EXPECT_EQ(identity("select @@IDENTITY;"), 3);
    // The counter goes on after the highest number ever used, not the highest left.
    cmd.Execute(adExecuteNoRecords);
    EXPECT_EQ(identity("SELECT @@Identity"), 4);
}

}  // namespace
}  // namespace mv::ado::test

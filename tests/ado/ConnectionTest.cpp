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

// ---- files that must be refused and left exactly as they were

struct BadFile {
    const char* name;
    std::function<void(const QString& path)> make;  // nothing made: the file is missing
    const char* says;
};
void PrintTo(const BadFile& c, std::ostream* os) { *os << c.name; }

void Write(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

QByteArray JetHeader()
{
    QByteArray jet("\x00\x01\x00\x00Standard Jet DB\x00\x01\x00\x00\x00", 24);
    jet.append(4096 - jet.size(), '\x5a');
    return jet;
}

class OpenRefusedTest : public ::testing::TestWithParam<BadFile> {};

TEST_P(OpenRefusedTest, FailsClearlyAndLeavesTheFileAsItWas)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("mv.mdb"));
    if (GetParam().make) GetParam().make(path);
    const bool existed = QFileInfo::exists(path);
    const QByteArray before = ReadBytes(path);

    Connection c;
    try {
        c.Open(JetConnectionString(path), QString(), QString(), -1);
        FAIL() << "opened";
    } catch (const AdoError& e) {
        EXPECT_TRUE(e.Description().contains(QLatin1String(GetParam().says))) << e.Description().toStdString();
        EXPECT_EQ(e.Source(), kProviderSource);
        EXPECT_FALSE(e.IsTemporary());
    }
    EXPECT_EQ(c.State(), adStateClosed);
    EXPECT_EQ(QFileInfo::exists(path), existed);
    EXPECT_EQ(ReadBytes(path), before);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).size(), existed ? 1 : 0);  // no journal left
}

INSTANTIATE_TEST_SUITE_P(
    Files, OpenRefusedTest,
    ::testing::Values(
        BadFile{"Missing", nullptr, "Could not find file"},
        BadFile{"JetFile", [](const QString& p) { Write(p, JetHeader()); }, "not a Mailvane (SQLite) database (it is a Jet"},
        BadFile{"EmptyFile", [](const QString& p) { Write(p, QByteArray()); }, "not a Mailvane (SQLite) database (the file is empty)"},
        BadFile{"TextFile", [](const QString& p) { Write(p, "RuleName;From\nnews;a@b\n"); }, "not a Mailvane (SQLite) database"},
        BadFile{"Folder", [](const QString& p) { QDir().mkpath(p); }, "not a file"},
        BadFile{"DamagedSqlite",
                [](const QString& p) {
                    QByteArray bytes("SQLite format 3\0", 16);
                    bytes.append(4080, '\xff');
                    Write(p, bytes);
                },
                "not a Mailvane (SQLite) database or is damaged"}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- the connection string

struct SourceCase {
    const char* name;
    const char* connectionString;
    const char* dataSource;
};
void PrintTo(const SourceCase& c, std::ostream* os) { *os << c.name; }

class DataSourceTest : public ::testing::TestWithParam<SourceCase> {};

TEST_P(DataSourceTest, FindsTheFile)
{
    EXPECT_EQ(Connection::DataSourceOf(QString::fromUtf8(GetParam().connectionString)),
              QString::fromUtf8(GetParam().dataSource));
}

INSTANTIATE_TEST_SUITE_P(
    Strings, DataSourceTest,
    ::testing::Values(
        SourceCase{"Jet", "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=/home/u/mv.mdb;Jet OLEDB:Database Password=;Jet OLEDB:Engine Type=5;", "/home/u/mv.mdb"},
        SourceCase{"Odbc", "Driver={Microsoft Access Driver (*.mdb)};DBQ=/home/u/mv.mdb;DefaultDir=/opt/;UID=admin;PWD=;", "/home/u/mv.mdb"},
        SourceCase{"SpacesAndCase", " data source = /a b/mv.mdb ;", "/a b/mv.mdb"},
        SourceCase{"QuotedWithSemicolon", "Data Source=\"/a;b/mv.mdb\";Jet OLEDB:Engine Type=5;", "/a;b/mv.mdb"},
        SourceCase{"WindowsPath", "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=C:\\x\\mv.mdb;", "C:\\x\\mv.mdb"},
        SourceCase{"None", "Provider=Microsoft.Jet.OLEDB.4.0;Jet OLEDB:Engine Type=5;", ""}),
    [](const auto& info) { return std::string(info.param.name); });

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
}

// ---- locks held by another program

class LockTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        db.CreateVersion100Layout();
        db.connection.Close();
        ASSERT_EQ(sqlite3_open_v2(db.path.toUtf8().constData(), &other, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    }
    void TearDown() override
    {
        sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close_v2(other);
    }
    void Hold(const char* how) { ASSERT_EQ(sqlite3_exec(other, how, nullptr, nullptr, nullptr), SQLITE_OK); }

    AdoTestDb db;
    sqlite3* other = nullptr;
};

TEST_F(LockTest, ExclusiveLockFailsOpenAsTemporaryAfterTheBusyWait)
{
    Hold("BEGIN EXCLUSIVE");
    const QByteArray before = ReadBytes(db.path);
    Connection c;
    c.SetBusyTimeout(300);
    QElapsedTimer timer;
    timer.start();
    try {
        c.Open(JetConnectionString(db.path));
        FAIL() << "opened a locked file";
    } catch (const AdoError& e) {
        EXPECT_TRUE(e.IsTemporary()) << e.Description().toStdString();
        EXPECT_TRUE(e.Description().contains(QLatin1String("locked"))) << e.Description().toStdString();
    }
    EXPECT_GE(timer.elapsed(), 250);
    EXPECT_EQ(ReadBytes(db.path), before);

    Hold("ROLLBACK");
    EXPECT_NO_THROW(c.Open(JetConnectionString(db.path)));
}

TEST_F(LockTest, WriteLockFailsAWriteAsTemporaryButReadsGoOn)
{
    db.connection.SetBusyTimeout(200);
    db.connection.Open();
    Hold("BEGIN IMMEDIATE");
    auto rs = db.connection.Execute(QStringLiteral("SELECT version From Settings"));
    EXPECT_EQ(rs->Value(QStringLiteral("version")).toString(), QStringLiteral("1.0.0"));
    try {
        db.connection.Execute(QStringLiteral("UPDATE [settings] SET version='1.2.0'"), adExecuteNoRecords);
        FAIL() << "wrote through a lock";
    } catch (const AdoError& e) {
        EXPECT_TRUE(e.IsTemporary()) << e.Description().toStdString();
        EXPECT_TRUE(e.Description().contains(QLatin1String("UPDATE [settings]")));
    }
    Hold("ROLLBACK");
    // The failed statement left nothing locked behind: the next one goes through.
    EXPECT_NO_THROW(db.connection.Execute(QStringLiteral("UPDATE [settings] SET version='1.2.0'"), adExecuteNoRecords));
}

TEST_F(LockTest, ARebuildUnderAnotherWriterFailsAsTemporaryAndChangesNothing)
{
    db.connection.SetBusyTimeout(100);
    db.connection.Open();
    Hold("BEGIN IMMEDIATE");
    const QByteArray before = ReadBytes(db.path);
    try {
        db.connection.Execute(QStringLiteral("ALTER TABLE [Rules] ALTER COLUMN FromAddress Memo"));
        FAIL() << "rebuilt under a lock";
    } catch (const AdoError& e) {
        EXPECT_TRUE(e.IsTemporary()) << e.Description().toStdString();
    }
    EXPECT_EQ(ReadBytes(db.path), before);
    Hold("ROLLBACK");
    db.connection.Execute(QStringLiteral("ALTER TABLE [Rules] ALTER COLUMN FromAddress Memo"));
    EXPECT_EQ(db.connection.Execute(QStringLiteral("SELECT FromAddress FROM Rules"))->Fields(0).Type(), adLongVarWChar);
}

// ---- read-only files and folders

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

struct ReadOnlyCase {
    const char* name;
    QFile::Permissions file;
    QFile::Permissions folder;
};
void PrintTo(const ReadOnlyCase& c, std::ostream* os) { *os << c.name; }

class ReadOnlyTest : public ::testing::TestWithParam<ReadOnlyCase> {};

TEST_P(ReadOnlyTest, RefusedAtOpenAndUnchanged)
{
    AdoTestDb db;
    db.CreateVersion100Layout();
    db.connection.Close();
    const QByteArray before = ReadBytes(db.path);
    const auto all = QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther | QFile::ExeOwner | QFile::ExeGroup |
                     QFile::ExeOther;
    ASSERT_TRUE(QFile::setPermissions(db.path, GetParam().file));
    ASSERT_TRUE(QFile::setPermissions(db.dir.path(), GetParam().folder | all));

    const QString path = db.path;
    const int outcome = AsUnprivileged([path] {
        Connection c;
        try {
            c.Open(JetConnectionString(path));
            return 1;
        } catch (const AdoError& e) {
            return e.Number() == kErrReadOnly && e.Description().contains(QLatin1String("Check the")) ? 0 : 2;
        }
    });
    EXPECT_EQ(outcome, 0);
    QFile::setPermissions(db.dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    EXPECT_EQ(ReadBytes(db.path), before);
}

const auto kReadAll = QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther;
const auto kWriteAll = QFile::WriteOwner | QFile::WriteGroup | QFile::WriteOther;

INSTANTIATE_TEST_SUITE_P(Permissions, ReadOnlyTest,
                         ::testing::Values(ReadOnlyCase{"ReadOnlyFile", kReadAll, kWriteAll},
                                           ReadOnlyCase{"ReadOnlyFolder", kReadAll | kWriteAll, {}}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- errors from Execute

struct BadStatement {
    const char* name;
    const char* sql;
    int parameters;  // integer parameters bound
    const char* value;
    long number;
    const char* says;
};
void PrintTo(const BadStatement& c, std::ostream* os) { *os << c.name; }

class ExecuteErrorTest : public ::testing::TestWithParam<BadStatement> {};

TEST_P(ExecuteErrorTest, NamesTheProblemAndTheStatement)
{
    AdoTestDb db;
    db.CreateVersion100Layout();
    Command cmd;
    cmd.SetActiveConnection(&db.connection);
    cmd.SetCommandText(QString::fromUtf8(GetParam().sql));
    for (int i = 0; i < GetParam().parameters; ++i)
        cmd.AppendParameter(cmd.CreateParameter(QStringLiteral("p"), i == 0 ? adSmallInt : adInteger, adParamInput, 10,
                                                QString::fromUtf8(GetParam().value)));
    try {
        cmd.Execute(adExecuteNoRecords);
        FAIL() << "no error";
    } catch (const AdoError& e) {
        EXPECT_EQ(e.Number(), GetParam().number) << e.Description().toStdString();
        EXPECT_TRUE(e.Description().contains(QLatin1String(GetParam().says))) << e.Description().toStdString();
        EXPECT_FALSE(e.IsTemporary());
    }
    auto settings = db.Open(QStringLiteral("SELECT * From Settings"));
    EXPECT_EQ(settings->Value(QStringLiteral("WeekStart")).toInt(), 2);  // nothing written
}

INSTANTIATE_TEST_SUITE_P(
    Statements, ExecuteErrorTest,
    ::testing::Values(
        BadStatement{"TooFewParameters", "UPDATE [Settings] SET [WeekStart]=?, [toolbar]=?", 1, "1", kErrParameterCount, "2 \"?\" placeholders but 1"},
        BadStatement{"TooManyParameters", "UPDATE [Settings] SET [WeekStart]=?", 2, "1", kErrParameterCount, "1 \"?\" placeholders but 2"},
        BadStatement{"NotANumber", "UPDATE [Settings] SET [WeekStart]=?", 1, "Monday", kErrTypeMismatch, "'Monday' is not a number"},
        BadStatement{"SmallIntOverflow", "UPDATE [Settings] SET [WeekStart]=?", 1, "32768", kErrTypeMismatch, "overflow"},
        BadStatement{"UnknownColumn", "UPDATE [Settings] SET [WeekBegin]=3", 0, "", kErrSyntax, "no such column: WeekBegin"},
        BadStatement{"Apostrophe", "UPDATE [Rules] SET RuleName='O'Brien' WHERE RuleID=1", 0, "", kErrSyntax, "Brien"},
        BadStatement{"TwoStatements", "UPDATE [Settings] SET WeekStart=3; DELETE FROM Rules", 0, "", kErrSyntax, "after end of SQL statement"},
        BadStatement{"UnknownType", "ALTER TABLE [settings] ADD raNew Widget", 0, "", kErrSyntax, "unknown type 'Widget'"},
        BadStatement{"DuplicateColumn", "ALTER TABLE [settings] ADD WeekStart integer", 0, "", kErrSyntax, "duplicate column name"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ConnectionTest, ClosedOrMissingConnectionIsAnError)
{
    AdoTestDb db;
    db.connection.Close();
    EXPECT_THROW(db.connection.Execute(QStringLiteral("SELECT 1")), AdoError);
    Command cmd;
    cmd.SetCommandText(QStringLiteral("SELECT 1"));
    try {
        cmd.Execute();
        FAIL();
    } catch (const AdoError& e) {
        EXPECT_EQ(e.Number(), kErrInvalidConnection);
    }
    cmd.SetActiveConnection(&db.connection);
    EXPECT_THROW(cmd.Execute(), AdoError);
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

    auto id = db.connection.Execute(QStringLiteral("SELECT @@Identity"));
    EXPECT_EQ(id->Fields(0).Value().toInt(), 3);
    db.connection.Execute(QStringLiteral("ALTER TABLE [Rules] ALTER COLUMN RuleName Memo"), adExecuteNoRecords);
    EXPECT_EQ(db.connection.Execute(QStringLiteral("select @@IDENTITY;"))->Fields(0).Value().toInt(), 3);

    // The counter goes on after the highest number ever used, not the highest left.
    cmd.Execute(adExecuteNoRecords);
    EXPECT_EQ(db.connection.Execute(QStringLiteral("SELECT @@Identity"))->Fields(0).Value().toInt(), 4);
}

}  // namespace
}  // namespace mv::ado::test

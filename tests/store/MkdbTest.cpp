// mv-mkdb: splitting a Jet SQL script, and building a database file that
// replaces its output only when every statement ran.

#include "StoreFixture.h"

#include "tools/mkdb/JetScript.h"

#include <QDir>
#include <QFile>

namespace mv::test {
namespace {

TEST(JetScriptTest, SplitsAtSemicolonsThatEndALine)
{
    const QString script = QStringLiteral(
        "-- a comment; not a statement;\r\n"
        "CREATE TABLE [T] (\r\n  [a] Integer,\r\n  [b] Text(10)\r\n);\r\n"
        "\n"
        "INSERT INTO [T] VALUES (1, 'x;y');\n"
        "   INSERT INTO [T] VALUES (2, 'z');   \n"
        "UPDATE [T] SET a = 3");
    EXPECT_EQ(tools::SplitJetScript(script),
              (QStringList{QStringLiteral("CREATE TABLE [T] (\n[a] Integer,\n[b] Text(10)\n)"),
                           QStringLiteral("INSERT INTO [T] VALUES (1, 'x;y')"),
                           QStringLiteral("INSERT INTO [T] VALUES (2, 'z')"), QStringLiteral("UPDATE [T] SET a = 3")}));
}

class MkdbTest : public StoreTest {
protected:
    QString Script(const char* name, const char* text)
    {
        const QString path = TempPath(QString::fromLatin1(name));
        WriteBytes(path, text);
        return path;
    }
};

TEST_F(MkdbTest, FailedBuildLeavesTheOldOutputAndNoLitter)
{
    const QString out = TempPath(QStringLiteral("out.mdb"));
    const QString good = Script("good.sql", "CREATE TABLE [T] ([id] Counter, [name] Text(20));\n"
                                            "INSERT INTO [T] ([name]) VALUES ('one');\n");
    ASSERT_EQ(tools::BuildDatabase(good, out), QString());
    EXPECT_EQ(Columns(out, QStringLiteral("T")), QStringLiteral("id INTEGER, name VARCHAR(20)"));
    EXPECT_EQ(Query(out, QStringLiteral("SELECT * FROM T")), QStringLiteral("1|one"));
    const QByteArray built = FileBytes(out);

    const QString bad = Script("bad.sql", "CREATE TABLE [U] ([x] Integer);\nINSERT INTO [Nowhere] VALUES (1);\n");
    const QString error = tools::BuildDatabase(bad, out);
    EXPECT_TRUE(error.contains(QLatin1String("statement 2"))) << error.toStdString();
    EXPECT_EQ(FileBytes(out), built);
    EXPECT_TRUE(tools::BuildDatabase(TempPath(QStringLiteral("missing.sql")), out).contains(QLatin1String("cannot read")));

    // A new build replaces the output in one step.
    ASSERT_EQ(tools::BuildDatabase(Script("next.sql", "CREATE TABLE [V] ([y] Memo);\n"), out), QString());
    EXPECT_EQ(Columns(out, QStringLiteral("V")), QStringLiteral("y LONGTEXT"));
    EXPECT_EQ(QDir(m_dir.path()).entryList({QStringLiteral(".mkdb-*")}, QDir::Files | QDir::Hidden), QStringList());
}

}  // namespace
}  // namespace mv::test

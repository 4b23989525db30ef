#pragma once
// A rule database in a temporary folder, laid out as the oldest release
// (1.0.0) had it, built through the provider's own Jet DDL.

#include "platform/ado/Command.h"
#include "platform/ado/Connection.h"
#include "platform/ado/Recordset.h"

#include <QFile>
#include <QTemporaryDir>

#include <memory>

namespace mv::ado::test {

inline QString JetConnectionString(const QString& path)
{
    return QStringLiteral("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=") + path +
           QStringLiteral(";Jet OLEDB:Database Password=;Jet OLEDB:Engine Type=5;");
}

inline QByteArray ReadBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

class AdoTestDb {
public:
    AdoTestDb()
    {
        path = dir.filePath(QStringLiteral("mv.mdb"));
        Connection::CreateDatabase(path);
        connection.Open(JetConnectionString(path));
        // Durability is not under test; waiting for the disk on every
        // statement would only make the suite slow.
        connection.Execute(QStringLiteral("PRAGMA synchronous = OFF"));
    }

    // The three tables of a 1.0.0 file, with a settings row and the twelve
    // age windows of the template.
    void CreateVersion100Layout()
    {
        for (const char* sql : {
                 "CREATE TABLE [Rules] ([RuleID] COUNTER PRIMARY KEY, [RuleName] Text(150), [FromAddress] Text(255), "
                 "[ToAddress] Text(255), [CcAddress] Text(255), [Subject] Text(255), [Importance] Integer, "
                 "[Status] Integer, [FlagStatus] Integer, [MsgAgeID] Integer, [SrcEntryID] Memo, [SrcStoreID] Memo, "
                 "[DstEntryID] Memo, [DstStoreID] Memo, [Active] Integer DEFAULT -1, [SortID] Integer)",
                 "CREATE TABLE [Settings] ([version] Text(10), [WeekStart] Integer, [toolbar] Integer, "
                 "[menubar] Integer, [runOnStart] Integer, [tbTop] Integer, [tbLeft] Integer, [tbRow] Integer, "
                 "[tbPos] Integer, [init] Integer)",
                 "CREATE TABLE [MsgAge] ([MsgAgeID] Integer CONSTRAINT [PrimaryKey] PRIMARY KEY, "
                 "[timeField] Text(10), [timeDiff] Integer)",
                 "INSERT INTO [Settings] VALUES ('1.0.0', 2, -1, -1, 0, 0, 0, 0, 1, 0)",
                 "INSERT INTO [MsgAge] VALUES (1, 'h', -1)", "INSERT INTO [MsgAge] VALUES (2, 'h', -2)",
                 "INSERT INTO [MsgAge] VALUES (3, 'h', -4)", "INSERT INTO [MsgAge] VALUES (4, 'h', -8)",
                 "INSERT INTO [MsgAge] VALUES (5, 'd', -1)", "INSERT INTO [MsgAge] VALUES (6, 'd', -2)",
                 "INSERT INTO [MsgAge] VALUES (7, 'ww', -1)", "INSERT INTO [MsgAge] VALUES (8, 'ww', -2)",
                 "INSERT INTO [MsgAge] VALUES (9, 'm', -1)", "INSERT INTO [MsgAge] VALUES (10, 'm', -2)",
                 "INSERT INTO [MsgAge] VALUES (11, 'm', -3)", "INSERT INTO [MsgAge] VALUES (12, 'yyyy', -1)"})
            connection.Execute(QString::fromLatin1(sql), adExecuteNoRecords);
    }

    // A rule table with the current (1.8.0) columns, for cursor tests.
    void CreateCurrentRules()
    {
        connection.Execute(QStringLiteral(
            "CREATE TABLE [Rules] ([RuleID] AutoIncrement, [RuleName] Text(150) NOT NULL DEFAULT '', "
            "[FromAddress] Memo, [ToAddress] Memo, [CcAddress] Memo, [Subject] Memo, [Importance] Integer, "
            "[Status] Integer, [FlagStatus] Integer, [MsgAgeID] Integer, [SrcEntryID] Memo, [SrcStoreID] Memo, "
            "[DstEntryID] Memo, [DstStoreID] Memo, [Active] Integer DEFAULT 0, [SortID] Integer, [LastVerb] Integer, "
            "[Message] Memo)"));
    }

    std::unique_ptr<Recordset> Open(const QString& sql)
    {
        auto rs = std::make_unique<Recordset>();
        rs->SetCursorLocation(adUseClient);
        rs->Open(sql, connection, adOpenDynamic, adLockBatchOptimistic);
        return rs;
    }

    QTemporaryDir dir;
    QString path;
    Connection connection;
};

}  // namespace mv::ado::test

#pragma once
// A rule database in a temporary folder: empty, or a copy of a built file of
// an older release (tests/support/databases), opened through the provider.

#include "platform/ado/Command.h"
#include "platform/ado/Connection.h"
#include "platform/ado/Recordset.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/databases/OldDatabases.h"

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
    // `release` names a built database ("v100": the 1.0.0 layout with three
    // rules); empty makes a new file.
    explicit AdoTestDb(const QString& release = QString())
    {
        path = dir.filePath(QStringLiteral("mv.mdb"));
        if (release.isEmpty()) {
            Connection::CreateDatabase(path);
        } else {
            QFile::copy(mv::test::BuiltDatabase(release), path);
            QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
        }
        connection.Open(JetConnectionString(path));
        // Durability is not under test; waiting for the disk on every
        // statement would only make the suite slow.
        connection.Execute(QStringLiteral("PRAGMA synchronous = OFF"));
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

#include "tests/rowsetxml/RulesRowset.h"

#include "platform/ado/Connection.h"
#include "platform/ado/Recordset.h"

#include <QFile>
#include <QTemporaryDir>

namespace mv::ado::test {

RowsetData RulesRowset()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("mv.mdb"));
    Connection::CreateDatabase(path);
    Connection db;
    db.Open(QStringLiteral("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1;").arg(path));
    for (const char* sql : {
             "CREATE TABLE [Rules] ([RuleID] AutoIncrement, [RuleName] Text(150), [FromAddress] Memo, [ToAddress] Memo, "
             "[CcAddress] Memo, [Subject] Memo, [Importance] Integer, [Status] Integer, [FlagStatus] Integer, "
             "[MsgAgeID] Integer, [SrcEntryID] Memo, [SrcStoreID] Memo, [DstEntryID] Memo, [DstStoreID] Memo, "
             "[Active] Integer, [SortID] Integer, [LastVerb] Integer, [Message] Memo)",
             "INSERT INTO [Rules] VALUES (1, 'Boss''s mail', 'boss@example.com;chef@example.org', '', '', "
             "'\"quarterly report\" budget', 3, 2, 0, 13, 'INBOX', 'STORE', '4D564D4401002E41726368697665', 'STORE', "
             "-1, 1, 0, 'Line one\r\nLine two\twith tab & <angle> brackets')",
             "INSERT INTO [Rules] VALUES (2, 'Zürich – 日本語 ✓', 'müller@example.de', 'team@example.com', '', "
             "'Ärger ''quoted''', 2, 0, 2, 5, 'INBOX', 'STORE', '4D564D4401002E4C697374732E5A7572696368', 'STORE', "
             "0, 2, 102, NULL)",
             "INSERT INTO [Rules] VALUES (5, 'Old rule', '', '', '', NULL, 3, 2, 0, 13, 'INBOX', 'STORE', "
             "'4D564D440100547261736820', 'STORE', -1, 3, NULL, NULL)",
             "UPDATE [Rules] SET SrcEntryID = '4D564D440100494E424F58', "
             "SrcStoreID = '4D564D53010000002F686F6D652F757365722F4D61696C', "
             "DstStoreID = '4D564D53010000002F686F6D652F757365722F4D61696C'"})
        db.Execute(QString::fromUtf8(sql), adExecuteNoRecords);
    RowsetData rowset = db.Execute(QStringLiteral("Select * from Rules"))->Data();
    // Jet, which wrote the file, calls its counter column possibly null; SQLite does not.
    rowset.columns[0].mayBeNull = true;
    return rowset;
}

QByteArray GoldenRulesFile()
{
    QFile f(QStringLiteral(MV_SOURCE_DIR "/tests/rowsetxml/data/rules_ado.xml"));
    if (!f.open(QIODevice::ReadOnly)) return {};
    return f.readAll();
}

}  // namespace mv::ado::test

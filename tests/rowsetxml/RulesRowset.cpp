#include "tests/rowsetxml/RulesRowset.h"

#include "platform/ado/AdoConstants.h"

#include <QFile>

namespace mv::ado::test {

namespace {

RowsetColumn column(const char* name, int type, int size, bool isLong = false)
{
    RowsetColumn c;
    c.name = QString::fromLatin1(name);
    c.type = type;
    c.definedSize = size;
    c.isLong = isLong;
    c.mayDefer = true;
    c.baseTable = QStringLiteral("Rules");
    c.baseColumn = c.name;
    return c;
}

RowsetColumn memo(const char* name)
{
    return column(name, adLongVarWChar, 536870910, true);
}
RowsetColumn shortInt(const char* name)
{
    return column(name, adSmallInt, 2);
}

const QString kInbox = QStringLiteral("4D564D440100494E424F58");
const QString kStore = QStringLiteral("4D564D53010000002F686F6D652F757365722F4D61696C");

}  // namespace

RowsetData RulesRowset()
{
    RowsetData d;
    RowsetColumn id = column("RuleID", adInteger, 4);
    id.nullable = false;
    id.keyColumn = true;
    id.autoIncrement = true;
    d.columns = {id,
                 column("RuleName", adVarWChar, 150),
                 memo("FromAddress"),
                 memo("ToAddress"),
                 memo("CcAddress"),
                 memo("Subject"),
                 shortInt("Importance"),
                 shortInt("Status"),
                 shortInt("FlagStatus"),
                 shortInt("MsgAgeID"),
                 memo("SrcEntryID"),
                 memo("SrcStoreID"),
                 memo("DstEntryID"),
                 memo("DstStoreID"),
                 shortInt("Active"),
                 shortInt("SortID"),
                 shortInt("LastVerb"),
                 memo("Message")};
    const QVariant null;
    d.rows = {
        {1, QStringLiteral("Boss's mail"), QStringLiteral("boss@example.com;chef@example.org"), QString(""),
         QString(""), QStringLiteral("\"quarterly report\" budget"), 3, 2, 0, 13, kInbox, kStore,
         QStringLiteral("4D564D4401002E41726368697665"), kStore, -1, 1, 0,
         QStringLiteral("Line one\r\nLine two\twith tab & <angle> brackets")},
        {2, QStringLiteral("Zürich – 日本語 ✓"), QStringLiteral("müller@example.de"),
         QStringLiteral("team@example.com"), QString(""), QStringLiteral("Ärger 'quoted'"), 2, 0, 2, 5,
         kInbox, kStore, QStringLiteral("4D564D4401002E4C697374732E5A7572696368"), kStore, 0, 2, 102, null},
        {5, QStringLiteral("Old rule"), QString(""), QString(""), QString(""), null, 3, 2, 0, 13, kInbox,
         kStore, QStringLiteral("4D564D440100547261736820"), kStore, -1, 3, null, null},
    };
    return d;
}

QByteArray GoldenRulesFile()
{
    QFile f(QStringLiteral(MV_SOURCE_DIR "/tests/rowsetxml/data/rules_ado.xml"));
    if (!f.open(QIODevice::ReadOnly)) return {};
    return f.readAll();
}

}  // namespace mv::ado::test

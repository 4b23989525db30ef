#include "platform/ado/AdoConstants.h"
#include "platform/ado/RowsetXml.h"
#include "tests/rowsetxml/RulesRowset.h"

#include <QDateTime>

#include <gtest/gtest.h>

#include <random>

namespace mv::ado {
namespace {

// A value as "type(text)", so that one compare checks the kind as well: an
// i2 column gives an int, a memo a QString, an absent value null.
std::string described(const QVariant& v)
{
    if (!v.isValid()) return "null";
    const QString text =
        v.typeId() == QMetaType::QByteArray ? QString::fromLatin1(v.toByteArray().toHex()) : v.toString();
    return std::string(v.typeName()) + "(" + text.toStdString() + ")";
}

// The rules file ADO wrote reads back to the rowset it came from: the
// schema through RowsetXmlWrite's byte-for-byte round trip, the kinds of the
// values here.
TEST(RowsetXmlRead, RulesFileReadsValueByValue)
{
    const RowsetData actual = RowsetXml::Read(test::GoldenRulesFile());
    const RowsetData expected = test::RulesRowset();
    ASSERT_EQ(actual.columns.size(), 18u);
    ASSERT_EQ(actual.rows.size(), expected.rows.size());
    for (size_t r = 0; r < expected.rows.size(); ++r)
        for (size_t c = 0; c < expected.columns.size(); ++c)
            EXPECT_EQ(described(actual.rows[r][c]), described(expected.rows[r][c]))
                << "row " << r << " " << expected.columns[c].name.toStdString();
    EXPECT_EQ(actual.columnIndex(QStringLiteral("message")), 17);
}

struct ToleranceCase {
    const char* name;
    const char* xml;
};

// Every case describes the same rowset: Id int, Name string, Flag boolean,
// When dateTime; rows (1, "A'b & c", true, 2024-05-06 07:08:09) and (2, null, false, null).
const ToleranceCase kTolerance[] = {
    {"DeclarationCommentsAttributeOrderAndPendingChanges",
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- saved elsewhere -->\n"
     "<xml xmlns:z='#RowsetSchema' xmlns:rs='urn:schemas-microsoft-com:rowset'\n"
     " xmlns:dt='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882' "
     "xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882'>\n"
     "<s:Schema id='RowsetSchema'><s:ElementType content='eltOnly' name='row'>\n"
     "<s:AttributeType rs:number='3' name='Flag'><s:datatype dt:type='boolean'/></s:AttributeType>\n"
     "<s:AttributeType rs:nullable='true' rs:number='2' name='Name'><s:datatype dt:maxLength='20' "
     "dt:type='string'/></s:AttributeType>\n"
     "<s:AttributeType rs:number='4' name='When'><s:datatype rs:dbtype='variantdate' "
     "dt:type='dateTime'/></s:AttributeType>\n"
     "<s:AttributeType rs:number='1' name='Id'><s:datatype dt:type='int'/></s:AttributeType>\n"
     "</s:ElementType></s:Schema>\n"
     "<rs:data><rs:update><rs:original><z:row When='2024-05-06T07:08:09' Flag='False' Name='old' Id='1'/>"
     "</rs:original><z:row Flag=\"true\" Name=\"A&#39;b &#x26; c\"/></rs:update>\n"
     "<!-- a comment --><rs:delete><z:row Id='7' Flag='True'/></rs:delete>\n"
     "<rs:insert><z:row Flag='false' Id='2'></z:row></rs:insert></rs:data></xml>"},
    {"ExtraAttributesAndElements",
     "<xml xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882' "
     "xmlns:dt='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882'\n"
     " xmlns:rs='urn:schemas-microsoft-com:rowset' xmlns:z='#RowsetSchema' xmlns:x='urn:example:extra' "
     "version='2'>\n"
     "<x:note>ignored</x:note>\n"
     "<s:Schema id='RowsetSchema' x:tag='1'><s:description>rules</s:description>\n"
     "<s:ElementType name='row' content='eltOnly' rs:updatable='true' rs:CommandTimeout='30'>\n"
     "<s:AttributeType name='Id' rs:number='1' rs:basecatalog='mv' rs:hidden='false' x:extra='y'>"
     "<s:datatype dt:type='int' dt:maxLength='4' rs:precision='10' rs:fixedlength='true' "
     "rs:maybenull='false'/>"
     "<x:more/></s:AttributeType>\n"
     "<s:AttributeType name='Name' rs:number='2'><s:datatype dt:type='string' "
     "rs:unknown='1'/></s:AttributeType>\n"
     "<s:AttributeType name='Flag' rs:number='3'><s:datatype dt:type='boolean'/></s:AttributeType>\n"
     "<s:AttributeType name='When' rs:number='4'><s:datatype dt:type='dateTime'/></s:AttributeType>\n"
     "<s:extends type='rs:rowbase'/></s:ElementType></s:Schema>\n"
     "<rs:data><z:row Id='1' Name='A&apos;b &amp; c' Flag='1' When='2024-05-06T07:08:09' "
     "rs:forcenull='Name'/>\n"
     "<x:junk a='b'><z:row Id='99'/></x:junk><z:row Id='2' Flag='False'><x:child/></z:row></rs:data>\n"
     "<x:trailer/></xml>"},
    {"OtherPrefixesAndTypesOnAttributeType",
     "<xml xmlns:xd='uuid:bdc6e3f0-6da3-11d1-a2a3-00aa00c14882' "
     "xmlns:t='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882'\n"
     " xmlns:r='urn:schemas-microsoft-com:rowset' xmlns:row='#RowsetSchema'>\n"
     "<xd:Schema id='RowsetSchema'><xd:ElementType name='row' content='eltOnly'>\n"
     "<xd:AttributeType name='Id' t:type='i4'/>\n"
     "<xd:AttributeType name='Name'/>\n"
     "<xd:AttributeType name='Flag' t:type='boolean'/>\n"
     "<xd:AttributeType name='When' t:type='dateTime'/>\n"
     "</xd:ElementType></xd:Schema>\n"
     "<r:data><row:row Id='1' Name='A&apos;b &amp; c' Flag='True' When='2024-05-06T07:08:09'/>\n"
     "<row:row Id='2' Flag='False'/></r:data></xml>"},
};

TEST(RowsetXmlRead, EveryToleratedLayoutReadsTheSameRowset)
{
    const QDateTime when(QDate(2024, 5, 6), QTime(7, 8, 9));
    const std::vector<std::vector<QVariant>> expected = {
        {1, QStringLiteral("A'b & c"), true, when},
        {2, QVariant(), false, QVariant()},
    };
    const char* names[] = {"Id", "Name", "Flag", "When"};
    const int types[] = {adInteger, adVarWChar, adBoolean, adDate};
    for (const ToleranceCase& t : kTolerance) {
        SCOPED_TRACE(t.name);
        const RowsetData d = RowsetXml::Read(QByteArray(t.xml));
        ASSERT_EQ(d.columns.size(), 4u);
        for (int c = 0; c < 4; ++c) {
            EXPECT_EQ(d.columns[c].name, QLatin1String(names[c]));
            EXPECT_EQ(d.columns[c].type, types[c]) << names[c];
        }
        ASSERT_EQ(d.rows.size(), 2u);
        for (size_t r = 0; r < 2; ++r)
            for (size_t c = 0; c < 4; ++c)
                EXPECT_EQ(described(d.rows[r][c]), described(expected[r][c])) << "row " << r << " column " << c;
    }
}

struct ValueCase {
    const char* name;
    const char* dtType;
    const char* text;
    QVariant expected;  // invalid: the value must be refused
};

QByteArray oneValueFile(const ValueCase& v)
{
    return QByteArray(
               "<xml xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882' "
               "xmlns:dt='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882' "
               "xmlns:rs='urn:schemas-microsoft-com:rowset' xmlns:z='#RowsetSchema'>\n"
               "<s:Schema id='RowsetSchema'><s:ElementType name='row' content='eltOnly'>\n"
               "<s:AttributeType name='V' rs:number='1'><s:datatype dt:type='") +
           v.dtType +
           "'/></s:AttributeType>\n"
           "</s:ElementType></s:Schema>\n<rs:data>\n<z:row V='" +
           v.text + "'/>\n</rs:data></xml>";
}

const ValueCase kValues[] = {
    {"BooleanTrue", "boolean", "True", true},
    {"BooleanMinusOne", "boolean", "-1", true},
    {"BooleanFalse", "boolean", "False", false},
    {"BooleanZero", "boolean", "0", false},
    {"BooleanWord", "boolean", "yes", QVariant()},
    {"IntTooBig", "int", "2147483648", QVariant()},
    {"IntText", "int", "12a", QVariant()},
    {"I2TooBig", "i2", "32768", QVariant()},
    {"Ui1Negative", "ui1", "-1", QVariant()},
    {"FloatText", "float", "one", QVariant()},
    {"DateOnly", "dateTime", "2001-02-03", QDateTime(QDate(2001, 2, 3), QTime(0, 0))},
    {"BinHexOdd", "bin.hex", "0ff", QVariant()},
    {"UuidBad", "uuid", "not-a-guid", QVariant()},
};

// A value that does not fit its type is refused naming its line and column.
TEST(RowsetXmlRead, ValuesConvertToTheColumnType)
{
    for (const ValueCase& v : kValues) {
        SCOPED_TRACE(v.name);
        if (v.expected.isValid()) {
            const RowsetData d = RowsetXml::Read(oneValueFile(v));
            ASSERT_EQ(d.rows.size(), 1u);
            EXPECT_EQ(described(d.rows[0][0]), described(v.expected));
            continue;
        }
        try {
            RowsetXml::Read(oneValueFile(v));
            ADD_FAILURE() << "accepted '" << v.text << "' as " << v.dtType;
        } catch (const AdoError& e) {
            EXPECT_TRUE(e.Description().contains(QLatin1String("line 6:"))) << e.Description().toStdString();
            EXPECT_TRUE(e.Description().contains(QLatin1String("column 'V'"))) << e.Description().toStdString();
        }
    }
}

struct ErrorCase {
    const char* name;
    QByteArray xml;
    int line;
    const char* phrase;
};

const QByteArray kHead =
    "<xml xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882'\n"
    " xmlns:dt='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882'\n"
    " xmlns:rs='urn:schemas-microsoft-com:rowset' xmlns:z='#RowsetSchema'>\n";  // lines 1-3
const QByteArray kSchema =
    "<s:Schema id='RowsetSchema'><s:ElementType name='row'>\n"                    // line 4
    "<s:AttributeType name='Id'><s:datatype dt:type='int'/></s:AttributeType>\n"  // line 5
    "</s:ElementType></s:Schema>\n";                                              // line 6

const ErrorCase kErrors[] = {
    {"Empty", "", 1, "empty"},
    {"PlainText", "RuleName,FromAddress\nBoss,boss@example.com\n", 1, "not well-formed XML"},
    {"TruncatedInsideTag", kHead + kSchema + "<rs:data>\n<z:row Id='1", 8, "truncated"},
    {"WrongRoot", "<rowset>\n<row Id='1'/>\n</rowset>", 1, "not <xml>"},
    {"NoSchema", kHead + "</xml>", 4, "no rowset schema"},
    {"DataBeforeSchema", kHead + "<rs:data>\n<z:row Id='1'/>\n</rs:data>\n" + kSchema + "</xml>", 4,
     "before any rowset schema"},
    {"SchemaWithoutRowType", kHead + "<s:Schema id='RowsetSchema'/>\n</xml>", 4, "no row type"},
    {"RowValueWithoutColumn", kHead + kSchema + "<rs:data>\n<z:row Id='1' Other='2'/>\n</rs:data></xml>",
     8, "'Other' belongs to no column"},
    {"UnknownDataType",
     kHead + "<s:Schema id='RowsetSchema'><s:ElementType name='row'>\n"
             "<s:AttributeType name='Id'><s:datatype dt:type='quaternion'/></s:AttributeType>\n"
             "</s:ElementType></s:Schema></xml>",
     5, "unknown data type 'quaternion'"},
    {"BadColumnNumber",
     kHead + "<s:Schema id='RowsetSchema'><s:ElementType name='row'>\n"
             "<s:AttributeType name='Id' rs:number='one'/>\n"
             "</s:ElementType></s:Schema></xml>",
     5, "rs:number 'one'"},
    {"DuplicateColumn",
     kHead + "<s:Schema id='RowsetSchema'><s:ElementType name='row'>\n"
             "<s:AttributeType name='Id'/>\n<s:AttributeType name='Id'/>\n"
             "</s:ElementType></s:Schema></xml>",
     6, "two columns"},
    {"MismatchedTags", kHead + kSchema + "<rs:data>\n<z:row Id='1'>\n</rs:data></xml>", 9,
     "not well-formed XML"},
};

TEST(RowsetXmlRead, RefusedFilesNameLineAndProblem)
{
    for (const ErrorCase& c : kErrors) {
        SCOPED_TRACE(c.name);
        try {
            RowsetXml::Read(c.xml);
            ADD_FAILURE() << "accepted";
        } catch (const AdoError& e) {
            const QString d = e.Description();
            EXPECT_TRUE(d.contains(QLatin1String(c.phrase))) << d.toStdString();
            if (c.line > 0)
                EXPECT_TRUE(d.contains(QStringLiteral("line %1:").arg(c.line))) << d.toStdString();
            else
                EXPECT_TRUE(d.contains(QLatin1String("line "))) << d.toStdString();
            EXPECT_EQ(e.Source(), QLatin1String("MSPersist"));
        }
    }
}

// Any damage to a good file must end in a parse or an AdoError: no crash, no
// other exception (AddressSanitizer watches the memory side).
TEST(RowsetXmlRead, DamagedFilesParseOrThrowAdoError)
{
    const QByteArray golden = test::GoldenRulesFile();
    ASSERT_FALSE(golden.isEmpty());
    int refused = 0;
    for (qsizetype n = 0; n < golden.size(); ++n) {
        // Every strict prefix lacks at least the closing tag of the root.
        EXPECT_THROW(RowsetXml::Read(golden.left(n)), AdoError) << "prefix of " << n << " bytes";
    }
    std::mt19937 random(20261122);
    std::uniform_int_distribution<qsizetype> position(0, golden.size() - 1);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 1500; ++round) {
        QByteArray damaged = golden;
        const int flips = 1 + round % 4;
        for (int f = 0; f < flips; ++f) damaged[position(random)] = static_cast<char>(byte(random));
        try {
            const RowsetData d = RowsetXml::Read(damaged);
            EXPECT_LE(d.columns.size(), 18u);
        } catch (const AdoError&) {
            ++refused;
        } catch (...) {
            ADD_FAILURE() << "round " << round << " threw something other than AdoError";
        }
    }
    EXPECT_GT(refused, 0);
}

TEST(RowsetXmlRead, DeepNestingDoesNotExhaustTheStack)
{
    const int depth = 200000;
    QByteArray xml = kHead + kSchema + "<rs:data>";
    for (int i = 0; i < depth; ++i) xml += "<rs:insert>";
    xml += "<z:row Id='1'/>";
    for (int i = 0; i < depth; ++i) xml += "</rs:insert>";
    xml += "</rs:data></xml>";
    try {
        RowsetXml::Read(xml);
    } catch (const AdoError&) {
    }
}

}  // namespace
}  // namespace mv::ado

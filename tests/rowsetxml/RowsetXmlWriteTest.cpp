#include "platform/ado/AdoConstants.h"
#include "platform/ado/RowsetXml.h"
#include "tests/rowsetxml/RulesRowset.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace mv::ado {
namespace {

// Shows where two files first differ, which a plain byte compare does not.
std::string firstDifference(const QByteArray& actual, const QByteArray& expected)
{
    qsizetype i = 0;
    while (i < actual.size() && i < expected.size() && actual[i] == expected[i]) ++i;
    const qsizetype from = std::max<qsizetype>(0, i - 60);
    return "differs at byte " + std::to_string(i) + "\nwritten:  ..." + actual.mid(from, 120).toStdString() +
           "\nexpected: ..." + expected.mid(from, 120).toStdString();
}

TEST(RowsetXmlWrite, RulesRowsetAndAReadAdoFileWriteTheAdoFileByteForByte)
{
    const QByteArray golden = test::GoldenRulesFile();
    ASSERT_FALSE(golden.isEmpty());
    const QByteArray written = RowsetXml::Write(test::RulesRowset());
    EXPECT_EQ(written, golden) << firstDifference(written, golden);
    const QByteArray again = RowsetXml::Write(RowsetXml::Read(golden));
    EXPECT_EQ(again, golden) << firstDifference(again, golden);
}

struct TypeCase {
    const char* name;
    int type;
    int size;
    bool isLong;
    QVariant value;
};

const TypeCase kTypeCases[] = {
    {"SmallInt", adSmallInt, 2, false, -32768},
    {"Integer", adInteger, 4, false, 2147483647},
    {"Single", adSingle, 4, false, 1.5},
    {"Double", adDouble, 8, false, 0.1 + 0.2},
    {"DoubleHuge", adDouble, 8, false, -1.7976931348623157e308},
    {"Currency", adCurrency, 8, false, 922337203685.4775},
    {"Date", adDate, 16, false, QDateTime(QDate(1999, 12, 31), QTime(23, 59, 58))},
    {"BooleanTrue", adBoolean, 2, false, true},
    {"TinyInt", adTinyInt, 1, false, -128},
    {"UnsignedTinyInt", adUnsignedTinyInt, 1, false, 255},
    {"BigInt", adBigInt, 8, false, QVariant(qlonglong(-9223372036854775807LL - 1))},
    {"Guid", adGUID, 16, false, QStringLiteral("{0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0}")},
    {"Numeric", adNumeric, 19, false, 12345.25},
    {"TimeStamp", adDBTimeStamp, 16, false, QDateTime(QDate(2026, 11, 22), QTime(3, 4, 5, 678))},
    {"Binary", adBinary, 4, false, QByteArray("\x00\xff\x7f\x80", 4)},
    {"VarBinary", adVarBinary, 50, false, QByteArray("abc")},
    {"LongVarBinary", adLongVarBinary, 1073741823, true, QByteArray(300, '\x5a')},
    {"Char", adChar, 10, false, QStringLiteral("ab'cd\"ef ")},
    {"VarChar", adVarChar, 50, false, QStringLiteral("<tag> & </tag>")},
    {"LongVarChar", adLongVarChar, 2147483647, true, QStringLiteral("one\r\ntwo\rthree\nfour\tfive")},
    {"WChar", adWChar, 3, false, QStringLiteral("äöü")},
    {"VarWChar", adVarWChar, 150, false, QStringLiteral("  spaced  out  ")},
    {"LongVarWChar", adLongVarWChar, 536870910, true, QStringLiteral("日本語\r\n\U0001F600 emoji & more")},
    {"EmptyString", adVarWChar, 150, false, QStringLiteral("")},
};

// A rowset of one column "V" of `type` holding `values`.
RowsetData oneColumn(int type, std::vector<std::vector<QVariant>> values)
{
    RowsetData d;
    d.columns.resize(1);
    d.columns[0].name = QStringLiteral("V");
    d.columns[0].type = type;
    d.rows = std::move(values);
    return d;
}

TEST(RowsetXmlWrite, EveryTypeRoundTripsWithSizeLongnessAndValue)
{
    for (const TypeCase& tc : kTypeCases) {
        SCOPED_TRACE(tc.name);
        RowsetData d = oneColumn(tc.type, {{tc.value}, {QVariant()}});
        RowsetColumn& c = d.columns[0];
        c.definedSize = tc.size;
        c.isLong = tc.isLong;
        if (tc.type == adNumeric) {
            c.precision = 12;
            c.scale = 2;
        }

        const RowsetData back = RowsetXml::Read(RowsetXml::Write(d));
        ASSERT_EQ(back.columns.size(), 1u);
        EXPECT_EQ(back.columns[0].type, tc.type);
        EXPECT_EQ(back.columns[0].definedSize, tc.size);
        EXPECT_EQ(back.columns[0].isLong, tc.isLong);
        EXPECT_EQ(back.columns[0].precision, c.precision);
        EXPECT_EQ(back.columns[0].scale, c.scale);
        ASSERT_EQ(back.rows.size(), 2u);
        const QVariant& v = back.rows[0][0];
        if (tc.value.typeId() == QMetaType::Double) {
            // A single is written with a double's digits; every other number exactly.
            EXPECT_EQ(v.typeId(), QMetaType::Double);
            EXPECT_EQ(v.toDouble(), tc.value.toDouble());
        } else {
            EXPECT_EQ(v, tc.value) << v.toString().toStdString();
        }
        EXPECT_FALSE(back.rows[1][0].isValid()) << "a null came back as a value";
    }
}

TEST(RowsetXmlWrite, NamesThatAreNotXmlNamesGoToRsName)
{
    RowsetData d;
    for (const char* n : {"Rule Name", "1st", "Plain", "plain", "Plain", "xmlish"}) {
        RowsetColumn c;
        c.name = QString::fromLatin1(n);
        c.type = adInteger;
        d.columns.push_back(c);
    }
    d.rows = {{1, 2, 3, 4, 5, 6}};
    const QByteArray xml = RowsetXml::Write(d);
    EXPECT_TRUE(xml.contains("name='c0' rs:name='Rule Name' rs:number='1'")) << xml.toStdString();
    EXPECT_TRUE(xml.contains("name='c1' rs:name='1st'"));
    EXPECT_TRUE(xml.contains("name='Plain' rs:number='3'"));
    EXPECT_TRUE(xml.contains("name='plain' rs:number='4'"));  // XML names are case-sensitive
    EXPECT_TRUE(xml.contains("name='c4' rs:name='Plain'"));
    EXPECT_TRUE(xml.contains("name='c5' rs:name='xmlish'"));
    EXPECT_TRUE(xml.contains("<z:row c0='1' c1='2' Plain='3' plain='4' c4='5' c5='6'/>"));

    const RowsetData back = RowsetXml::Read(xml);
    ASSERT_EQ(back.columns.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(back.columns[i].name, d.columns[i].name);
        EXPECT_EQ(back.rows[0][i].toInt(), static_cast<int>(i) + 1);
    }
}

TEST(RowsetXmlWrite, RefusesWhatItCannotWrite)
{
    struct Case {
        const char* name;
        int type;
        QVariant value;
    };
    const Case cases[] = {
        {"TextInIntColumn", adInteger, QStringLiteral("abc")},
        {"SmallIntOverflow", adSmallInt, 70000},
        {"ByteNegative", adUnsignedTinyInt, -1},
        {"VariantType", adVariant, 1},
        {"ControlCharacter", adVarWChar, QStringLiteral("bell\x07")},
        {"InvalidDate", adDate, QDateTime()},
        {"NotAGuid", adGUID, QStringLiteral("{nope}")},
        {"TextInBooleanColumn", adBoolean, QStringLiteral("maybe")},
        {"LoneSurrogate", adVarWChar, QString(QChar(0xD800))},
    };
    for (const Case& c : cases)
        EXPECT_THROW(RowsetXml::Write(oneColumn(c.type, {{c.value}})), AdoError) << c.name;
    RowsetData ragged = test::RulesRowset();
    ragged.rows[1].pop_back();
    EXPECT_THROW(RowsetXml::Write(ragged), AdoError);
}

TEST(RowsetXmlFile, WriteFileReplacesTheTargetWholeOrNotAtAllAndReadFileNamesIt)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    // Placeholders in the name must reach error descriptions as they are.
    const QString path = dir.filePath(QStringLiteral("rules %1 %2.xml"));
    const auto contents = [&] {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    const auto write = [&](const QByteArray& bytes) {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(bytes);
    };
    write(test::GoldenRulesFile().left(700));
    try {
        RowsetXml::ReadFile(path);
        ADD_FAILURE() << "read a truncated file";
    } catch (const AdoError& e) {
        EXPECT_TRUE(e.Description().startsWith(path + QStringLiteral(", line "))) << e.Description().toStdString();
        EXPECT_TRUE(e.Description().contains(QLatin1String("truncated"))) << e.Description().toStdString();
    }
    write(QByteArray(100000, 'x'));  // longer than the new content
    RowsetXml::WriteFile(test::RulesRowset(), path);
    EXPECT_EQ(contents(), test::GoldenRulesFile());
    EXPECT_EQ(RowsetXml::ReadFile(path).rows.size(), 3u);

    RowsetData bad = test::RulesRowset();
    bad.rows[2][6] = QStringLiteral("high");  // Importance is an i2
    try {
        RowsetXml::WriteFile(bad, path);
        ADD_FAILURE() << "wrote a value that does not fit";
    } catch (const AdoError& e) {
        EXPECT_TRUE(e.Description().contains(QLatin1String("row 3"))) << e.Description().toStdString();
        EXPECT_TRUE(e.Description().contains(QLatin1String("Importance"))) << e.Description().toStdString();
    }
    EXPECT_EQ(contents(), test::GoldenRulesFile());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QFileInfo(path).fileName()});
    EXPECT_THROW(RowsetXml::WriteFile(test::RulesRowset(), dir.filePath(QStringLiteral("no/such/folder/r.xml"))),
                 AdoError);
    const QString missing = dir.filePath(QStringLiteral("missing.xml"));
    try {
        RowsetXml::ReadFile(missing);
        ADD_FAILURE() << "read a missing file";
    } catch (const AdoError& e) {
        EXPECT_TRUE(e.Description().contains(missing)) << e.Description().toStdString();
    }
}

}  // namespace
}  // namespace mv::ado

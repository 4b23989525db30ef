// Each translator on files in its tool's own shape: what maps, and that
// everything else is reported rather than dropped.

#include "tests/support/QtPrinters.h"

#include "importers/MdbImporter.h"
#include "importers/SieveImporter.h"
#include "importers/ThunderbirdImporter.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

namespace mv::importers {
namespace {

// One line per rule with the criteria it got, each followed by its unmapped
// lines ("  ! ..."), then the file's own ("! ..."), so a table row states a
// whole translation.
QStringList Summary(const ImportedRules& rules)
{
    QStringList out;
    for (const ImportedRule& r : rules.rules) {
        QStringList parts{r.record.ruleName + QStringLiteral(" -> ") +
                          (r.destination.HasIds() ? u'#' + r.destination.entryIdHex : r.destination.path)};
        const std::pair<const char*, QString> texts[] = {{"subject", r.record.subject},
                                                         {"from", r.record.fromAddress},
                                                         {"to", r.record.toAddress},
                                                         {"cc", r.record.ccAddress},
                                                         {"body", r.record.message}};
        for (const auto& [label, value] : texts)
            if (!value.isEmpty()) parts << QStringLiteral("%1=%2").arg(QLatin1String(label), value);
        const std::pair<const char*, std::optional<int>> codes[] = {
            {"importance", r.record.importance}, {"status", r.record.status}, {"flag", r.record.flagStatus},
            {"verb", r.record.lastVerb},         {"age", r.record.msgAgeId},  {"days", r.olderThanDays}};
        for (const auto& [label, value] : codes)
            if (value) parts << QStringLiteral("%1=%2").arg(QLatin1String(label)).arg(*value);
        if (r.record.active.value_or(-1) == 0) parts << QStringLiteral("off");
        out << parts.join(u' ');
        for (const QString& u : r.unmapped) out << QStringLiteral("  ! ") + u;
    }
    for (const QString& u : rules.unmapped) out << QStringLiteral("! ") + u;
    return out;
}

struct Case {
    const char* name;
    Result<ImportedRules> (*translate)(const QString& text);
    const char* input;
    // Rule lines exactly; "!" lines (what did not map) by their beginning.
    std::vector<const char*> expected;
};

Result<ImportedRules> FromCsv(const QString& text)
{
    return MdbImporter::FromCsv(text.toUtf8());
}

const Case kCases[] = {
    {"SieveAllOfAnyOfAndStop",
     SieveImporter::FromScript,
     R"x(require ["fileinto"];  # folders
/* lists */ if allof (header :contains "subject" ["[qt]"], address :contains ["to", "cc"] "@qt.io") {
  fileinto "Lists/Qt"; stop;
} elsif anyof (address :contains "from" "boss@work.example", header :contains "From" ["ceo@", "cfo@"]) {
  fileinto "Work";
}
if header :contains "subject" "annual report" { fileinto text: # folder
Reports
..2024
.
; }
if allof (true, header :contains "subject" "x") { fileinto "X"; }
)x",
     {"Lists/Qt (sieve line 2) -> Lists/Qt subject=[qt] to=@qt.io",
      "Work (sieve line 4) -> Work from=boss@work.example;ceo@;cfo@",
      "Reports\r\n.2024\r\n (sieve line 7) -> Reports\r\n.2024\r\n subject=\"annual report\"",
      "X (sieve line 12) -> X subject=x"}},
    {"SieveWhatDoesNotMap",
     SieveImporter::FromScript,
     R"x(if anyof (header :contains "subject" "a", header :contains "from" "b") { fileinto "X"; }
if header :is "subject" "exact" { fileinto "Y"; }
if allof (header :contains "subject" "a", exists "list-id", header :contains "from" "p", address :contains "from" "q@x.example", address :contains "cc" "Bob") {
  fileinto :copy "Z"; addflag "\\Seen";
}
if header :contains "subject" ["one", "two"] { fileinto "W"; fileinto "V"; keep; }
if size :over 100K { discard; }
else { fileinto "Rest"; }
redirect "a@b.example";
)x",
     {"X (sieve line 1) -> X", "  ! line 1: anyof (...): any one of tests on different fields",
      "Y (sieve line 2) -> Y", "  ! line 2: header :is \"subject\" \"exact\": the :is match",
      "Z (sieve line 3) -> Z subject=a from=p", "  ! line 4: fileinto :copy",
      "  ! line 4: the action \"addflag\"", "  ! line 3: exists \"list-id\": the \"exists\" test",
      "  ! line 3: address :contains \"from\" \"q@x.example\": a second from test",
      "  ! line 3: address :contains \"cc\" \"Bob\": \"Bob\" would be matched against names",
      "W (sieve line 6) -> W", "  ! line 6: a second fileinto", "  ! line 6: the action \"keep\"",
      "  ! line 6: header :contains \"subject\" [\"one\", \"two\"]: any one of several subject words",
      "! line 7: if block without fileinto", "! line 8: an else block",
      "! line 9: \"redirect\" outside an if block"}},
    {"ThunderbirdMoveFilters",
     ThunderbirdImporter::FromText,
     R"x(version="9"
logging="no"
name="Qt list"
enabled="yes"
type="17"
action="Move to folder"
actionValue="mailbox://nobody@Local%20Folders/Lists/Qt%20Dev"
action="Stop execution"
condition="AND (subject,contains,\"[qt, dev]\") AND (to or cc,contains,qt.io) AND (body,contains,release)"
name="Old important"
enabled="no"
type="1"
action="Move to folder"
actionValue="imap://me@mail.example/INBOX/Archive"
condition="AND (priority,isgreaterthan,Normal) AND (status,is,read) AND (status,isn't,flagged) AND (status,is,replied) AND (age in days,isgreaterthan,14)"
name="Family"
enabled="yes"
type="17"
action="Move to folder"
actionValue="mailbox://nobody@Local%20Folders/Family"
condition="OR (from,contains,mum@) OR (from,contains,dad@)"
name="All"
enabled="yes"
type="16"
action="Move to folder"
actionValue="mailbox://nobody@Local%20Folders/Everything"
condition="ALL"
)x",
     {"Qt list -> Lists/Qt Dev subject=\"[qt, dev]\" to=qt.io body=release",
      "Old important -> INBOX/Archive importance=2 status=1 flag=9 verb=102 days=14 off",
      "Family -> Family from=mum@;dad@", "All -> Everything"}},
    {"ThunderbirdWhatDoesNotMap",
     ThunderbirdImporter::FromText,
     R"x(version="9"
name="Mixed"
action="Move to folder"
actionValue="mailbox://nobody@Local%20Folders/M"
action="Mark read"
condition="OR (subject,contains,a) OR (status,is,read)"
name="Exact"
action="Move to folder"
actionValue="mailbox://nobody@Local%20Folders/E"
condition="AND (subject,is,hello) AND (from,contains,a) AND (from,contains,b) AND (age in days,islessthan,3) AND (priority,is,Highest) AND (\"X-Spam\",contains,yes)"
name="Copy only"
action="Copy to folder"
actionValue="mailbox://nobody@Local%20Folders/C"
condition="AND (subject,contains,c)"
)x",
     {"Mixed -> M", "  ! the action \"Mark read\"",
      "  ! (status,is,read): only text tests can be alternatives", "Exact -> E from=a importance=2",
      "  ! (subject,is,hello): the \"is\" match", "  ! (from,contains,b): a second from test",
      "  ! (age in days,islessthan,3): rules take mail older",
      "  ! (\"X-Spam\",contains,yes): the field \"X-Spam\"",
      "! line 11: the filter \"Copy only\" moves no mail"}},
    {"MdbRowsInSortOrderOldLayoutAndStrays",
     FromCsv,
     "RuleID,RuleName,FromAddress,ToAddress,CcAddress,Subject,Importance,Status,FlagStatus,MsgAgeID,"
     "SrcEntryID,"
     "SrcStoreID,DstEntryID,DstStoreID,Active,SortID,Colour\n"
     "7,\"Second\",\"a@b.example;c@d.example\",\"\",\"\",\"budget \"\"annual "
     "report\"\"\",3,0,0,8,\"00AA\",\"01BB\","
     "\"00CC\",\"01BB\",0,2,\"red\"\n"
     "3,\"First, with comma\",,,,\"multi\nline\",2,x,9,13,\"00AA\",\"01BB\",\"00DD\",\"01BB\",1,1,\n",
     {"First, with comma -> #00DD subject=multi\nline importance=2 flag=9 age=13",
      "  ! Status: \"x\" is not a number",
      "Second -> #00CC subject=budget \"annual report\" from=a@b.example;c@d.example importance=3 status=0 "
      "flag=0 age=8 off",
      "! the column Colour is not one a rule has"}},
};

// Parameters print as their names in test listings.
void PrintTo(const Case& c, std::ostream* os)
{
    *os << c.name;
}

class Translate : public testing::TestWithParam<Case> {};

TEST_P(Translate, MapsWhatFitsAndReportsTheRest)
{
    const Case& c = GetParam();
    auto rules = c.translate(QString::fromUtf8(c.input));
    ASSERT_TRUE(rules) << rules.error().message.toStdString();
    const QStringList got = Summary(*rules);
    for (size_t i = 0; i < std::max<size_t>(got.size(), c.expected.size()); ++i) {
        const QString want = i < c.expected.size() ? QString::fromUtf8(c.expected[i]) : QString();
        const QString line = got.value(static_cast<qsizetype>(i));
        if (want.trimmed().startsWith(u'!'))
            EXPECT_TRUE(line.startsWith(want)) << "line " << i << ": " << line.toStdString();
        else
            EXPECT_EQ(line, want) << "line " << i;
    }
    EXPECT_EQ(rules->Complete(),
              c.expected.end() == std::find_if(c.expected.begin(), c.expected.end(), [](const char* e) {
                  return QString::fromUtf8(e).trimmed().startsWith(u'!');
              }));
}

INSTANTIATE_TEST_SUITE_P(Formats, Translate, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

struct Refusal {
    const char* name;
    Result<ImportedRules> (*translate)(const QString& text);
    const char* input;
    const char* error;
};

const Refusal kRefusals[] = {
    {"SieveUnclosedString", SieveImporter::FromScript,
     "if header :contains \"subject\" \"x { fileinto \"A\"; }\n", "line 1: a string that is never closed"},
    {"SieveUnclosedComment", SieveImporter::FromScript, "\n/* never\n closed",
     "line 2: a comment \"/*\" that is never closed"},
    {"SieveMissingSemicolon", SieveImporter::FromScript, "fileinto \"A\"\n",
     "line 2: expected \";\" or a block"},
    {"SieveUnclosedBlock", SieveImporter::FromScript, "if true {\n fileinto \"A\";\n",
     "line 3: expected \"}\" before the end"},
    {"SieveTextWithoutDot", SieveImporter::FromScript, "fileinto text:\nA\n",
     "line 1: a \"text:\" string without"},
    {"ThunderbirdNotAFilterList", ThunderbirdImporter::FromText, "[General]\nname=x\n",
     "line 1: not a filter list"},
    {"MdbWithoutFolderColumns", FromCsv, "RuleID,RuleName\n1,\"x\"\n",
     "the Rules table has no SrcEntryID column"},
};

// Parameters print as their names in test listings.
void PrintTo(const Refusal& c, std::ostream* os)
{
    *os << c.name;
}

class Refuse : public testing::TestWithParam<Refusal> {};

TEST_P(Refuse, NamesTheReason)
{
    auto rules = GetParam().translate(QString::fromUtf8(GetParam().input));
    ASSERT_FALSE(rules);
    EXPECT_TRUE(rules.error().message.startsWith(QString::fromUtf8(GetParam().error)))
        << rules.error().message.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Formats, Refuse, testing::ValuesIn(kRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

// Real files that are not the earlier release's Jet database, each refused
// with its own reason before or by mdbtools.
TEST(MdbFile, NamesTheRealReason)
{
    QTemporaryDir dir;
    const auto write = [&](const char* name, const QByteArray& bytes) {
        QFile f(dir.filePath(QLatin1String(name)));
        EXPECT_TRUE(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size());
        return f.fileName();
    };
    const QString sqlite = write("mine.mdb", QByteArray("SQLite format 3\0", 16) + QByteArray(100, '\0'));
    const QString text = write("notes.mdb", "these are notes, not rules\n");
    const QString broken =
        write("broken.mdb", QByteArray("\0\1\0\0Standard Jet DB\0", 20) + QByteArray(300, '\x55'));
    const struct {
        QString path;
        QString toolDir;
        const char* reason;
    } rows[] = {
        {dir.filePath(QStringLiteral("absent.mdb")), {}, "cannot read"},
        {sqlite, {}, "is a rule database of this program (SQLite), not a Jet file"},
        {text, {}, "is not a Jet database"},
        {broken, dir.path(), "mdb-tables was not found: mdbtools reads Jet files and is not installed"},
        {broken, {}, "mdb-tables could not read the file"},
    };
    for (const auto& r : rows) {
        auto rules = MdbImporter(r.toolDir).FromFile(r.path);
        ASSERT_FALSE(rules) << r.reason;
        EXPECT_TRUE(rules.error().message.contains(QString::fromUtf8(r.reason)))
            << rules.error().message.toStdString();
    }
}

}  // namespace
}  // namespace mv::importers

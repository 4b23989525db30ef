// The writer on a memory store (Inbox, Sent, Drafts, Trash, Archive): how
// folders, age windows and defaults resolve, and that whatever does not
// resolve leaves the rule switched off and says why.

#include "importers/RuleImportWriter.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/stores/memory/MemoryStore.h"

#include <gtest/gtest.h>

namespace mv::importers {
namespace {

const std::initializer_list<const char*> kColumns = {
    "RuleID",     "RuleName",   "FromAddress", "ToAddress", "CcAddress",  "Subject",
    "Importance", "Status",     "FlagStatus",  "MsgAgeID",  "SrcEntryID", "SrcStoreID",
    "DstEntryID", "DstStoreID", "Active",      "SortID",    "LastVerb",   "Message"};
const std::vector<AgeWindowRow> kAges = {
    {5, "d", -1}, {7, "ww", -1}, {8, "ww", -2}, {13, "x", 0}, {15, "d", -3}};

ForeignFolder Path(const char* path)
{
    ForeignFolder f;
    f.path = QString::fromUtf8(path);
    return f;
}

ForeignFolder Ids(const QString& entry, const QString& store)
{
    ForeignFolder f;
    f.entryIdHex = entry;
    f.storeIdHex = store;
    return f;
}

ado::RowsetData Schema(std::initializer_list<const char*> names)
{
    ado::RowsetData schema;
    for (const char* name : names) {
        schema.columns.emplace_back();
        schema.columns.back().name = QLatin1String(name);
    }
    return schema;
}

struct Case {
    const char* name;
    ForeignFolder destination;
    std::optional<int> olderThanDays, msgAgeId;
    bool createFolders;
    const char* resolvedPath;  // the destination's path in the store afterwards; "" for none
    int msgAge;
    const char* unmapped;  // the beginning of the one line added, or "" when it resolves
};

const Case kCases[] = {
    {"ExistingFolder", Path("Archive"), {}, {}, false, "Archive", 13, ""},
    {"DottedServerSpelling", Path("INBOX.archive"), 14, {}, false, "Archive", 8, ""},
    {"DaysWindow", Path("Archive"), 3, {}, false, "Archive", 15, ""},
    {"NoWindowOfThatLength",
     Path("Archive"),
     10,
     {},
     false,
     "Archive",
     13,
     "older than 10 days: no age window"},
    {"StoredWindowUnknownHere", Path("Archive"), {}, 99, false, "Archive", 13, "the age window 99 is not"},
    {"MissingFolderListed",
     Path("Lists/Qt"),
     {},
     {},
     false,
     "",
     13,
     "the folder \"Lists/Qt\" does not exist"},
    {"MissingFolderCreated", Path("Lists/Qt"), {}, 5, true, "Lists/Qt", 5, ""},
    {"NoDestinationIsNotTheInbox", Path(""), {}, {}, false, "", 13, "no destination folder"},
    {"StoredIdsOfAnotherProfile",
     Ids(QStringLiteral("00AA"), QStringLiteral("01BB")),
     {},
     {},
     false,
     "",
     13,
     "the destination folder (entry 00AA)"},
};

// Parameters print as their names in test listings.
void PrintTo(const Case& c, std::ostream* os)
{
    *os << c.name;
}

class Write : public testing::TestWithParam<Case> {};

TEST_P(Write, ResolvesFoldersAndWindows)
{
    const Case& c = GetParam();
    stores::MemoryStore store;
    const ado::RowsetData schema = Schema(kColumns);
    ImportedRules rules;
    ImportedRule rule;
    rule.record.ruleName = QStringLiteral("R");
    rule.record.subject = QStringLiteral("s");
    rule.record.status = 1;
    rule.record.msgAgeId = c.msgAgeId;
    rule.olderThanDays = c.olderThanDays;
    rule.destination = c.destination;
    rules.rules.push_back(rule);

    RuleImportWriter writer(store, {&store}, kAges, c.createFolders);
    auto rows = writer.Rows(rules, schema, 41);
    ASSERT_TRUE(rows) << rows.error().message.toStdString();
    ASSERT_EQ(rows->rows.size(), 1u);
    const auto value = [&](const char* column) {
        return rows->rows[0][schema.columnIndex(QLatin1String(column))];
    };
    const QString storeHex = mapi::MapiUtils::HrGetHexFromBinary(store.StoreId());
    EXPECT_FALSE(value("RuleID").isValid());
    EXPECT_EQ(value("SrcEntryID").toString(), mapi::MapiUtils::HrGetHexFromBinary(store.InboxId()));
    EXPECT_EQ(value("SrcStoreID").toString(), storeHex);
    const QByteArray dst = store.FolderIdByPath(QString::fromUtf8(c.resolvedPath));
    if (!dst.isEmpty()) {
        EXPECT_EQ(value("DstEntryID").toString(), mapi::MapiUtils::HrGetHexFromBinary(dst));
        EXPECT_EQ(value("DstStoreID").toString(), storeHex);
    } else {
        EXPECT_EQ(value("DstEntryID").toString(), c.destination.entryIdHex);
    }
    EXPECT_EQ(value("MsgAgeID").toInt(), c.msgAge);
    EXPECT_EQ(value("SortID").toInt(), 41);
    EXPECT_EQ(value("Subject").toString(), QStringLiteral("s"));
    EXPECT_EQ(value("Status").toInt(), 1);
    // Unset criteria carry their "no criterion" codes.
    EXPECT_EQ(value("Importance").toInt(), 3);
    EXPECT_EQ(value("FlagStatus").toInt(), 0);
    EXPECT_EQ(value("LastVerb").toInt(), 0);
    EXPECT_EQ(value("FromAddress").toString(), QString());
    const bool clean = *c.unmapped == '\0';
    EXPECT_EQ(value("Active").toInt(), clean ? -1 : 0);
    ASSERT_EQ(rules.rules[0].unmapped.size(), clean ? 0 : 1);
    if (!clean) {
        EXPECT_TRUE(rules.rules[0].unmapped[0].startsWith(QString::fromUtf8(c.unmapped)))
            << rules.rules[0].unmapped[0].toStdString();
    }
    EXPECT_EQ(writer.Created(), c.createFolders ? QStringList({"Lists", "Lists/Qt"}) : QStringList());
    EXPECT_EQ(writer.Missing().isEmpty(), dst.isEmpty() == c.destination.path.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Writer, Write, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Writer, KeepsStoredFoldersThisProfileHas)
{
    stores::MemoryStore store;
    const ado::RowsetData schema = Schema({"SrcEntryID", "SrcStoreID", "DstEntryID", "DstStoreID", "Active"});
    const QString storeHex = mapi::MapiUtils::HrGetHexFromBinary(store.StoreId());
    ImportedRules rules;
    rules.rules.resize(1);
    // No store named: any store of the profile, as in a run.
    rules.rules[0].source = Ids(mapi::MapiUtils::HrGetHexFromBinary(store.FolderIdByPath("Sent")), {});
    rules.rules[0].destination =
        Ids(mapi::MapiUtils::HrGetHexFromBinary(store.FolderIdByPath("Trash")), storeHex);
    auto rows = RuleImportWriter(store, {&store}, kAges, false).Rows(rules, schema, 1);
    ASSERT_TRUE(rows);
    EXPECT_EQ(rows->rows[0][0].toString(), rules.rules[0].source.entryIdHex);
    EXPECT_EQ(rows->rows[0][1].toString(), storeHex);
    EXPECT_EQ(rows->rows[0][2].toString(), rules.rules[0].destination.entryIdHex);
    EXPECT_EQ(rows->rows[0][4].toInt(), -1);
    EXPECT_TRUE(rules.Complete());
}

}  // namespace
}  // namespace mv::importers

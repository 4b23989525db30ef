#include "engine/RuleRestriction.h"

#include <gtest/gtest.h>

#include <iterator>

using namespace mv::engine;
using namespace mv::mapi;

namespace {

RuleRecord Unset()
{
    RuleRecord r;
    r.importance = kImportanceDontCare;
    r.status = kStatusDontCare;
    r.flagStatus = kFlagDontCare;
    r.lastVerb = kLastVerbDontCare;
    r.msgAgeId = kMsgAgeAnyTime;
    r.timeField = "x";
    r.timeDiff = 0;
    return r;
}

Restriction Build(const RuleRecord& rule, std::optional<QDateTime> cut = std::nullopt)
{
    Restriction root(RES_AND);
    AddRuleCriteria(rule, cut, root);
    return root;
}

const Restriction& Child(const Restriction& r, size_t i)
{
    return *std::next(r.children().begin(), static_cast<long>(i));
}

void ExpectContent(const Restriction& r, PropTag tag, const QString& term)
{
    EXPECT_EQ(r.kind, RES_CONTENT);
    EXPECT_EQ(r.propTag, tag);
    EXPECT_EQ(r.fuzzyLevel, FL_SUBSTRING | FL_IGNORECASE);
    EXPECT_EQ(r.value.toString(), term);
}

}  // namespace

TEST(RuleRestriction, NoCriterionLeavesTheRootEmpty)
{
    EXPECT_TRUE(Build(Unset()).children().empty());
}

TEST(RuleRestriction, EveryCriterionInItsOrder)
{
    RuleRecord r = Unset();
    r.subject = "budget";
    r.fromAddress = "ann@example.org";
    r.toAddress = "Bob";
    r.ccAddress = "carol@example.org";
    r.message = "invoice";
    r.status = 0;
    r.flagStatus = 2;
    r.importance = 2;
    r.lastVerb = 104;
    const QDateTime cut(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC);
    const Restriction root = Build(r, cut);

    ASSERT_EQ(root.children().size(), 10u);
    EXPECT_EQ(Child(root, 0).kind, RES_PROPERTY);
    EXPECT_EQ(Child(root, 0).relop, RELOP_LT);
    EXPECT_EQ(Child(root, 0).propTag, PR_MESSAGE_DELIVERY_TIME);
    EXPECT_EQ(Child(root, 0).value.toDateTime(), cut);
    ExpectContent(Child(root, 1), PR_SUBJECT, "budget");
    ExpectContent(Child(root, 2), PR_SENT_REPRESENTING_EMAIL_ADDRESS, "ann@example.org");
    EXPECT_EQ(Child(root, 3).kind, RES_SUBRESTRICTION);
    EXPECT_EQ(Child(root, 3).propTag, PR_MESSAGE_RECIPIENTS);
    ExpectContent(Child(Child(root, 3), 0), PR_DISPLAY_NAME, "Bob");
    ExpectContent(Child(root, 4), PR_DISPLAY_CC, "carol@example.org");
    ExpectContent(Child(root, 5), PR_BODY, "invoice");
    EXPECT_EQ(Child(root, 6).kind, RES_BITMASK);
    EXPECT_EQ(Child(root, 6).relop, BMR_EQZ);
    EXPECT_EQ(Child(root, 6).mask, 1u);
    EXPECT_EQ(Child(root, 7).propTag, PR_FLAG_STATUS);
    EXPECT_EQ(Child(root, 7).value.toInt(), 2);
    EXPECT_EQ(Child(root, 8).propTag, PR_IMPORTANCE);
    EXPECT_EQ(Child(root, 9).propTag, PR_LAST_VERB_EXECUTED);
    EXPECT_EQ(Child(root, 9).value.toInt(), 104);
}

TEST(RuleRestriction, SeveralWordsAreAndedAndOneWordStandsAlone)
{
    RuleRecord r = Unset();
    r.subject = R"(budget "annual report")";
    const Restriction root = Build(r);
    ASSERT_EQ(root.children().size(), 1u);
    const Restriction& all = Child(root, 0);
    EXPECT_EQ(all.kind, RES_AND);
    ASSERT_EQ(all.children().size(), 2u);
    ExpectContent(Child(all, 1), PR_SUBJECT, "annual report");

    r.subject = R"("quoted")";  // no space: the text as it stands
    ExpectContent(Child(Build(r), 0), PR_SUBJECT, R"("quoted")");
}

TEST(RuleRestriction, AddressListsBecomeOrsWithTagsByTermKind)
{
    RuleRecord r = Unset();
    r.fromAddress = "Ann Smith;;/o=Org/ou=Site/cn=bob";
    const Restriction root = Build(r);
    const Restriction& any = Child(root, 0);
    EXPECT_EQ(any.kind, RES_OR);
    ASSERT_EQ(any.children().size(), 3u);
    ExpectContent(Child(any, 0), PR_SENT_REPRESENTING_NAME, "Ann Smith");
    ExpectContent(Child(any, 1), PR_SENT_REPRESENTING_NAME, "");  // the empty term is passed on
    ExpectContent(Child(any, 2), PR_SENT_REPRESENTING_EMAIL_ADDRESS, "/o=Org/ou=Site/cn=bob");

    r = Unset();
    r.ccAddress = "Dave;eve@example.org";  // copy recipients: always the display string
    const Restriction ccRoot = Build(r);
    ExpectContent(Child(Child(ccRoot, 0), 1), PR_DISPLAY_CC, "eve@example.org");
}

TEST(RuleRestriction, FlagAndVerbCodes)
{
    RuleRecord r = Unset();
    r.flagStatus = 9;
    const Restriction none = Build(r);
    const Restriction& both = Child(none, 0);
    EXPECT_EQ(both.kind, RES_AND);
    EXPECT_EQ(Child(both, 0).relop, RELOP_NE);
    EXPECT_EQ(Child(both, 0).value.toInt(), 1);
    EXPECT_EQ(Child(both, 1).value.toInt(), 2);

    r.flagStatus = 16;  // red
    EXPECT_EQ(Child(Build(r), 0).propTag, PR_FLAG_ICON);
    EXPECT_EQ(Child(Build(r), 0).value.toInt(), 6);

    r = Unset();
    r.lastVerb = 102;
    const Restriction replied = Build(r);
    EXPECT_EQ(Child(replied, 0).kind, RES_OR);
    EXPECT_EQ(Child(Child(replied, 0), 1).value.toInt(), 103);

    r = Unset();
    r.status = 5;
    r.importance = 7;
    r.flagStatus = -1;
    EXPECT_TRUE(Build(r).children().empty());
}

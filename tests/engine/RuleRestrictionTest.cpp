// The restriction a rule row becomes. That every store answers these shapes
// alike is the conformance suite's business.

#include "engine/RuleRestriction.h"

#include <gtest/gtest.h>

#include <functional>

namespace mv::mapi {
void PrintTo(const Restriction& r, std::ostream* os) { *os << r.ToString().toStdString(); }
}  // namespace mv::mapi

using namespace mv::engine;
using namespace mv::mapi;
using R = Restriction;

namespace {

struct RestrictionCase {
    const char* name;
    std::function<void(RuleRecord&)> set;
    std::list<Restriction> expected;  // the children of the rule's AND
};

const QDateTime kCut(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC);

R Eq(PropTag tag, int v) { return R::Property(RELOP_EQ, tag, v); }

const RestrictionCase kCases[] = {
    {"NoCriterion", [](RuleRecord&) {}, {}},
    {"OtherCodesMeanDontCare",
     [](RuleRecord& r) {
         r.status = 5;
         r.importance = 7;
         r.flagStatus = -1;
     },
     {}},
    // What the end-to-end runs do not take: a recipient's name, unread mail.
    {"ToByNameAndUnread",
     [](RuleRecord& r) {
         r.toAddress = "Bob";
         r.status = 0;
     },
     {R::Sub(PR_MESSAGE_RECIPIENTS, R::Content(PR_DISPLAY_NAME, "Bob")),
      R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ)}},
    {"SeveralWordsAreAnded",
     [](RuleRecord& r) { r.subject = R"(budget "annual report")"; },
     {R::And({R::Content(PR_SUBJECT, "budget"), R::Content(PR_SUBJECT, "annual report")})}},
    {"OneQuotedWordStandsAsItIs", [](RuleRecord& r) { r.subject = R"("quoted")"; },
     {R::Content(PR_SUBJECT, R"("quoted")")}},
    {"AddressListsBecomeOrsTaggedByTermKind", [](RuleRecord& r) { r.fromAddress = "Ann Smith;;/o=Org/ou=Site/cn=bob"; },
     {R::Or({R::Content(PR_SENT_REPRESENTING_NAME, "Ann Smith"), R::Content(PR_SENT_REPRESENTING_NAME, ""),
             R::Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, "/o=Org/ou=Site/cn=bob")})}},
    {"CopyRecipientsAlwaysTheDisplayString", [](RuleRecord& r) { r.ccAddress = "Dave;eve@example.org"; },
     {R::Or({R::Content(PR_DISPLAY_CC, "Dave"), R::Content(PR_DISPLAY_CC, "eve@example.org")})}},
    {"NoFlagSet", [](RuleRecord& r) { r.flagStatus = 9; },
     {R::And({R::Property(RELOP_NE, PR_FLAG_STATUS, 1), R::Property(RELOP_NE, PR_FLAG_STATUS, 2)})}},
    {"RedFlag", [](RuleRecord& r) { r.flagStatus = 16; }, {Eq(PR_FLAG_ICON, 6)}},
    {"RepliedToAll", [](RuleRecord& r) { r.lastVerb = 102; },
     {R::Or({Eq(PR_LAST_VERB_EXECUTED, 102), Eq(PR_LAST_VERB_EXECUTED, 103)})}},
};

class RuleRestrictionTest : public ::testing::TestWithParam<RestrictionCase> {};

}  // namespace

TEST_P(RuleRestrictionTest, Builds)
{
    RuleRecord r;
    r.importance = kImportanceDontCare;
    r.status = kStatusDontCare;
    r.flagStatus = kFlagDontCare;
    r.lastVerb = kLastVerbDontCare;
    r.msgAgeId = kMsgAgeAnyTime;
    r.timeField = "x";
    r.timeDiff = 0;
    GetParam().set(r);
    Restriction root(RES_AND);
    AddRuleCriteria(r, r.msgAgeId == kMsgAgeAnyTime ? std::nullopt : std::optional<QDateTime>(kCut), root);
    EXPECT_EQ(root, R::And(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(Rules, RuleRestrictionTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

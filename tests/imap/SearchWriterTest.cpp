// The restriction -> UID SEARCH translation, as text, without a server.
#include "platform/mapi/Restriction.h"
#include "platform/stores/imap/SearchWriter.h"

#include <gtest/gtest.h>

using namespace mv::mapi;
using mv::stores::SearchOptions;
using mv::stores::SearchWriter;

namespace {

const QDateTime kNow(QDate(2026, 11, 1), QTime(12, 0), Qt::UTC);
using R = Restriction;

struct Case {
    const char* name;
    Restriction restriction;
    QByteArray keys;
    bool exact;
    SearchOptions options = {false, false, kNow};
};

R Content(PropTag tag, const char* term) { return R::Content(tag, QString::fromUtf8(term)); }
R Eq(PropTag tag, const QVariant& value) { return R::Property(RELOP_EQ, tag, value); }
R Before(const QDateTime& cutOff) { return R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, cutOff); }
R Flag(BitmaskRelop relop, int bit) { return R::Bitmask(relop, PR_MESSAGE_FLAGS, bit); }

const Case kCases[] = {
    {"EmptyAndIsAll", R(RES_AND), "ALL", true},
    {"EmptyOrMatchesNothing", R(RES_OR), "NOT ALL", true},
    {"SubjectWord", Content(PR_SUBJECT, "budget"), "SUBJECT \"budget\"", false},
    {"SubjectWordsAllNeeded", R::And({Content(PR_SUBJECT, "q3"), Content(PR_SUBJECT, "budget")}),
     "SUBJECT \"q3\" SUBJECT \"budget\"", false},
    {"BodyTerm", Content(PR_BODY, "invoice"), "BODY \"invoice\"", false},
    {"QuotesAndBackslashesEscaped", Content(PR_SUBJECT, "say \"hi\" a\\b"), "SUBJECT \"say \\\"hi\\\" a\\\\b\"", false},
    {"EmptyTermIsWiderNotEmpty", Content(PR_SUBJECT, ""), "ALL", false},
    {"SendersFoldIntoBinaryOr",
     R::Or({Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, "a@x.org"), Content(PR_SENT_REPRESENTING_NAME, "Bob"),
            Content(PR_SENT_REPRESENTING_NAME, "Carol")}),
     "OR FROM \"a@x.org\" OR FROM \"Bob\" FROM \"Carol\"", false},
    {"RecipientTermSearchesAllThreeHeaders", R::Sub(PR_MESSAGE_RECIPIENTS, Content(PR_DISPLAY_NAME, "Dave")),
     "OR TO \"Dave\" OR CC \"Dave\" BCC \"Dave\"", false},
    {"CopyRecipientsOnlyInCc", Content(PR_DISPLAY_CC, "dave@x.org"), "CC \"dave@x.org\"", false},
    {"Unread", Flag(BMR_EQZ, MSGFLAG_READ), "UNSEEN", true},
    {"Read", Flag(BMR_NEZ, MSGFLAG_READ), "SEEN", true},
    {"OtherMessageFlagBitsAreLeftToTheCheck", Flag(BMR_NEZ, MSGFLAG_UNSENT), "ALL", false},
    {"Flagged", Eq(PR_FLAG_STATUS, 2), "FLAGGED", true},
    {"CompletedIsNotFlagged", Eq(PR_FLAG_STATUS, 1), "UNFLAGGED KEYWORD $Completed", true},
    {"NeitherFlaggedNorCompleted", R::And({R::Property(RELOP_NE, PR_FLAG_STATUS, 1), R::Property(RELOP_NE, PR_FLAG_STATUS, 2)}),
     "OR FLAGGED UNKEYWORD $Completed UNFLAGGED", true},
    {"RedFlagHasNoColourBits", Eq(PR_FLAG_ICON, 6),
     "FLAGGED UNKEYWORD $MailFlagBit0 UNKEYWORD $MailFlagBit1 UNKEYWORD $MailFlagBit2", true},
    {"OrangeFlagIsBitZero", Eq(PR_FLAG_ICON, 2),
     "FLAGGED KEYWORD $MailFlagBit0 UNKEYWORD $MailFlagBit1 UNKEYWORD $MailFlagBit2", true},
    {"RepliedToSenderOrAll", R::Or({Eq(PR_LAST_VERB_EXECUTED, 102), Eq(PR_LAST_VERB_EXECUTED, 103)}), "ANSWERED", true},
    {"ForwardedButNotAnswered", Eq(PR_LAST_VERB_EXECUTED, 104), "UNANSWERED KEYWORD $Forwarded", true},
    {"HighImportanceFromEitherHeader", Eq(PR_IMPORTANCE, 2),
     "OR HEADER Importance \"high\" OR HEADER X-Priority \"1\" HEADER X-Priority \"2\"", false},
    {"NormalImportanceCannotBeSearched", Eq(PR_IMPORTANCE, 1), "ALL", false},
    {"OlderThanWithoutWithinIsDayGranularAndWider", Before(QDateTime(QDate(2026, 10, 1), QTime(23, 30), Qt::UTC)),
     "BEFORE 3-Oct-2026", false},
    {"OlderThanWithWithinLeavesSlack", Before(kNow.addSecs(-3600)), "OLDER 3300", false, {true, false, kNow}},
    {"CutOffInTheFutureMatchesEverything", Before(kNow.addDays(1)), "ALL", false, {true, false, kNow}},
    {"NotOfExactKey", R::Not(Flag(BMR_NEZ, MSGFLAG_READ)), "NOT SEEN", true},
    {"NotOfWiderKeyMustNotNarrow", R::Not(Content(PR_SUBJECT, "x")), "ALL", false},
    {"CompoundOperandsAreParenthesised", R::Or({Eq(PR_FLAG_STATUS, 1), Flag(BMR_EQZ, MSGFLAG_READ)}),
     "OR (UNFLAGGED KEYWORD $Completed) UNSEEN", true},
    {"UnsearchablePartStillNeedsTheCheck", R::And({Flag(BMR_NEZ, MSGFLAG_READ), Eq(PR_IMPORTANCE, 1)}), "SEEN", false},
    {"UnknownPropertyIsLeftToTheCheck", Content(PR_MESSAGE_CLASS, "IPM.Note"), "ALL", false},
};

class SearchWriterTable : public ::testing::TestWithParam<Case> {};

TEST_P(SearchWriterTable, WritesKeys)
{
    const Case& c = GetParam();
    const auto keys = SearchWriter(c.options).Write(&c.restriction);
    EXPECT_EQ(keys.text.toStdString(), c.keys.toStdString()) << c.restriction.ToString().toStdString();
    EXPECT_EQ(keys.exact, c.exact);
    EXPECT_FALSE(keys.utf8);
}

INSTANTIATE_TEST_SUITE_P(Restrictions, SearchWriterTable, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SearchWriter, NoRestrictionAndNonAsciiTerms)
{
    const auto all = SearchWriter({}).Write(nullptr);
    EXPECT_TRUE(all.exact);
    EXPECT_EQ(SearchWriter::Command(all), "UID SEARCH UNDELETED");

    const Restriction r = Restriction::Content(PR_SUBJECT, QStringLiteral("caf\u00e9"));
    const auto plus = SearchWriter({false, true, kNow}).Write(&r);
    EXPECT_TRUE(plus.utf8);
    EXPECT_EQ(SearchWriter::Command(plus), "UID SEARCH CHARSET UTF-8 UNDELETED SUBJECT {5+}\r\ncaf\xc3\xa9");
    // Without LITERAL+ a synchronising literal would need a round trip per term.
    EXPECT_EQ(SearchWriter({false, false, kNow}).Write(&r).text, "SUBJECT \"caf\xc3\xa9\"");
}

}  // namespace

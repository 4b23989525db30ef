// The restriction -> UID SEARCH translation, as text, without a server.
#include "platform/mapi/Restriction.h"
#include "platform/stores/imap/SearchWriter.h"

#include <gtest/gtest.h>

using namespace mv::mapi;
using mv::stores::SearchOptions;
using mv::stores::SearchWriter;

namespace {

const QDateTime kNow(QDate(2026, 11, 1), QTime(12, 0), Qt::UTC);

struct Case {
    const char* name;
    std::function<Restriction()> build;
    QByteArray keys;
    bool exact;
    SearchOptions options = {false, false, kNow};
};

Restriction Recipients(std::list<Restriction> terms)
{
    return Restriction::Sub(PR_MESSAGE_RECIPIENTS, terms.size() == 1 ? terms.front() : Restriction::Or(terms));
}

const Case kCases[] = {
    {"EmptyAndIsAll", [] { return Restriction(RES_AND); }, "ALL", true},
    {"EmptyOrMatchesNothing", [] { return Restriction(RES_OR); }, "NOT ALL", true},
    {"SubjectWord", [] { return Restriction::Content(PR_SUBJECT, QStringLiteral("budget")); }, "SUBJECT \"budget\"", false},
    {"SubjectWordsAllNeeded",
     [] { return Restriction::And({Restriction::Content(PR_SUBJECT, QStringLiteral("q3")), Restriction::Content(PR_SUBJECT, QStringLiteral("budget"))}); },
     "SUBJECT \"q3\" SUBJECT \"budget\"", false},
    {"BodyTerm", [] { return Restriction::Content(PR_BODY, QStringLiteral("invoice")); }, "BODY \"invoice\"", false},
    {"QuotesAndBackslashesEscaped", [] { return Restriction::Content(PR_SUBJECT, QStringLiteral("say \"hi\" a\\b")); },
     "SUBJECT \"say \\\"hi\\\" a\\\\b\"", false},
    {"EmptyTermIsWiderNotEmpty", [] { return Restriction::Content(PR_SUBJECT, QString()); }, "ALL", false},
    {"SendersFoldIntoBinaryOr",
     [] {
         return Restriction::Or({Restriction::Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, QStringLiteral("a@x.org")),
                                 Restriction::Content(PR_SENT_REPRESENTING_NAME, QStringLiteral("Bob")),
                                 Restriction::Content(PR_SENT_REPRESENTING_NAME, QStringLiteral("Carol"))});
     },
     "OR FROM \"a@x.org\" OR FROM \"Bob\" FROM \"Carol\"", false},
    {"RecipientTermSearchesAllThreeHeaders", [] { return Recipients({Restriction::Content(PR_DISPLAY_NAME, QStringLiteral("Dave"))}); },
     "OR TO \"Dave\" OR CC \"Dave\" BCC \"Dave\"", false},
    {"CopyRecipientsOnlyInCc", [] { return Restriction::Content(PR_DISPLAY_CC, QStringLiteral("dave@x.org")); }, "CC \"dave@x.org\"", false},
    {"Unread", [] { return Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ); }, "UNSEEN", true},
    {"Read", [] { return Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ); }, "SEEN", true},
    {"OtherMessageFlagBitsAreLeftToTheCheck", [] { return Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_UNSENT); }, "ALL", false},
    {"Flagged", [] { return Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 2); }, "FLAGGED", true},
    {"CompletedIsNotFlagged", [] { return Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 1); },
     "UNFLAGGED KEYWORD $Completed", true},
    {"NeitherFlaggedNorCompleted",
     [] { return Restriction::And({Restriction::Property(RELOP_NE, PR_FLAG_STATUS, 1), Restriction::Property(RELOP_NE, PR_FLAG_STATUS, 2)}); },
     "OR FLAGGED UNKEYWORD $Completed UNFLAGGED", true},
    {"RedFlagHasNoColourBits", [] { return Restriction::Property(RELOP_EQ, PR_FLAG_ICON, 6); },
     "FLAGGED UNKEYWORD $MailFlagBit0 UNKEYWORD $MailFlagBit1 UNKEYWORD $MailFlagBit2", true},
    {"OrangeFlagIsBitZero", [] { return Restriction::Property(RELOP_EQ, PR_FLAG_ICON, 2); },
     "FLAGGED KEYWORD $MailFlagBit0 UNKEYWORD $MailFlagBit1 UNKEYWORD $MailFlagBit2", true},
    {"RepliedToSenderOrAll",
     [] {
         return Restriction::Or({Restriction::Property(RELOP_EQ, PR_LAST_VERB_EXECUTED, 102),
                                 Restriction::Property(RELOP_EQ, PR_LAST_VERB_EXECUTED, 103)});
     },
     "ANSWERED", true},
    {"ForwardedButNotAnswered", [] { return Restriction::Property(RELOP_EQ, PR_LAST_VERB_EXECUTED, 104); },
     "UNANSWERED KEYWORD $Forwarded", true},
    {"HighImportanceFromEitherHeader", [] { return Restriction::Property(RELOP_EQ, PR_IMPORTANCE, 2); },
     "OR HEADER Importance \"high\" OR HEADER X-Priority \"1\" HEADER X-Priority \"2\"", false},
    {"NormalImportanceCannotBeSearched", [] { return Restriction::Property(RELOP_EQ, PR_IMPORTANCE, 1); }, "ALL", false},
    {"OlderThanWithoutWithinIsDayGranularAndWider",
     [] { return Restriction::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, QDateTime(QDate(2026, 10, 1), QTime(23, 30), Qt::UTC)); },
     "BEFORE 3-Oct-2026", false},
    {"OlderThanWithWithinLeavesSlack",
     [] { return Restriction::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, kNow.addSecs(-3600)); }, "OLDER 3300", false,
     {true, false, kNow}},
    {"CutOffInTheFutureMatchesEverything", [] { return Restriction::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, kNow.addDays(1)); },
     "ALL", false, {true, false, kNow}},
    {"NotOfExactKey", [] { return Restriction::Not(Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ)); }, "NOT SEEN", true},
    {"NotOfWiderKeyMustNotNarrow", [] { return Restriction::Not(Restriction::Content(PR_SUBJECT, QStringLiteral("x"))); }, "ALL", false},
    {"CompoundOperandsAreParenthesised",
     [] {
         return Restriction::Or({Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 1),
                                 Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ)});
     },
     "OR (UNFLAGGED KEYWORD $Completed) UNSEEN", true},
    {"UnsearchablePartStillNeedsTheCheck",
     [] {
         return Restriction::And({Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ),
                                  Restriction::Property(RELOP_EQ, PR_IMPORTANCE, 1)});
     },
     "SEEN", false},
    {"UnknownPropertyIsLeftToTheCheck", [] { return Restriction::Content(PR_MESSAGE_CLASS, QStringLiteral("IPM.Note")); }, "ALL", false},
};

class SearchWriterTable : public ::testing::TestWithParam<Case> {};

TEST_P(SearchWriterTable, WritesKeys)
{
    const Case& c = GetParam();
    const Restriction r = c.build();
    const auto keys = SearchWriter(c.options).Write(&r);
    EXPECT_EQ(keys.text.toStdString(), c.keys.toStdString()) << r.ToString().toStdString();
    EXPECT_EQ(keys.exact, c.exact);
    EXPECT_FALSE(keys.utf8);
}

INSTANTIATE_TEST_SUITE_P(Restrictions, SearchWriterTable, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SearchWriter, NoRestrictionSearchesEverythingNotDeleted)
{
    const auto keys = SearchWriter({}).Write(nullptr);
    EXPECT_TRUE(keys.exact);
    EXPECT_EQ(SearchWriter::Command(keys), "UID SEARCH UNDELETED");
}

TEST(SearchWriter, NonAsciiTermsGoAsUtf8Literals)
{
    const Restriction r = Restriction::Content(PR_SUBJECT, QStringLiteral("caf\u00e9"));
    const auto plus = SearchWriter({false, true, kNow}).Write(&r);
    EXPECT_TRUE(plus.utf8);
    EXPECT_EQ(SearchWriter::Command(plus), "UID SEARCH CHARSET UTF-8 UNDELETED SUBJECT {5+}\r\ncaf\xc3\xa9");
    // Without LITERAL+ a synchronising literal would need a round trip per term.
    const auto quoted = SearchWriter({false, false, kNow}).Write(&r);
    EXPECT_EQ(quoted.text, "SUBJECT \"caf\xc3\xa9\"");
}

}  // namespace

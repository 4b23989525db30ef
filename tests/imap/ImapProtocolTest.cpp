// Protocol pieces without a server: mailbox names, identifiers, UID sets,
// the restriction -> UID SEARCH translation, what is read of fetched header
// fields, and the pieces of an OAuth2 login.
#include "platform/mapi/PropTags.h"
#include "platform/mapi/Restriction.h"
#include "platform/stores/common/MimeProperties.h"
#include "platform/stores/imap/FetchNeeds.h"
#include "platform/stores/imap/ImapFetcher.h"
#include "platform/stores/imap/ImapIds.h"
#include "platform/stores/common/ModifiedUtf7.h"
#include "platform/stores/common/FolderUseByName.h"
#include "platform/stores/imap/OAuthSasl.h"
#include "platform/stores/imap/SearchWriter.h"

#include <gtest/gtest.h>

using namespace mv;
using namespace mv::mapi;
using namespace mv::stores;

namespace {

struct Utf7Case {
    const char* display;
    const char* wire;
};
const Utf7Case kUtf7[] = {
    {"INBOX", "INBOX"},
    {"K\xc3\xbc" "che", "K&APw-che"},
    {"Tom & Jerry", "Tom &- Jerry"},
    {"~peter/mail/\xe5\x8f\xb0\xe5\x8c\x97/\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e", "~peter/mail/&U,BTFw-/&ZeVnLIqe-"},
};

TEST(ModifiedUtf7, RoundTripsRfcExamples)
{
    for (const Utf7Case& c : kUtf7) {
        EXPECT_EQ(ModifiedUtf7::Encode(QString::fromUtf8(c.display)), QByteArray(c.wire)) << c.wire;
        EXPECT_EQ(ModifiedUtf7::Decode(QByteArray(c.wire)), QString::fromUtf8(c.display)) << c.wire;
    }
}

// A shift that is not strict modified base64 is kept as written, never
// decoded to something else or dropped.
TEST(ModifiedUtf7, MalformedShiftsAreKept)
{
    for (const char* wire : {"broken &APw", "bad&%%-x", "open&AAA", "slash&AP/-", "padded&APw=-", "odd&AP-", "bits&APx-"})
        EXPECT_EQ(ModifiedUtf7::Decode(QByteArray(wire)), QString::fromLatin1(wire)) << wire;
    EXPECT_EQ(ModifiedUtf7::Decode(QStringLiteral("K\u00fcche&AOQ-")), QStringLiteral("K\u00fcche\u00e4")) << "non-ASCII passes";
}

TEST(FolderUseByName, CommonClientNames)
{
    const std::pair<const char*, const char*> rows[] = {
        {"Sent Items", "\\Sent"}, {"deleted messages", "\\Trash"}, {"Archives", "\\Archive"},
        {"JUNK E-MAIL", "\\Junk"}, {"Spam", "\\Junk"},             {"Sentinel", ""},
    };
    for (const auto& [name, use] : rows) EXPECT_EQ(FolderUseByName::UseOf(QString::fromLatin1(name)), QString::fromLatin1(use)) << name;
}

TEST(ImapIds, RoundTripAndRejectForeignIdentifiers)
{
    const QByteArray folder = ImapIds::FolderId("Projekte.K&APw-che", 1700000000u);
    const QByteArray message = ImapIds::MessageId({"Projekte.K&APw-che", 1700000000u}, 42);
    ASSERT_TRUE(ImapIds::ParseFolder(folder).has_value());
    EXPECT_EQ(ImapIds::ParseFolder(folder)->mailbox, QByteArray("Projekte.K&APw-che"));
    EXPECT_EQ(ImapIds::ParseFolder(folder)->uidValidity, 1700000000u);
    ASSERT_TRUE(ImapIds::ParseMessage(message).has_value());
    EXPECT_EQ(ImapIds::ParseMessage(message)->uid, 42u);
    EXPECT_TRUE(message.startsWith(folder));

    const QByteArray rejected[] = {{}, "MVI1", folder.left(folder.size() - 1), message, "MVM1" + folder.mid(4),
                                   ImapIds::StoreId(QStringLiteral("u"), QStringLiteral("h"), 993)};
    for (const QByteArray& id : rejected) EXPECT_FALSE(ImapIds::ParseFolder(id).has_value()) << id.toHex().constData();
    EXPECT_FALSE(ImapIds::ParseMessage(folder).has_value());
    EXPECT_FALSE(ImapIds::ParseMessage(message + "x").has_value());
}

TEST(ImapFetcher, UidSetsAndZones)
{
    EXPECT_EQ(ImapFetcher::UidSet({9, 1, 2, 3, 3, 5, 10}), QByteArray("1:3,5,9:10"));
    EXPECT_EQ(ImapFetcher::ToUtc(1, 10, 2026, 10, 0, 0, 130), QDateTime(QDate(2026, 10, 1), QTime(8, 30), Qt::UTC));
    EXPECT_EQ(ImapFetcher::ToUtc(1, 10, 2026, 23, 0, 0, -500), QDateTime(QDate(2026, 10, 2), QTime(4, 0), Qt::UTC));
    EXPECT_EQ(ImapFetcher::ClassFromCalendar("BEGIN:VCALENDAR\r\nmethod: request\r\n"), QStringLiteral("IPM.Schedule.Meeting.Request"));
    EXPECT_EQ(ImapFetcher::ClassFromCalendar("BEGIN:VCALENDAR\r\nMETHOD:PUBLISH\r\n"), QStringLiteral("IPM.Note"));
}

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
    {"QuotesAndBackslashesEscaped", Content(PR_SUBJECT, "say \"hi\" a\\b"), "SUBJECT \"say \\\"hi\\\" a\\\\b\"", false},
    {"EmptyTermIsWiderNotEmpty", Content(PR_SUBJECT, ""), "ALL", false},
    {"RecipientTermSearchesAllThreeHeaders", R::Sub(PR_MESSAGE_RECIPIENTS, Content(PR_DISPLAY_NAME, "Dave")),
     "OR TO \"Dave\" OR CC \"Dave\" BCC \"Dave\"", false},
    {"Unread", Flag(BMR_EQZ, MSGFLAG_READ), "UNSEEN", true},
    {"OtherMessageFlagBitsAreLeftToTheCheck", Flag(BMR_NEZ, MSGFLAG_UNSENT), "ALL", false},
    {"CompletedIsNotFlagged", Eq(PR_FLAG_STATUS, 1), "UNFLAGGED KEYWORD $Completed", true},
    {"NeitherFlaggedNorCompleted", R::And({R::Property(RELOP_NE, PR_FLAG_STATUS, 1), R::Property(RELOP_NE, PR_FLAG_STATUS, 2)}),
     "OR FLAGGED UNKEYWORD $Completed UNFLAGGED", true},
    {"RedFlagHasNoColourBits", Eq(PR_FLAG_ICON, 6),
     "FLAGGED UNKEYWORD $MailFlagBit0 UNKEYWORD $MailFlagBit1 UNKEYWORD $MailFlagBit2", true},
    {"OrangeFlagIsBitZero", Eq(PR_FLAG_ICON, 2),
     "FLAGGED KEYWORD $MailFlagBit0 UNKEYWORD $MailFlagBit1 UNKEYWORD $MailFlagBit2", true},
    {"ForwardedButNotAnswered", Eq(PR_LAST_VERB_EXECUTED, 104), "UNANSWERED KEYWORD $Forwarded", true},
    {"HighImportanceFromEitherHeader", Eq(PR_IMPORTANCE, 2),
     "OR HEADER Importance \"high\" OR HEADER X-Priority \"1\" HEADER X-Priority \"2\"", false},
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

TEST(SearchWriter, WritesKeys)
{
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const auto keys = SearchWriter(c.options).Write(&c.restriction);
        EXPECT_EQ(keys.text.toStdString(), c.keys.toStdString()) << c.restriction.ToString().toStdString();
        EXPECT_EQ(keys.exact, c.exact);
        EXPECT_FALSE(keys.utf8);
    }
}

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

// Which fetched header blocks leave the message class to the structure.
struct BlockCase {
    const char* name;
    const char* block;
    bool needsStructure;
};

const BlockCase kBlocks[] = {
    {"NoContentTypeIsPlainText", "Subject: hello\r\nMessage-ID: <a@b>\r\n\r\n", false},
    {"PlainText", "Content-Type: text/plain; charset=utf-8\r\n\r\n", false},
    {"HtmlOnly", "Message-ID: <a@b>\r\nContent-Type: text/html\r\n\r\n", false},
    {"AlternativeMayHoldACalendar", "Content-Type: multipart/alternative;\r\n boundary=\"x\"\r\n\r\n", true},
    {"MixedAnyCaseNoSpace", "content-type:Multipart/Mixed; boundary=y\r\n\r\n", true},
    {"FieldAfterOthers", "Subject: a: b\r\nMessage-ID: <a@b>\r\nContent-Type: multipart/related\r\n\r\n",
     true},
    {"DeliveryReport", "Content-Type: multipart/report; report-type=delivery-status; boundary=z\r\n\r\n",
     false},
    {"ReadReceiptFolded",
     "Content-Type: multipart/report;\r\n\treport-type=disposition-notification;\r\n\tboundary=z\r\n\r\n",
     false},
    {"OtherReportType", "Content-Type: multipart/report; report-type=feedback-report\r\n\r\n", true},
    {"CalendarMethodMayBeInTheText", "Content-Type: text/calendar; charset=utf-8\r\n\r\n", true},
    {"EmptyValue", "Content-Type:\r\n\r\n", true},
    {"BareLineEnds", "Subject: x\nContent-Type: multipart/alternative; boundary=q\n\n", true},
};

TEST(FetchNeeds, StructureOnlyWhenTheFieldLeavesTheClassOpen)
{
    for (const BlockCase& c : kBlocks) EXPECT_EQ(FetchNeeds::MayHoldCalendar(c.block), c.needsStructure) << c.name;
}

// The record read from the fetched fields alone agrees with the record the
// MIME parser makes of the same header block.
struct HeaderCase {
    const char* name;
    QByteArray block;
};

const HeaderCase kHeaders[] = {
    {"NoSubject", "Message-ID: <a2@example.com>\r\n\r\n"},
    {"EmptySubject", "Subject:\r\nMessage-ID: <a3@example.com>\r\n\r\n"},
    {"Folded", "Subject: Team meeting\r\n budget\r\n\ttravel\r\nMessage-ID:\r\n <a4@example.com>\r\n\r\n"},
    {"QWord", "Subject: =?UTF-8?Q?Caf=C3=A9_meeting?=\r\n\r\n"},
    {"PaddedBWordsSideBySide", "Subject: =?UTF-8?B?R3LDvA==?= =?UTF-8?B?w59l?= draft\r\n\r\n"},
    {"BrokenWordStays", "Subject: =?UTF-8?B?***?= left\r\n\r\n"},
    {"Latin1Bytes",
     "Subject: Gr\xfc\xdf"
     "e aus K\xf6ln\r\n\r\n"},
    {"Utf8Bytes", "Subject: \xe4\xbc\x9a\xe8\xad\xb0 \xe4\xba\x88\xe5\xae\x9a\r\n\r\n"},
    {"DuplicateFirstWins", "Subject: first\r\nSubject: second\r\n\r\n"},
    {"LowerCaseNames", "subject: lower case\r\nmessage-id: <a5@example.com>\r\n\r\n"},
    {"BareLineEnds", "Subject: bare\n line ends\nMessage-ID: <a6@example.com>\n\n"},
    {"SimilarNameIsNotTheField", "Subject-Extra: no\r\nSubject: yes\r\n\r\n"},
    {"Addresses",
     "From: \"Berg, Anna\" <anna.berg@example.com>\r\nTo: Bob <bob@example.com>, carol@example.net\r\n"
     "Cc: =?ISO-8859-1?Q?J=F6rg_M=FCller?= <joerg@example.de>\r\nBcc: hidden@example.org\r\n\r\n"},
    {"GroupAndFolding", "To: Team: ann@example.com,\r\n\tben@example.com;, \"Dee\"\r\n <dee@example.com>\r\n\r\n"},
    {"EncodedNameBWords", "From: =?UTF-8?B?5bGx55Sw?= =?UTF-8?B?5aSq6YOO?= <yamada@example.jp>\r\n\r\n"},
    {"NotAnAddressList", "From: undisclosed sender\r\nTo: ;\r\n\r\n"},
    {"DuplicateFromFirstWins", "From: first@example.com\r\nFrom: second@example.com\r\n\r\n"},
    {"Receivers", "Delivered-To: final@example.com\r\nX-Original-To: alias@example.com\r\n\r\n"},
    {"OriginalToOnly", "X-Original-To: Alias <alias@example.com>\r\n\r\n"},
    {"ImportanceWins", "Importance: low\r\nX-Priority: 1 (Highest)\r\n\r\n"},
    {"PriorityDigit", "X-Priority: 2\r\n\r\n"},
    {"UnknownImportance", "Importance: urgent\r\nX-Priority: x\r\n\r\n"},
};

TEST(LightHeader, WholeRecordAgreesWithTheParsedOne)
{
    ParseOptions options;
    options.ownAddress = QStringLiteral("me@example.com");  // used when no receiver field is there
    for (const HeaderCase& c : kHeaders) {
        SCOPED_TRACE(c.name);
        const MessageRecord parsed = MimeProperties::FromBytes(c.block, options);
        const MessageRecord light = MimeProperties::FromHeaderFields(c.block, options);
        EXPECT_EQ(light.props, parsed.props);
        EXPECT_EQ(light.recipients, parsed.recipients);
    }
}

// Only a token the server calls expired or invalid is worth a fresh one.
TEST(OAuthSasl, RefusalsWorthAFreshToken)
{
    const struct {
        const char* json;
        const char* status;
        bool renew;
    } cases[] = {{R"({"status":"401","schemes":"bearer"})", "401", true}, {R"({"status":401})", "401", true},
                 {R"({"status":"invalid_token"})", "invalid_token", true},
                 {R"({"status":"insufficient_scope"})", "insufficient_scope", false}, {"not json", "", true}};
    for (const auto& c : cases) {
        const OAuthSasl::Failure f = OAuthSasl::ReadFailure(QByteArray(c.json).toBase64());
        EXPECT_EQ(f.status, QString::fromLatin1(c.status)) << c.json;
        EXPECT_EQ(f.tokenRejected, c.renew) << c.json;
    }
    // The GS2 header's separators in a user name are escaped, not split on.
    EXPECT_TRUE(OAuthSasl::InitialResponse(ImapAuth::OAuthBearer, QStringLiteral("a,b=c"), QStringLiteral("t"),
                                           QStringLiteral("h"), 993)
                    .startsWith("n,a=a=2Cb=3Dc,\x01host=h\x01port=993\x01"));
}

}  // namespace

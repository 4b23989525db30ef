// Messages in, MAPI properties out: one row per behaviour of the mapping.

#include "platform/stores/common/HtmlText.h"
#include "platform/stores/common/MimeProperties.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "tests/support/QtPrinters.h"

using namespace mv::mapi;
using mv::stores::MimeProperties;
using mv::stores::ParseOptions;

namespace {

struct Recipient {
    QString name;
    QString email;
    int type;
};

struct PropertyCase {
    const char* name;
    QByteArray message;
    PropertyMap expected;
    std::vector<PropTag> absent = {};
    std::vector<Recipient> recipients = {};  // checked only when non-empty
    QString ownAddress = {};
};

std::vector<PropertyCase> Cases()
{
    return {
        {"FullHeaders",
         "From: \"Anna Berg\" <anna@example.com>\n"
         "To: Carl Dahl <carl@example.org>, erik@example.org\n"
         "Cc: \"Frida\" <frida@example.net>, gustav@example.net\n"
         "Bcc: hanna@example.com\n"
         "Delivered-To: carl@example.org\n"
         "Subject: Quarterly figures\n"
         "Message-ID: <abc.123@example.com>\n"
         "Date: Mon, 2 Nov 2026 10:00:00 +0000\n"
         "\n"
         "Hello\n",
         {{PR_SENT_REPRESENTING_ADDRTYPE, "SMTP"},
          {PR_RCVD_REPRESENTING_NAME, "carl@example.org"},
          {PR_RCVD_REPRESENTING_EMAIL_ADDRESS, "carl@example.org"},
          {PR_RCVD_REPRESENTING_ADDRTYPE, "SMTP"},
          {PR_DISPLAY_TO, "Carl Dahl; erik@example.org"},
          {PR_INTERNET_MESSAGE_ID, "<abc.123@example.com>"},
          {PR_MESSAGE_FLAGS, 0}},
         {PR_BODY}},
        {"NoSenderNoSubject", "To: a@example.com\n\nbody\n",
         {{PR_SUBJECT, ""}, {PR_DISPLAY_CC, ""}},
         {PR_SENT_REPRESENTING_NAME, PR_SENT_REPRESENTING_EMAIL_ADDRESS, PR_RCVD_REPRESENTING_EMAIL_ADDRESS,
          PR_INTERNET_MESSAGE_ID}},
        {"DeliveredToBeatsOriginalTo",
         "Delivered-To: final@example.com\nDelivered-To: relay@example.com\nX-Original-To: alias@example.com\n\n",
         {{PR_RCVD_REPRESENTING_EMAIL_ADDRESS, "final@example.com"}}},
        {"ReceiverFromStore", "Subject: x\n\n", {{PR_RCVD_REPRESENTING_EMAIL_ADDRESS, "me@example.com"},
                                                 {PR_RCVD_REPRESENTING_NAME, "me@example.com"}},
         {}, {}, "me@example.com"},
        {"GroupsFlattened",
         "To: Team: \"Ann\" <ann@example.com>, bo@example.com;, cy@example.com\nCc: undisclosed-recipients:;\n\n",
         {{PR_DISPLAY_TO, "Ann; bo@example.com; cy@example.com"}, {PR_DISPLAY_CC, ""}},
         {},
         {{"Ann", "ann@example.com", MAPI_TO},
          {"bo@example.com", "bo@example.com", MAPI_TO},
          {"cy@example.com", "cy@example.com", MAPI_TO}}},
        {"DuplicateHeadersFirstWins",
         "Subject: first\nSubject: second\nFrom: one@example.com\nFrom: two@example.com\nTo: a@example.com\n"
         "To: b@example.com\nMessage-ID: <1@x>\nMessage-ID: <2@x>\n\n",
         {{PR_SUBJECT, "first"},
          {PR_SENT_REPRESENTING_EMAIL_ADDRESS, "one@example.com"},
          {PR_DISPLAY_TO, "a@example.com"},
          {PR_INTERNET_MESSAGE_ID, "<1@x>"}}},

        // Encoded words (the charsets mail really uses round-trip in tests/corpus).
        {"CharacterSplitAcrossWords", "Subject: =?UTF-8?B?ww==?= =?UTF-8?B?qQ==?=!\n\n", {{PR_SUBJECT, "é!"}}},
        {"PaddedBase64InName", "From: =?UTF-8?B?QW4=?= =?UTF-8?B?bmE=?= <a@example.com>\n\n",
         {{PR_SENT_REPRESENTING_NAME, "Anna"}}},
        {"Raw8bitUtf8Subject", "Subject: Gr\xc3\xbc\xc3\x9f" "e\n\n", {{PR_SUBJECT, "Grüße"}}},
        {"Raw8bitLatin1Subject", "Subject: Gr\xfc\xdf" "e\n\n", {{PR_SUBJECT, "Grüße"}}},
        {"Raw8bitWindows1252Subject", "Subject: \x80 9\n\n", {{PR_SUBJECT, "€ 9"}}},
        {"UnknownCharsetKeptReadable", "Subject: =?x-no-such-charset?Q?plain_text?=\n\n",
         {{PR_SUBJECT, "plain text"}}},
        {"BrokenEncodedWordKeptRaw", "Subject: Re: =?utf-8?Q?unterminated\n\n",
         {{PR_SUBJECT, "Re: =?utf-8?Q?unterminated"}}},
        {"BadEncodingLetterKeptRaw", "Subject: =?utf-8?Z?abc?= end\n\n", {{PR_SUBJECT, "=?utf-8?Z?abc?= end"}}},

        // Importance, with X-Priority as the fallback.
        {"ImportanceNormalBeatsPriority", "Importance: Normal\nX-Priority: 1\n\n", {{PR_IMPORTANCE, IMPORTANCE_NORMAL}}},
        {"ImportanceUnknownWordFallsBack", "Importance: urgent\nX-Priority: 5\n\n", {{PR_IMPORTANCE, IMPORTANCE_LOW}}},
        {"Priority3", "X-Priority: 3 (Normal)\n\n", {{PR_IMPORTANCE, IMPORTANCE_NORMAL}}},
        {"PriorityOutOfRange", "X-Priority: 9\n\n", {{PR_IMPORTANCE, IMPORTANCE_NORMAL}}},
        {"PriorityJunk", "X-Priority: high\n\n", {{PR_IMPORTANCE, IMPORTANCE_NORMAL}}},

        // Message classes and attachments beyond the corpus's (tests/corpus).
        {"OtherReportIsNote",
         "Content-Type: multipart/report; report-type=feedback-report; boundary=b\n\n--b\n\nx\n--b--\n",
         {{PR_MESSAGE_CLASS, "IPM.Note"}}},
        {"MeetingRequestMethodInBody",
         "Content-Type: multipart/alternative; boundary=b\n\n"
         "--b\nContent-Type: text/plain\n\nLunch?\n"
         "--b\nContent-Type: text/calendar; charset=utf-8\nContent-Transfer-Encoding: base64\n\n" +
             QByteArray("BEGIN:VCALENDAR\r\nMETHOD:REQUEST\r\nBEGIN:VEVENT\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n")
                 .toBase64() +
             "\n--b--\n",
         {{PR_MESSAGE_CLASS, "IPM.Schedule.Meeting.Request"}, {PR_MESSAGE_FLAGS, 0}}},
        {"MeetingReplyTopLevel",
         "Content-Type: text/calendar; charset=utf-8\n\nBEGIN:VCALENDAR\nmethod:reply\nEND:VCALENDAR\n",
         {{PR_MESSAGE_CLASS, "IPM.Schedule.Meeting.Resp.Pos"}}},
        {"CalendarPublishIsNote", "Content-Type: text/calendar\n\nBEGIN:VCALENDAR\nMETHOD:PUBLISH\nEND:VCALENDAR\n",
         {{PR_MESSAGE_CLASS, "IPM.Note"}}},
        {"NamedImageWithoutDisposition",
         "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n\nphoto\n"
         "--b\nContent-Type: image/png; name=\"p.png\"\n\nxx\n--b--\n",
         {{PR_MESSAGE_FLAGS, MSGFLAG_HASATTACH}}},
        {"AlternativeHasNoAttachment",
         "Content-Type: multipart/alternative; boundary=b\n\n--b\nContent-Type: text/plain\n\nhi\n"
         "--b\nContent-Type: text/html\n\n<p>hi</p>\n--b--\n",
         {{PR_MESSAGE_FLAGS, 0}}},
        {"SinglePartAttachment",
         "Content-Type: application/zip\nContent-Disposition: attachment; filename=x.zip\n\nPK\n",
         {{PR_MESSAGE_FLAGS, MSGFLAG_HASATTACH}}},
    };
}

void PrintTo(const PropertyCase& c, std::ostream* os) { *os << c.name; }

class PropertyTable : public ::testing::TestWithParam<PropertyCase> {};

void ExpectRecord(const MessageRecord& record, const PropertyCase& c)
{
    for (auto it = c.expected.constBegin(); it != c.expected.constEnd(); ++it) {
        const auto actual = record.Get(it.key());
        ASSERT_TRUE(actual.has_value()) << "missing tag 0x" << std::hex << it.key();
        EXPECT_EQ(actual->toString(), it.value().toString()) << "tag 0x" << std::hex << it.key();
    }
    for (PropTag tag : c.absent) EXPECT_FALSE(record.Get(tag).has_value()) << "tag 0x" << std::hex << tag;
    // Present on every record, whatever the input.
    for (PropTag tag : {PR_SUBJECT, PR_IMPORTANCE, PR_MESSAGE_CLASS, PR_MESSAGE_FLAGS, PR_MESSAGE_SIZE})
        EXPECT_TRUE(record.Get(tag).has_value()) << "tag 0x" << std::hex << tag;
    if (c.recipients.empty()) return;
    ASSERT_EQ(record.recipients.size(), c.recipients.size());
    for (size_t i = 0; i < c.recipients.size(); ++i) {
        const PropertyMap& row = record.recipients[i];
        EXPECT_EQ(row.value(PR_DISPLAY_NAME).toString(), c.recipients[i].name) << i;
        EXPECT_EQ(row.value(PR_EMAIL_ADDRESS).toString(), c.recipients[i].email) << i;
        EXPECT_EQ(row.value(PR_ADDRTYPE).toString(), "SMTP") << i;
        EXPECT_EQ(row.value(PR_RECIPIENT_TYPE).toInt(), c.recipients[i].type) << i;
    }
}

// Headers-only, with body, and from a file must all agree on the header
// properties: the store indexes with one and re-reads with another.
TEST_P(PropertyTable, FromBytesAndFromFile)
{
    PropertyCase c = GetParam();
    ParseOptions options;
    options.ownAddress = c.ownAddress;
    ExpectRecord(MimeProperties::FromBytes(c.message, options), c);

    QTemporaryDir dir;
    QFile file(dir.filePath("msg"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(c.message);
    file.close();
    auto record = MimeProperties::FromFile(file.fileName(), options);
    ASSERT_TRUE(record.ok()) << record.error().message.toStdString();
    ExpectRecord(*record, c);
    EXPECT_EQ(record->props.value(PR_MESSAGE_SIZE).toInt(), c.message.size());

    options.withBody = true;
    std::erase(c.absent, PR_BODY);
    const MessageRecord withBody = MimeProperties::FromBytes(c.message, options);
    ExpectRecord(withBody, c);
    EXPECT_TRUE(withBody.Get(PR_BODY).has_value());
}

INSTANTIATE_TEST_SUITE_P(Mime, PropertyTable, ::testing::ValuesIn(Cases()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(MimeBody, DecodedToUnicode)
{
    const struct {
        const char* name;
        QByteArray message;
        QString body;
    } cases[] = {
        {"CrlfBecomesLf", "Subject: x\r\n\r\nline one\r\nline two\r\n", "line one\nline two\n"},
        {"UndeclaredLatin1", "Content-Type: text/plain\n\nna\xefve caf\xe9\n", "naïve café\n"},
        {"DeclaredUtf8ButLatin1", "Content-Type: text/plain; charset=utf-8\n\ncaf\xe9\n", "café\n"},
        {"HtmlOnly",
         "Content-Type: text/html; charset=utf-8\n\n<html><head><title>T</title><style>p{}</style></head>"
         "<body><script>var a='<p>';</script><p>Tom &amp; Jerry&nbsp;&#8364;5</p><p>Line<br>two</p>"
         "</body></html>\n",
         "Tom & Jerry €5\n\nLine\ntwo"},
        {"TextAttachmentIsNotBody",
         "Content-Type: multipart/mixed; boundary=b\n\n"
         "--b\nContent-Type: text/plain\nContent-Disposition: attachment; filename=log.txt\n\nlog\n"
         "--b\nContent-Type: text/html\n\n<p>the body</p>\n--b--\n",
         "the body"},
        {"NoTextPart", "Content-Type: image/png\n\nxx\n", ""},
    };
    ParseOptions options;
    options.withBody = true;
    for (const auto& c : cases)
        EXPECT_EQ(MimeProperties::FromBytes(c.message, options).props.value(PR_BODY).toString(), c.body) << c.name;
}

// Bodies from files run through the Maildir store's body queries.
TEST(MimeFiles, MissingFileOrDirectoryIsAnError)
{
    QTemporaryDir dir;
    EXPECT_EQ(MimeProperties::FromFile(dir.filePath("gone")).error().kind, mv::ErrorKind::NotFound);
    EXPECT_FALSE(MimeProperties::BodyFromFile(dir.filePath("gone")).ok());
    EXPECT_EQ(MimeProperties::FromFile(dir.path()).error().kind, mv::ErrorKind::Permanent);
}

TEST(HtmlText, ToPlainText)
{
    const struct {
        const char* name;
        QString html;
        QString text;
    } cases[] = {
        {"WhitespaceCollapses", "  a \n\t b   c ", "a b c"},
        {"AtMostOneBlankLine", "a<br><br><br><br>b", "a\n\nb"},
        {"ScriptAndStyleSkipped", "x<SCRIPT type=a>if (a<b) x()</SCRIPT>y<style>b{}</style>z", "xyz"},
        {"CommentSkipped", "a<!-- <p>hidden</p> -->b", "ab"},
        {"QuotedGreaterThanInAttribute", "<a title=\"x>y\">link</a>", "link"},
        {"Entities", "&lt;tag&gt; &amp; &quot;q&quot; &#65;&#x42; &euro;", "<tag> & \"q\" AB €"},
        {"UnknownEntityKept", "AT&T &bogus; &", "AT&T &bogus; &"},
        {"InvalidNumericEntityKept", "&#xD800; &#0; &#99999999;", "&#xD800; &#0; &#99999999;"},
        {"NbspIsNotCollapsed", "a&nbsp;&nbsp;b", "a  b"},
        {"LessThanAsText", "1 < 2 and 3 > 2", "1 < 2 and 3 > 2"},
        {"PreKeepsLines", "<pre>a  b\nc</pre>", "a  b\nc"},
        {"UnclosedScriptDropsRest", "a<script>never closed", "a"},
        {"UnclosedTag", "a<b", "a"},
        {"TableRows", "<table><tr><td>a</td><td>b</td></tr><tr><td>c</td></tr></table>", "a b\nc"},
    };
    for (const auto& c : cases) EXPECT_EQ(mv::stores::HtmlText::ToPlainText(c.html), c.text) << c.name;
}

}  // namespace

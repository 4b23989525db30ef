// The record read from the fetched fields alone agrees with the record the
// MIME parser makes of the same header block.
#include "platform/mapi/PropTags.h"
#include "platform/stores/common/MimeProperties.h"
#include "platform/stores/imap/ImapFetcher.h"

#include <gtest/gtest.h>

using namespace mv;
using mv::stores::ImapFetcher;
using mv::stores::MimeProperties;

namespace {

struct HeaderCase {
    const char* name;
    QByteArray block;
};

const HeaderCase kHeaders[] = {
    {"Plain", "Subject: Quarterly budget\r\nMessage-ID: <a1@example.com>\r\n\r\n"},
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

class LightHeader : public ::testing::TestWithParam<HeaderCase> {};

TEST_P(LightHeader, WholeRecordAgreesWithTheParsedOne)
{
    const QByteArray& block = GetParam().block;
    mv::stores::ParseOptions options;
    options.ownAddress = QStringLiteral("me@example.com");  // used when no receiver field is there
    const mapi::MessageRecord parsed = MimeProperties::FromBytes(block, options);
    const mapi::MessageRecord light = MimeProperties::FromHeaderFields(block, options);
    EXPECT_EQ(light.props, parsed.props);
    EXPECT_EQ(light.recipients, parsed.recipients);
}

INSTANTIATE_TEST_SUITE_P(Blocks, LightHeader, ::testing::ValuesIn(kHeaders),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace

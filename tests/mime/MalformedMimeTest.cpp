// Input no mail program should send, and very large messages, still yield a
// record: whatever can be read is kept, nothing crashes, nothing hangs.

#include "platform/stores/common/MimeProperties.h"

#include <QElapsedTimer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "tests/support/QtPrinters.h"

#include <iostream>

using namespace mv::mapi;
using mv::stores::MimeProperties;
using mv::stores::ParseOptions;

namespace {

QByteArray Nested(int depth)
{
    QByteArray head = "Subject: deep\n";
    QByteArray tail;
    for (int i = 0; i < depth; ++i) {
        const QByteArray boundary = "b" + QByteArray::number(i);
        head += "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + "\n";
        tail = "\n--" + boundary + "--\n" + tail;
    }
    return head + "Content-Type: text/plain\n\ninnermost\n" + tail;
}

// Literal bytes including embedded NULs.
template <size_t N>
QByteArray Bytes(const char (&text)[N])
{
    return QByteArray(text, N - 1);
}

TEST(Malformed, YieldsARecordHeadersOnlyAndWithBody)
{
    const QByteArray longLine = QByteArray(1024 * 1024, 'x');
    const struct {
        const char* name;
        QByteArray message;
        QString subject;  // expected PR_SUBJECT
    } cases[] = {
        {"OnlyBody", "just some text without headers", ""},
        {"HeaderWithoutBody", "Subject: only headers", "only headers"},
        {"TruncatedMultipart",
         "Subject: cut\nContent-Type: multipart/mixed; boundary=zz\n\n--zz\nContent-Type: text/plain\n\npart one",
         "cut"},
        {"MultipartWithoutBoundary", "Subject: nb\nContent-Type: multipart/mixed\n\n--x\n\ny\n", "nb"},
        {"BoundaryNeverUsed", "Subject: nu\nContent-Type: multipart/mixed; boundary=q\n\nno parts here\n", "nu"},
        {"TruncatedBase64", "Subject: b64\nContent-Transfer-Encoding: base64\n\nSGVsbG8gV29y", "b64"},
        {"NulInHeaders", Bytes("Subject: a\0b\nFrom: x\0@y\n\nbody\0body\n"), "a"},
        {"BareCarriageReturns", "Subject: cr\rFrom: a@b\r\rbody\r", "cr"},
        {"HugeHeaderLine", "Subject: " + longLine + "\n\n", QString::fromLatin1(longLine)},
        {"HugeBodyLine", "Subject: hb\n\n" + longLine, "hb"},
        {"NestedHundredDeep", Nested(100), "deep"},
        {"NestedThousandDeep", Nested(1000), "deep"},
        {"ColonlessLines", "this is not\na header block\n\n", ""},
        {"EmptyEncodedWord", "Subject: =?" "?Q?" "?=\n\n", "=?" "?Q?" "?="},
        {"BadBase64EncodedWord", "Subject: =?utf-8?B?***?=\n\n", ""},
        {"EncodedWordInvalidUtf8", "Subject: =?utf-8?Q?caf=E9?= ok\n\n", "caf? ok"},
        {"AddressJunk", "Subject: aj\nFrom: <<<@@@>>>\nTo: ,,,;;;\"\nCc: \"unterminated <a@b\n\n", "aj"},
        {"BadContentType", "Subject: ct\nContent-Type: ;;;=\n\nx\n", "ct"},
        {"ReportWithoutParts", "Subject: r\nContent-Type: multipart/report; report-type=delivery-status\n\n", "r"},
    };
    for (const auto& c : cases) {
        for (bool withBody : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + (withBody ? " with body" : " headers only"));
            ParseOptions options;
            options.withBody = withBody;
            const MessageRecord record = MimeProperties::FromBytes(c.message, options);
            EXPECT_EQ(record.props.value(PR_SUBJECT).toString(), c.subject);
            EXPECT_EQ(record.props.value(PR_MESSAGE_SIZE).toInt(), c.message.size());
            EXPECT_TRUE(record.props.contains(PR_MESSAGE_CLASS));
            EXPECT_TRUE(record.props.contains(PR_IMPORTANCE));
            EXPECT_EQ(record.props.contains(PR_BODY), withBody);
        }
    }
}

TEST(Malformed, BodyKeepsWhatCanBeReadAndStopsAtTheDepthCap)
{
    ParseOptions options;
    options.withBody = true;
    const QByteArray cut = "Content-Type: multipart/mixed; boundary=zz\n\n--zz\nContent-Type: text/plain\n\npart one";
    EXPECT_EQ(MimeProperties::FromBytes(cut, options).props.value(PR_BODY).toString(), "part one");
    EXPECT_EQ(MimeProperties::FromBytes(Nested(10), options).props.value(PR_BODY).toString(), "innermost\n");
    // Below the cap the text is not walked; what matters is that the record comes back.
    EXPECT_EQ(MimeProperties::FromBytes(Nested(200), options).props.value(PR_BODY).toString(), "");
}

// A 50 MB message read from disk: the header-only path must not depend on
// the body's size, and the full parse must work from the file.
constexpr qint64 kTarget = 50LL * 1024 * 1024;

void WriteLarge(const QString& path, const QByteArray& head, const QByteArray& line, const QByteArray& tail)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(head);
    while (file.size() < kTarget) file.write(line.repeated(1000));
    file.write(tail);
}

TEST(LargeMessage, ParsesFromFileHeadersOnlyAndWithBody)
{
    QTemporaryDir dir;
    WriteLarge(dir.filePath("plain.eml"),
               "From: Big <big@example.com>\nSubject: large plain\nContent-Type: text/plain\n\n",
               QByteArray(75, 'w') + "\n", {});
    WriteLarge(dir.filePath("mixed.eml"),
               "From: Big <big@example.com>\nSubject: large attachment\n"
               "Content-Type: multipart/mixed; boundary=\"sep\"\n\n"
               "--sep\nContent-Type: text/plain\n\nSee the archive.\n"
               "--sep\nContent-Type: application/octet-stream\n"
               "Content-Disposition: attachment; filename=big.bin\nContent-Transfer-Encoding: base64\n\n",
               QByteArray(57, 'Z').toBase64() + "\n", "--sep--\n");
    const struct {
        const char* name;
        const char* file;
        bool withBody;
        const char* subject;
        int flags;
        qsizetype minBody;  // -1: no PR_BODY expected
    } cases[] = {
        {"PlainHeadersOnly", "plain.eml", false, "large plain", 0, -1},
        {"PlainWithBody", "plain.eml", true, "large plain", 0, kTarget - 200},
        {"AttachmentHeadersOnly", "mixed.eml", false, "large attachment", MSGFLAG_HASATTACH, -1},
        {"AttachmentWithBody", "mixed.eml", true, "large attachment", MSGFLAG_HASATTACH, 16},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ParseOptions options;
        options.withBody = c.withBody;
        QElapsedTimer timer;
        timer.start();
        auto record = MimeProperties::FromFile(dir.filePath(c.file), options);
        std::cout << "[ figure   ] " << c.name << ": " << timer.elapsed() << " ms\n";
        ASSERT_TRUE(record.ok());
        EXPECT_EQ(record->props.value(PR_SUBJECT).toString(), c.subject);
        EXPECT_EQ(record->props.value(PR_MESSAGE_FLAGS).toInt(), c.flags);
        EXPECT_GE(record->props.value(PR_MESSAGE_SIZE).toLongLong(), kTarget);
        EXPECT_EQ(record->props.contains(PR_BODY), c.minBody >= 0);
        EXPECT_GE(record->props.value(PR_BODY).toString().size(), std::max<qsizetype>(c.minBody, 0));
    }
}

}  // namespace

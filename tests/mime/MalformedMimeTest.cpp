// Input no mail program should send, and very large messages, still yield a
// record: whatever can be read is kept, nothing crashes, nothing hangs.

#include "platform/stores/common/MimeProperties.h"

#include <QElapsedTimer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "tests/support/QtPrinters.h"

#include <iostream>

using namespace mv::mapi;
using namespace std::string_literals;
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

TEST(Malformed, YieldsARecordHeadersOnlyAndWithBody)
{
    const QByteArray longLine = QByteArray(1024 * 1024, 'x');
    const struct {
        const char* name;
        QByteArray message;
        QString subject;  // expected PR_SUBJECT
    } cases[] = {
        // Truncated parts, junk addresses and the like are among the seeds in tests/fuzz.
        {"HeaderWithoutBody", "Subject: only headers", "only headers"},
        {"BoundaryNeverUsed", "Subject: nu\nContent-Type: multipart/mixed; boundary=q\n\nno parts here\n", "nu"},
        {"NulInHeaders", QByteArray::fromStdString("Subject: a\0b\nFrom: x\0@y\n\nbody\0body\n"s), "a"},
        {"BareCarriageReturns", "Subject: cr\rFrom: a@b\r\rbody\r", "cr"},
        {"HugeHeaderLine", "Subject: " + longLine + "\n\n", QString::fromLatin1(longLine)},
        {"NestedThousandDeep", Nested(1000), "deep"},
        {"ColonlessLines", "this is not\na header block\n\n", ""},
        {"EmptyEncodedWord", "Subject: =?" "?Q?" "?=\n\n", "=?" "?Q?" "?="},
        {"BadBase64EncodedWord", "Subject: =?utf-8?B?***?=\n\n", ""},
        {"EncodedWordInvalidUtf8", "Subject: =?utf-8?Q?caf=E9?= ok\n\n", "caf? ok"},
        {"BadContentType", "Subject: ct\nContent-Type: ;;;=\n\nx\n", "ct"},
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
TEST(LargeMessage, ParsesFromFileHeadersOnlyAndWithBody)
{
    constexpr qint64 kTarget = 50LL * 1024 * 1024;
    QTemporaryDir dir;
    QFile file(dir.filePath("big.eml"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("From: Big <big@example.com>\nSubject: large attachment\n"
               "Content-Type: multipart/mixed; boundary=\"sep\"\n\n"
               "--sep\nContent-Type: text/plain\n\nSee the archive.\n"
               "--sep\nContent-Type: application/octet-stream\n"
               "Content-Disposition: attachment; filename=big.bin\nContent-Transfer-Encoding: base64\n\n");
    while (file.size() < kTarget) file.write((QByteArray(57, 'Z').toBase64() + "\n").repeated(1000));
    file.write("--sep--\n");
    file.close();
    for (bool withBody : {false, true}) {
        SCOPED_TRACE(withBody ? "with body" : "headers only");
        ParseOptions options;
        options.withBody = withBody;
        QElapsedTimer timer;
        timer.start();
        auto record = MimeProperties::FromFile(file.fileName(), options);
        std::cout << "[ figure   ] " << (withBody ? "with body" : "headers only") << ": " << timer.elapsed() << " ms\n";
        ASSERT_TRUE(record.ok());
        EXPECT_EQ(record->props.value(PR_SUBJECT).toString(), "large attachment");
        EXPECT_EQ(record->props.value(PR_MESSAGE_FLAGS).toInt(), MSGFLAG_HASATTACH);
        EXPECT_GE(record->props.value(PR_MESSAGE_SIZE).toLongLong(), kTarget);
        EXPECT_EQ(record->props.value(PR_BODY).toString().trimmed(), withBody ? "See the archive." : "");
    }
}

}  // namespace

// A 50 MB message read from disk: the header-only path must not depend on
// the body's size, and the full parse must work from the file.

#include "platform/stores/common/MimeProperties.h"

#include <QElapsedTimer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <iostream>

using namespace mv::mapi;
using mv::stores::MimeProperties;
using mv::stores::ParseOptions;

namespace {

constexpr qint64 kTarget = 50LL * 1024 * 1024;

class LargeMessage : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_dir = new QTemporaryDir;
        // Single part: a plain text body of 50 MB.
        QFile plain(s_dir->filePath("plain.eml"));
        ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
        plain.write("From: Big <big@example.com>\nSubject: large plain\nContent-Type: text/plain\n\n");
        const QByteArray line = QByteArray(75, 'w') + "\n";
        while (plain.size() < kTarget) plain.write(line.repeated(1000));
        plain.close();

        // Multipart: a short text and a 50 MB base64 attachment.
        QFile mixed(s_dir->filePath("mixed.eml"));
        ASSERT_TRUE(mixed.open(QIODevice::WriteOnly));
        mixed.write("From: Big <big@example.com>\nSubject: large attachment\n"
                    "Content-Type: multipart/mixed; boundary=\"sep\"\n\n"
                    "--sep\nContent-Type: text/plain\n\nSee the archive.\n"
                    "--sep\nContent-Type: application/octet-stream\n"
                    "Content-Disposition: attachment; filename=big.bin\nContent-Transfer-Encoding: base64\n\n");
        const QByteArray b64 = QByteArray(57, '\x5a').toBase64() + "\n";
        while (mixed.size() < kTarget) mixed.write(b64.repeated(1000));
        mixed.write("--sep--\n");
        mixed.close();
    }
    static void TearDownTestSuite()
    {
        delete s_dir;
        s_dir = nullptr;
    }

    static MessageRecord Timed(const QString& name, bool withBody, const char* label)
    {
        ParseOptions options;
        options.withBody = withBody;
        QElapsedTimer timer;
        timer.start();
        auto record = MimeProperties::FromFile(s_dir->filePath(name), options);
        std::cout << "[ figure   ] " << label << ": " << timer.elapsed() << " ms\n";
        EXPECT_TRUE(record.ok());
        return record.ok() ? *record : MessageRecord{};
    }

    static QTemporaryDir* s_dir;
};

QTemporaryDir* LargeMessage::s_dir = nullptr;

TEST_F(LargeMessage, PlainHeadersOnly)
{
    const MessageRecord record = Timed("plain.eml", false, "50 MB text/plain, headers only");
    EXPECT_EQ(record.props.value(PR_SUBJECT).toString(), "large plain");
    EXPECT_GE(record.props.value(PR_MESSAGE_SIZE).toLongLong(), kTarget);
    EXPECT_FALSE(record.props.contains(PR_BODY));
}

TEST_F(LargeMessage, PlainWithBody)
{
    const MessageRecord record = Timed("plain.eml", true, "50 MB text/plain, with body");
    const QString body = record.props.value(PR_BODY).toString();
    EXPECT_GE(body.size(), kTarget - 200);
    EXPECT_TRUE(body.startsWith(QString(75, 'w') + "\n"));
}

TEST_F(LargeMessage, AttachmentHeadersOnly)
{
    const MessageRecord record = Timed("mixed.eml", false, "50 MB multipart/mixed, headers and structure");
    EXPECT_EQ(record.props.value(PR_SUBJECT).toString(), "large attachment");
    EXPECT_EQ(record.props.value(PR_MESSAGE_FLAGS).toInt(), MSGFLAG_HASATTACH);
}

TEST_F(LargeMessage, AttachmentWithBody)
{
    const MessageRecord record = Timed("mixed.eml", true, "50 MB multipart/mixed, with body");
    EXPECT_EQ(record.props.value(PR_BODY).toString(), "See the archive.");
    EXPECT_EQ(record.props.value(PR_MESSAGE_FLAGS).toInt(), MSGFLAG_HASATTACH);
}

}  // namespace

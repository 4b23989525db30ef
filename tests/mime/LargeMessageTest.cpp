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

#include "platform/corpus/MaildirWriter.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace mv::corpus;

namespace {

std::vector<GeneratedMessage> Sample(int count)
{
    CorpusOptions options;
    options.seed = 11;
    options.count = count;
    options.withAttachments = false;
    return CorpusGenerator::Generate(options);
}

TEST(MaildirWriter, WritesLayoutNamesTimesAndKeywordLetters)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.filePath("cur")));
    {
        // A keyword Dovecot already assigned keeps its letter.
        QFile existing(dir.filePath("dovecot-keywords"));
        ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
        existing.write("0 $Junk\n");
    }
    const auto messages = Sample(200);
    MaildirWriter writer(dir.path());
    ASSERT_TRUE(writer.Write(messages).ok());

    // Folders, their nesting and counts are read back through a Maildir store in tests/desktop.
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(".Sent/maildirfolder")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("maildirfolder")));
    EXPECT_TRUE(QDir(dir.filePath("tmp")).isEmpty());

    QFile keywordsFile(dir.filePath("dovecot-keywords"));
    ASSERT_TRUE(keywordsFile.open(QIODevice::ReadOnly));
    QStringList names;
    for (const QByteArray& line : keywordsFile.readAll().split('\n'))
        if (!line.isEmpty()) names << QString::fromUtf8(line.mid(line.indexOf(' ') + 1));
    ASSERT_GE(names.size(), 2);
    EXPECT_EQ(names.first(), "$Junk");

    // Each message: name from its date and sequence, content and mtime kept;
    // in the INBOX, keyword letters as the keywords file lists them.
    const QRegularExpression name(R"(^(\d+)\.(\d+)\.mvcorpus:2,([A-Z]*)([a-z]*)$)");
    for (size_t seq = 0; seq < messages.size(); ++seq) {
        const GeneratedMessage& m = messages[seq];
        const QString stem = QStringLiteral("%1.%2.mvcorpus:2,").arg(m.message.internalDate.toSecsSinceEpoch()).arg(seq);
        const QStringList found = QDir(writer.FolderPath(m.folder) + "/cur").entryList({stem + "*"}, QDir::Files);
        ASSERT_EQ(found.size(), 1) << stem.toStdString();
        const QString file = found.first();
        ASSERT_TRUE(name.match(file).hasMatch()) << file.toStdString();
        const QString system = name.match(file).captured(3);
        EXPECT_EQ(system.contains('S'), m.message.flags.seen);
        EXPECT_EQ(system.contains('R'), m.message.flags.answered);
        EXPECT_EQ(system.contains('F'), m.message.flags.flagged);
        EXPECT_EQ(system.contains('P'), m.message.flags.keywords.contains("$Forwarded"));
        EXPECT_FALSE(m.message.rfc822.contains("Content-Disposition: attachment")) << "none asked for";
        QFile content(writer.FolderPath(m.folder) + "/cur/" + file);
        ASSERT_TRUE(content.open(QIODevice::ReadOnly));
        EXPECT_EQ(content.readAll(), m.message.rfc822);
        EXPECT_EQ(QFileInfo(content).lastModified().toUTC(), m.message.internalDate);
        if (!m.folder.isEmpty()) continue;
        QStringList fromName;
        for (QChar letter : file.mid(file.indexOf(":2,") + 3))
            if (letter.isLower()) fromName << names.value(letter.unicode() - 'a');
        QStringList expected = m.message.flags.keywords;
        fromName.sort();
        expected.sort();
        EXPECT_EQ(fromName, expected) << file.toStdString();
    }
}

TEST(MaildirWriter, RefusesToOverwriteOrAnUnwritableRoot)
{
    QTemporaryDir dir;
    const auto messages = Sample(3);
    ASSERT_TRUE(MaildirWriter(dir.path()).Write(messages).ok());
    const QStringList before = QDir(dir.filePath("cur")).entryList(QDir::Files);
    QFile victim(dir.filePath("cur/" + before.first()));
    ASSERT_TRUE(victim.open(QIODevice::ReadWrite));
    victim.write("local edit");
    victim.close();

    const mv::Status second = MaildirWriter(dir.path()).Write(messages);
    ASSERT_FALSE(second.ok());
    EXPECT_TRUE(second.error().message.contains("overwrite"));
    ASSERT_TRUE(victim.open(QIODevice::ReadOnly));
    EXPECT_TRUE(victim.readAll().startsWith("local edit"));
    EXPECT_EQ(QDir(dir.filePath("cur")).entryList(QDir::Files), before);
    EXPECT_FALSE(MaildirWriter(dir.filePath("cur/" + before.first() + "/maildir")).Write(Sample(1)).ok());
}

}  // namespace

#include "tools/corpus/MaildirWriter.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace mv::corpus;
using mv::mapi::MessageFlags;

namespace {

MessageFlags Flags(bool seen, bool answered, bool flagged, QStringList keywords = {})
{
    MessageFlags f;
    f.seen = seen;
    f.answered = answered;
    f.flagged = flagged;
    f.keywords = std::move(keywords);
    return f;
}

TEST(MaildirWriter, InfoFlagsLetters)
{
    const struct {
        const char* name;
        MessageFlags flags;
        QStringList known;  // keywords already in the folder's file
        QString info;
        QStringList after;  // the keyword list afterwards
    } cases[] = {
        {"None", Flags(false, false, false), {}, "", {}},
        {"SystemFlagsInAsciiOrder", Flags(true, true, true), {}, "FRS", {}},
        {"ForwardedIsPassedAndKeyword", Flags(true, false, false, {"$Forwarded"}), {}, "PSa", {"$Forwarded"}},
        {"NewKeywordsGetNextLetters", Flags(false, false, true, {"$MailFlagBit2", "$Completed"}), {"$Junk"}, "Fbc",
         {"$Junk", "$MailFlagBit2", "$Completed"}},
        {"KnownKeywordsKeepTheirLetters", Flags(false, false, false, {"$Completed", "$Junk"}),
         {"$Junk", "x", "$Completed"}, "ac", {"$Junk", "x", "$Completed"}},
    };
    for (const auto& c : cases) {
        QStringList names = c.known;
        EXPECT_EQ(MaildirWriter::InfoFlags(c.flags, names).toStdString(), c.info.toStdString()) << c.name;
        EXPECT_EQ(names, c.after) << c.name;
    }
}

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

    for (const char* sub : {"cur", "new", "tmp", ".Sent/cur", ".Archive/tmp", ".Archive.Projects/new"})
        EXPECT_TRUE(QFileInfo(dir.filePath(sub)).isDir()) << sub;
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(".Sent/maildirfolder")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("maildirfolder")));
    int total = 0;
    for (const QString& folder : CorpusGenerator::Folders()) {
        const QStringList files = QDir(writer.FolderPath(folder) + "/cur").entryList(QDir::Files);
        EXPECT_EQ(files.size(), writer.Counts().value(folder));
        EXPECT_TRUE(QDir(writer.FolderPath(folder) + "/tmp").isEmpty());
        total += files.size();
    }
    EXPECT_EQ(total, 200);

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
        EXPECT_EQ(file.contains(QRegularExpression(":2,[A-Z]*S")), m.message.flags.seen);
        QFile content(writer.FolderPath(m.folder) + "/cur/" + file);
        ASSERT_TRUE(content.open(QIODevice::ReadOnly));
        EXPECT_EQ(content.readAll(), m.message.rfc822);
        EXPECT_EQ(QFileInfo(content).lastModified().toUTC(), m.message.internalDate);
        if (!m.folder.isEmpty()) continue;
        QStringList fromName;
        for (QChar letter : file.mid(file.indexOf(":2,") + 3))
            if (letter.isLower()) fromName << names.value(letter.unicode() - 'a');
        QStringList expected = m.message.flags.keywords;
        EXPECT_EQ(file.contains(QRegularExpression(":2,[A-Z]*P")), expected.contains("$Forwarded"));
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

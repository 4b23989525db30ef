#pragma once
// Real Maildir trees in a temporary directory, and messages written by hand
// so each test states exactly what its files hold.

#include "platform/stores/maildir/MaildirIds.h"
#include "platform/stores/maildir/MaildirName.h"
#include "platform/stores/maildir/MaildirStore.h"

#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

#include <sys/stat.h>
#include <utime.h>

namespace mv::stores::maildir::test {

using namespace mv::mapi;

inline const QByteArray kInbox = FolderIdFor(QString());
inline const QByteArray kArchive = FolderIdFor(QStringLiteral(".Archive"));

inline QByteArray Mail(const QString& subject, const QString& from = QStringLiteral("Alice <alice@example.com>"),
                       const QString& to = QStringLiteral("Bob <bob@example.org>"),
                       const QByteArray& body = "Hello.\n")
{
    return "From: " + from.toUtf8() + "\nTo: " + to.toUtf8() + "\nSubject: " + subject.toUtf8()
        + "\nDate: Mon, 02 Nov 2026 10:00:00 +0000\nMessage-ID: <" + subject.toUtf8().toHex() + "@example.com>\n\n"
        + body;
}

inline void MakeMaildir(const QString& dir)
{
    for (const char* sub : {"cur", "new", "tmp"}) QDir().mkpath(dir + QLatin1Char('/') + QLatin1String(sub));
}

inline void WriteFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly)) << path.toStdString();
    f.write(bytes);
}

inline void SetMtime(const QString& path, qint64 secs)
{
    const struct utimbuf t{secs, secs};
    ASSERT_EQ(::utime(QFile::encodeName(path).constData(), &t), 0);
}

// The subjects a query returns, sorted.
inline QStringList Subjects(MaildirStore& store, const QByteArray& folder, const Restriction* r = nullptr)
{
    auto rows = store.Query(folder, r, {PR_SUBJECT});
    EXPECT_TRUE(rows.ok()) << (rows.ok() ? "" : rows.error().message.toStdString());
    QStringList out;
    for (const Row& row : rows.ok() ? *rows : std::vector<Row>{}) out << row[0].toString();
    out.sort();
    return out;
}

class MaildirFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_tmp.isValid());
        root = m_tmp.path() + QStringLiteral("/Mail");
        MakeMaildir(root);
        indexPath = m_tmp.path() + QStringLiteral("/cache/index.sqlite");
    }

    std::unique_ptr<MaildirStore> Open(bool watch = false, std::optional<MaildirLayout::Kind> layout = {})
    {
        MaildirStoreOptions options;
        options.indexPath = indexPath;
        options.watch = watch;
        options.layout = layout;
        return std::make_unique<MaildirStore>(root, options);
    }

    // Writes a message file into `folder` ("" = INBOX) and returns its path.
    QString Put(const QString& folder, const QString& relName, const QByteArray& bytes)
    {
        const QString dir = folder.isEmpty() ? root : root + QLatin1Char('/') + folder;
        MakeMaildir(dir);
        const QString path = dir + QLatin1Char('/') + relName;
        WriteFile(path, bytes);
        return path;
    }

    // The one message `subject` in `folder`, by its id.
    QByteArray IdOf(MaildirStore& store, const QByteArray& folder, const QString& subject)
    {
        auto rows = store.Query(folder, nullptr, {PR_ENTRYID, PR_SUBJECT});
        for (const Row& row : rows.ok() ? *rows : std::vector<Row>{})
            if (row[1].toString() == subject) return row[0].toByteArray();
        ADD_FAILURE() << "no message " << subject.toStdString();
        return {};
    }

    QStringList Files(const QString& folder, const char* sub = "cur") const
    {
        const QString dir = (folder.isEmpty() ? root : root + QLatin1Char('/') + folder) + QLatin1Char('/')
            + QLatin1String(sub);
        return QDir(dir).entryList(QDir::Files, QDir::Name);
    }

    QTemporaryDir m_tmp;
    QString root;
    QString indexPath;
};

}  // namespace mv::stores::maildir::test

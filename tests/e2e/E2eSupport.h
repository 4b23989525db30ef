#pragma once
// The mailvane program run as a child process in a private world: HOME and
// the XDG folders in a temporary folder, a profile naming a Maildir in that
// folder ([Local]), the user's Maildir of a private Dovecot ([Server]) or
// both, and the stores' files read back by Message-ID.

#include "tests/support/QtPrinters.h"
#include "tests/support/dovecot/DovecotServer.h"

#include <QHash>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace mv::e2e {

// A store of a world; Default is the first one the world has.
enum class Side { Default, Local, Server };

struct WorldStores {
    bool local = false;
    bool server = false;
    QStringList hideCapabilities;  // left out of the server's CAPABILITY, e.g. "MOVE"
};

// One message file as a store holds it.
struct StoredMail {
    QString folder;        // "" for the INBOX, else its path ("Archive/Old")
    QString id;            // Message-ID, else "subject:" + Subject
    QString flags;         // Maildir info letters in upper case ("S", "T" for \Deleted)
    QStringList keywords;  // keyword names
    bool inTmp = false;    // a file in tmp/: a delivery never finished
};

// A folder as rules name it: hexadecimal identifiers from `mailvane folders`.
struct FolderRef {
    QString entryId, storeId;
};

struct Result {
    int code = -1;
    QString out, err;
};

// One message written straight into a Maildir folder. Every field has an
// initializer, so that tests name only the fields they need.
struct Mail {
    QString id{};               // Message-ID without <>
    bool noMessageId = false;   // write none: the message is then known as "subject:" + subject
    QString subject{};
    QString from = QStringLiteral("Alice <alice@example.com>");
    QStringList keywords{};     // "$Completed" (Dovecot's dovecot-keywords letters)
    int ageDays = 0;            // delivered this many days ago (0: an hour ago)
    bool toNew = false;         // renamed into new/ as a delivery agent does, not into cur/
};

class World {
public:
    explicit World(WorldStores stores);
    ~World();
    // Builds the stores and the profile; the error, empty when the world stands.
    QString Start();

    void CreateFolder(const QString& path, Side side = Side::Default);
    void Write(const QString& folder, const Mail& mail, Side side = Side::Default);
    // Gives freshly written files to the mail server's user.
    void HandOver() const;
    // Every message file of the store, tmp/ and \Deleted ones included.
    QList<StoredMail> Contents(Side side = Side::Default) const;
    // Sorted ids of the messages in `folder` ("" or "Inbox" for the INBOX), tmp/ left out.
    QStringList Ids(const QString& folder, Side side = Side::Default) const;
    // The folders of one store that `mailvane folders` lists, by path; the INBOX is "Inbox".
    QHash<QString, FolderRef> Folders(Side side = Side::Default) const;
    // Imports rule rows (z:row attribute text each) with `mailvane import`.
    bool Import(const QStringList& rows, QString* error) const;

    Result Run(const QStringList& args, int timeoutMs = 60000) const;
    // Starts the program with the profile and `args`, without waiting.
    void Launch(QProcess& process, const QStringList& args) const;
    QString Path(const QString& relative) const { return m_dir.filePath(relative); }  // under HOME
    QString ProfilePath() const { return Path(QStringLiteral("profile.ini")); }
    QString LogText() const;  // mv.log

private:
    Side Resolve(Side side) const { return side != Side::Default ? side : m_stores.local ? Side::Local : Side::Server; }
    QString Root(Side side) const { return Resolve(side) == Side::Local ? m_localRoot : m_serverRoot; }

    WorldStores m_stores;
    QTemporaryDir m_dir;
    QString m_localRoot, m_serverRoot;
    std::unique_ptr<test::DovecotServer> m_dovecot;
};

// A rule row moving mail from `src` to `dst` when `criteria` (column -> value)
// match; the other criteria keep their "no criterion" values.
QString RuleRow(int sortId, const QString& name, const FolderRef& src, const FolderRef& dst,
                const QHash<QString, QString>& criteria, bool active = true);

}  // namespace mv::e2e

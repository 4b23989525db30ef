#pragma once
// The mailvane program run as a child process in a private world: HOME and
// the XDG folders in a temporary folder, a profile naming one store (a
// Maildir in that folder, or the user's Maildir of a private Dovecot), and
// helpers that read the store's files back by Message-ID.

#include "tests/support/dovecot/DovecotServer.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QProcessEnvironment>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <ostream>

QT_BEGIN_NAMESPACE
inline void PrintTo(const QStringList& l, std::ostream* os) { *os << '{' << l.join(QStringLiteral(" | ")).toStdString() << '}'; }
QT_END_NAMESPACE

namespace mv::e2e {

enum class Backend { Maildir, Imap };

// The two stores a world can hold: the profile's [Local] Maildir in the
// temporary folder and its [Server], the private Dovecot.
enum class Side { Local, Server };

// A world with both stores, or a Dovecot that hides capabilities.
struct WorldStores {
    bool local = false;
    bool server = false;
    QStringList hideCapabilities;  // left out of the server's CAPABILITY, e.g. "MOVE"
};

// One message file as a store holds it.
struct StoredMail {
    QString folder;         // "" for the INBOX
    QString id;             // Message-ID, else "subject:" + Subject
    QString flags;          // Maildir info letters in upper case ("S", "T" for \Deleted)
    QStringList keywords;   // keyword names
    bool inTmp = false;     // a file in tmp/: a delivery never finished
};

// A folder of one store as rules name it.
struct FolderRef {
    QString entryId, storeId;  // hexadecimal, from `mailvane folders`
};

struct Result {
    int code = -1;
    QString out, err;
};

// One message written straight into a Maildir folder.
struct Mail {
    QString id;              // Message-ID without <>, also the subject's tag
    bool noMessageId = false;  // write no Message-ID: Ids() then lists "subject:" + subject
    QString subject;
    QString from = QStringLiteral("Alice <alice@example.com>");
    QString to = QStringLiteral("Bob <bob@example.org>");
    QString cc;
    QString body = QStringLiteral("Nothing to see.");
    QString extraHeaders;    // "Importance: high\r\n"
    QString flags;           // Maildir info letters ("S", "F", "R", "P")
    QStringList keywords;    // "$Completed", "$Forwarded" (Dovecot's dovecot-keywords letters)
    int ageDays = 0;         // delivered this many days ago (0: an hour ago)
};

class World {
public:
    explicit World(Backend backend);
    explicit World(WorldStores stores);  // the first store named is the default one
    ~World();
    // False (with the reason in `error`) when the world cannot be built; an
    // unavailable Dovecot gives `skip`.
    bool Start(QString* error, bool* skip);

    QString MaildirRoot() const { return m_root; }
    QString FolderDir(const QString& path) const;  // "" or "Inbox": the root
    void CreateFolder(const QString& path);
    void Write(const QString& folder, const Mail& mail);
    // Message-IDs of the messages in `folder` (a file that appears twice counts twice).
    QStringList Ids(const QString& folder) const;
    // Message-IDs of every folder, by folder path ("" for the INBOX).
    QHash<QString, QStringList> AllIds() const;
    // Keyword names set on the message `id` in `folder`.
    QStringList Keywords(const QString& folder, const QString& id) const;
    // The same for one store of a two-store world.
    QString FolderDir(Side side, const QString& path) const;
    void CreateFolder(Side side, const QString& path);
    void Write(Side side, const QString& folder, const Mail& mail);
    QStringList Ids(Side side, const QString& folder) const;
    // Every message file of the store, tmp/ and \Deleted ones included.
    QList<StoredMail> Contents(Side side) const;
    // The rules' identifiers of a folder ("Inbox" finds the INBOX of either
    // store); empty when `mailvane folders` does not list it.
    FolderRef Folder(Side side, const QString& path) const;
    // Gives freshly written files to the mail server's user.
    void HandOver() const;

    Result Run(const QStringList& args, int timeoutMs = 60000) const;
    QProcessEnvironment Environment() const;
    QString Program() const;
    QStringList BaseArgs() const;  // --profile ...
    QString LogText() const;       // mv.log
    // "folder path" -> hex identifier, and the store's hex identifier, from
    // `mailvane folders`.
    QHash<QString, QString> FolderIds(QString* storeId) const;
    // Rowset XML holding `rows` (z:row attribute text each).
    static QByteArray RulesXml(const QStringList& rows);
    bool Import(const QStringList& rows, QString* error) const;

    Backend backend() const { return m_backend; }

private:
    QString Root(Side side) const { return side == Side::Local ? m_localRoot : m_serverRoot; }
    Side DefaultSide() const { return m_stores.local ? Side::Local : Side::Server; }

    Backend m_backend;
    WorldStores m_stores;
    QTemporaryDir m_dir;
    QString m_root;
    QString m_localRoot, m_serverRoot;
    std::unique_ptr<test::DovecotServer> m_dovecot;
};

// A rule row: source INBOX, destination `dst`, criteria as attributes.
// Attributes not given keep their "no criterion" values; text is escaped.
struct RuleDef {
    QString name;
    QString dst;                       // destination folder path ("Inbox" for the INBOX)
    QHash<QString, QString> criteria;  // column -> value
    bool active = true;
    QString src = QStringLiteral("Inbox");
};
QString RuleRow(int sortId, const RuleDef& rule, const QHash<QString, QString>& folderIds, const QString& storeId);
// A rule row between folders of any stores; `rule.src` and `rule.dst` are not read.
QString RuleRow(int sortId, const RuleDef& rule, const FolderRef& src, const FolderRef& dst);

}  // namespace mv::e2e

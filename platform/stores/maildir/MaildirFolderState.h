#pragma once
// What the store knows about one folder between queries: the indexed
// messages keyed by unique name (sorted, so rows come back in a stable
// order), their flags as the current file names say, and the directory
// times of the last scan.

#include "MaildirIndex.h"

#include "platform/mapi/MessageStore.h"

#include <QDateTime>
#include <QFile>
#include <QHash>
#include <QSet>
#include <QStringList>

#include <functional>
#include <map>

namespace mv::stores::maildir {

// Flags of one info part and FlagMapping's properties for them. A folder
// has few distinct combinations, so messages share these.
struct FlagState {
    mapi::MessageFlags flags;
    std::vector<std::pair<mapi::PropTag, QVariant>> props;
};

struct CachedMessage {
    IndexedMessage file;
    std::shared_ptr<const FlagState> flagState;  // from the info part of the name
    QDateTime delivered;                         // UTC

    const mapi::MessageFlags& flags() const { return flagState->flags; }
    const std::vector<std::pair<mapi::PropTag, QVariant>>& flagProps() const { return flagState->props; }
};

struct ScanStats {
    int listed = 0;      // files seen in cur/ and new/
    int parsed = 0;      // files read and parsed
    int renamed = 0;     // known files whose name (flags) changed
    int dropped = 0;     // index rows of files that are gone
    int unreadable = 0;  // files that could not be parsed: left out
    bool skipped = false;  // directories unchanged since the last scan
};

// Parses a message file into header properties; called from worker threads.
using HeaderParser = std::function<Result<std::shared_ptr<const HeaderProps>>(const QString& path)>;

class MaildirFolderState {
public:
    MaildirFolderState(QString folderPath, QString dir) : m_path(std::move(folderPath)), m_dir(std::move(dir)) {}

    const QString& path() const { return m_path; }
    const QString& dir() const { return m_dir; }
    bool loaded() const { return m_loaded; }
    const std::map<QString, CachedMessage>& messages() const { return m_messages; }
    // The same messages in the same order as a vector, kept between scans
    // that change nothing: a query walks it instead of the map's nodes.
    const std::vector<const CachedMessage*>& ordered() const;
    const QStringList& keywords() const { return m_keywords; }
    // The directory times of the last scan as MaildirQuickIndex keeps them,
    // or empty when they were too recent to trust (or no scan happened).
    QByteArray trustedValidity() const;
    // The times of `dir` as they are now, in trustedValidity's form.
    static QByteArray ValidityNow(const QString& dir);
    // How long until a scan may trust the directory times of `validity`
    // (as ValidityNow gives them); negative: a scan now would.
    static qint64 NsUntilTrusted(const QByteArray& validity);

    // Brings the folder's messages up to date with the directories: loads
    // the index rows once, lists cur/ and new/ (readdir), parses only new or
    // changed files and drops rows of vanished ones, in one transaction.
    Status Scan(MaildirIndex& index, const HeaderParser& parser, ScanStats& stats);

    // Bookkeeping after the store's own renames.
    void Forget(const QString& unique);
    void Learn(const IndexedMessage& file);
    void Invalidate()
    {
        m_loaded = false;
        m_messages.clear();
        m_orderedValid = false;
        m_curMtime = m_newMtime = 0;
    }

private:
    Status LoadKeywords();
    void Derive(CachedMessage& m);
    // Equal strings share one copy: senders, recipients and classes repeat
    // across a folder.
    std::shared_ptr<const HeaderProps> Intern(std::shared_ptr<const HeaderProps> header);

    QString m_path;
    QString m_dir;
    bool m_loaded = false;
    std::map<QString, CachedMessage> m_messages;
    mutable std::vector<const CachedMessage*> m_ordered;
    mutable bool m_orderedValid = false;
    QStringList m_keywords;
    qint64 m_keywordsMtime = -1;
    qint64 m_curMtime = 0;  // trusted directory times; 0 = scan again
    qint64 m_newMtime = 0;
    QHash<QString, std::shared_ptr<const FlagState>> m_flagStates;  // key: info part + structure bits
    QSet<QString> m_strings;
};

}  // namespace mv::stores::maildir

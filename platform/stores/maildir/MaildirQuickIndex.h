#pragma once
// The store's compact index: one MessageIndexFile per folder beside the
// SQLite index, holding what rules read of every message and the answers of
// body terms. A query of a folder whose directories did not change since
// the file was written is answered from it alone: no message file is
// opened, the SQLite rows are not loaded, nothing is allocated per message.
// The SQLite index stays the record of parsed headers that scans and the
// store's own moves keep up to date; this file is written from the folder's
// state when the store is done with it (Flush, and the store's destructor),
// so a run costs at most one write per folder it changed.
//
// Validity: the mtimes of cur/ and new/ and of dovecot-keywords as the last
// trusted scan saw them (MaildirFolderState::trustedValidity). Any change
// by anyone moves one of them, so a file whose validity is not today's is
// not used, only its body answers (under the same name, size and mtime).
//
// Used from the store's thread; the files may be read by query threads
// while nothing writes.

#include "MaildirFolderState.h"

#include "platform/mapi/Restriction.h"
#include "platform/stores/common/MessageIndexFile.h"

#include <map>
#include <memory>
#include <vector>

namespace mv::stores::maildir {

// The body terms of one restriction with their keys, worked out once per
// query rather than once per message.
class BodyTerms {
public:
    static BodyTerms Of(const mapi::Restriction& root);
    bool empty() const { return m_keys.empty(); }
    quint64 KeyOf(const mapi::Restriction& node) const;

private:
    void Collect(const mapi::Restriction& node);
    std::vector<std::pair<const mapi::Restriction*, quint64>> m_keys;
};

struct LearnedAnswer {
    QByteArray key;  // unique name, UTF-8
    qint64 size;     // with key and stamp, the message the body was read of
    qint64 stamp;
    quint64 term;
    bool answer;
};

// Bit of Record::flags: the message carries T (trashed) and is never listed.
inline constexpr quint32 kIndexFlagTrashed = 1;

class MaildirQuickIndex {
public:
    // Files go to <directory>/<sha1 of the folder path>.mvix.
    explicit MaildirQuickIndex(QString directory) : m_directory(std::move(directory)) {}

    // The folder's file when it describes the directories as they are now,
    // else nullptr. Opens the file on first use; a damaged one is not used.
    MessageIndexFile* Current(const QString& folderPath, const QString& dir);
    // The folder's file whatever its validity (for body answers), or nullptr.
    MessageIndexFile* Any(const QString& folderPath);

    // Answers found by a query: kept by the folder's file when it has the
    // message, else until Flush writes the folder's records.
    void Learn(const QString& folderPath, std::vector<LearnedAnswer> answers);
    // The folder's state changed (scan, move, rename): its file is written
    // again from it at Flush.
    void MarkChanged(const QString& folderPath) { m_changed[folderPath] = true; }
    bool changed(const QString& folderPath) const { return m_changed.count(folderPath) != 0; }

    // Writes every folder's pending changes: records from `state` for the
    // changed folders that are loaded, then the learned answers. Errors are
    // returned after trying every folder; the files are only a cache.
    Status Flush(const std::function<const MaildirFolderState*(const QString& folderPath)>& state);

    // Record::aux is the file's name relative to the folder with the unique
    // name left out (a NUL in its place): "cur/\0:2,S". Few folders have
    // more than a handful of those, so the pool keeps each once.
    static QByteArray AuxOf(const QString& relName, const QString& unique);
    static QString RelNameOf(QByteArrayView aux, QByteArrayView key);
    static MessageIndexFile::Record RecordOf(const CachedMessage& message);

private:
    QString FileFor(const QString& folderPath) const;

    QString m_directory;
    std::map<QString, std::unique_ptr<MessageIndexFile>> m_files;  // null: cannot be opened
    std::map<QString, bool> m_changed;
    std::map<QString, std::vector<LearnedAnswer>> m_learned;  // of messages the file lacked
};

}  // namespace mv::stores::maildir

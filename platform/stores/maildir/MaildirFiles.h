#pragma once
// File operations of the Maildir store that know nothing of its index:
// delivery through tmp/, renames that never replace a file, the copy that
// stands in for a rename across file systems, and what a folder's directory
// listings or a message file tell without parsing MIME.
//
// Errors follow errno: ENOENT is NotFound, a full disk or a busy resource
// Temporary, the rest Permanent.

#include "platform/common/Error.h"
#include "platform/mapi/MessageStore.h"

#include <QByteArray>
#include <QDateTime>
#include <QSet>
#include <QString>

namespace mv::stores::maildir {

struct FolderCounts {
    int total = 0;   // messages in cur/ and new/, trashed ones (T) left out
    int unread = 0;  // of those, the ones without S
};

namespace MaildirFiles {

Error ErrnoError(const QString& what, int err);

// rename(2) that never replaces an existing file; 0 or an errno.
int RenameNoReplace(const QByteArray& from, const QByteArray& to);
void SyncDir(const QString& dir);

// Writes `bytes` into a fresh file of <folderDir>/tmp/, fsyncs it and sets
// its mtime to `mtime` (UTC); returns its path. The file is gone on error.
// `name` empty: a fresh name. Given (a move's chosen unique name), a stale
// tmp/ file of that name, left by an interrupted move of the same message,
// is replaced.
Result<QString> WriteTmp(const QString& folderDir, const QByteArray& bytes, const QDateTime& mtime,
                         const QString& name = {});
// The same with another file's bytes and mtime.
Result<QString> CopyToTmp(const QString& from, const QString& folderDir);

// The unique names in cur/ and new/.
Result<QSet<QString>> ListUniques(const QString& folderDir);
// Counts from the file names alone: no message is opened.
Result<FolderCounts> Count(const QString& folderDir);

// What a unique name may be: one file-name component without the info
// separator, control characters or a leading dot.
bool IsValidUnique(const QByteArray& unique);

// Message-ID and size with CRLF line ends, read from the file; the unique
// name and delivery time are the caller's.
Result<mapi::Fingerprint> ReadFingerprint(const QString& path);

}  // namespace MaildirFiles

}  // namespace mv::stores::maildir

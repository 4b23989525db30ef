#pragma once
// Folders and files only their owner may read: the data folder (the rule
// database, the log), the cache (the Maildir index with subjects and
// addresses). A new one is created with the owner-only mode from the start,
// so there is no moment in which others could open it; an existing one
// wider than that is tightened by taking the group and other bits off.
//
// Errors: each call returns false when the folder or file cannot be made or
// its mode cannot be changed (errno tells why); what it did before stays.

#include <QString>
#include <QStringList>

namespace mv::os {

inline constexpr unsigned kPrivateDirMode = 0700;
inline constexpr unsigned kPrivateFileMode = 0600;

// Creates `dir` when missing (its missing parents with the usual mode, the
// folder itself 0700), or takes the group and other bits off an existing
// one. Each mode changed is added to `tightened` as "<path> 0755 -> 0700".
bool MakePrivateDir(const QString& dir, QStringList* tightened = nullptr);
// Takes the group and other bits off `path` when it exists; a missing file
// is not an error. Records changes as MakePrivateDir does.
bool MakePrivateFile(const QString& path, QStringList* tightened = nullptr);
// Copies `from` to the new file `to`, created 0600. Never replaces: false
// when `to` exists. A failed copy leaves no partial `to` behind.
bool CopyPrivateFile(const QString& from, const QString& to);

}  // namespace mv::os

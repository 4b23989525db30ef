#pragma once
// The stores the host opens, from $XDG_CONFIG_HOME/Mailvane/profile.ini (or a
// file given). One section per store, named as the user likes:
//
//   [Work]
//   type=imap
//   host=imap.example.org
//   port=993                    ; default 993 (implicit), 143 otherwise
//   tls=implicit                ; implicit | starttls | none
//   user=me
//   password_command=pass show mail/work   ; or password=... (then chmod 600)
//   pinned_certificate=/path/server.pem    ; or a SHA-256 fingerprint
//   address=me@example.org      ; optional: the account's own address
//
//   [Hosted]                    ; a service that wants OAuth2 instead of a password
//   type=imap
//   host=imap.example.com
//   user=me@example.com
//   auth=xoauth2                ; plain (default) | xoauth2 | oauthbearer
//   token_command=oauth-helper --account me   ; first line: a fresh access token
//
//   [Local]
//   type=maildir
//   path=~/Mail                 ; "~/" is the home folder
//   address=me@example.org      ; optional
//
// With no profile file the host uses the embedded default: one Maildir store
// "<data folder>/Mail" made with Inbox, Sent, Drafts, Trash and Archive.
// Every error names the file, the section and the key.

#include "platform/common/Error.h"
#include "platform/stores/imap/ImapSettings.h"

#include <QString>

#include <vector>

namespace mv::host {

struct StoreProfile {
    enum class Type { Maildir, Imap };
    QString section;             // the section's name, the store's display name
    Type type = Type::Maildir;
    QString path;                // Maildir: absolute root
    QString address;             // the account's own address; may be empty
    stores::ImapSettings imap;   // IMAP only
};

struct Profile {
    QString file;                // where it was read from; empty for the embedded default
    std::vector<StoreProfile> stores;

    // $XDG_CONFIG_HOME/Mailvane/profile.ini.
    static QString DefaultPath();
    // Reads `path`. A missing or unreadable file, a malformed one, a section
    // without a type, an unknown type, a missing or bad value are permanent
    // errors; nothing is created. So is a file holding a non-empty
    // `password=` that group or others may read: its message names the file
    // and the fix ("chmod 600 <file>").
    static Result<Profile> Load(const QString& path);
    // The profile at DefaultPath() when that file exists, else the embedded
    // default (its Maildir is created when missing).
    static Result<Profile> LoadDefault();
    // The embedded default rooted in `dataDir` (the Mail folder is created
    // there with its five folders when missing; existing mail is left alone).
    static Result<Profile> Embedded(const QString& dataDir);
};

// Makes `root` a Maildir++ store with Inbox (the root), Sent, Drafts, Trash
// and Archive; folders that exist are kept as they are.
Status CreateDefaultMaildir(const QString& root);

}  // namespace mv::host

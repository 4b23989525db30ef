#pragma once
// Where a Maildir store keeps its folders. Two layouts:
// - Maildir++ (Dovecot's default): the root is INBOX; every other folder is
//   a directory ".A.B" directly under the root, "." separating the levels.
// - File system: the root is INBOX (when it has cur/) and folders are nested
//   directories "A/B", each with cur/ new/ tmp/.
// Detect(): a root with a ".X" directory that has cur/ is Maildir++; else a
// root with a plain sub-directory that has cur/ is the file-system layout;
// anything else (an empty or INBOX-only root) is Maildir++.
//
// Folder paths (the part of the folder id after the magic) are the
// directory names as on disk relative to the root: "" for INBOX, ".A.B" or
// "A/B". Names on disk are modified UTF-7.

#include "platform/common/Error.h"

#include <QString>

#include <optional>
#include <vector>

namespace mv::stores::maildir {

struct LayoutFolder {
    QString path;         // relative folder path ("" = INBOX)
    QString dir;          // absolute directory
    QString parentPath;   // meaningful only when hasParent
    bool hasParent = false;
    QString name;         // decoded display name of the last level
    QString displayPath;  // decoded levels joined by "/"
    QString specialUse;   // "\\Inbox", "\\Sent", ... or empty
};

class MaildirLayout {
public:
    enum class Kind { MaildirPlusPlus, FileSystem };

    MaildirLayout(QString root, Kind kind) : m_root(std::move(root)), m_kind(kind) {}
    static MaildirLayout Detect(const QString& root);

    Kind kind() const { return m_kind; }
    const QString& root() const { return m_root; }

    // Every folder with a cur/ directory, INBOX first, then by display path.
    std::vector<LayoutFolder> List() const;
    // The folder's directory when the path is well formed and the folder
    // exists (has cur/); nullopt otherwise.
    std::optional<QString> DirOf(const QString& folderPath) const;
    std::optional<LayoutFolder> Describe(const QString& folderPath) const;
    // Creates cur/ new/ tmp/ (and the maildirfolder marker for Maildir++);
    // returns the new folder's path. An empty parent or INBOX's path makes a
    // top-level folder (INBOX's children are its siblings, as in Dovecot).
    Result<QString> Create(const QString& parentPath, const QString& name) const;
    // The folder whose special use is `use` ("\\Sent"), if any.
    std::optional<QString> FindSpecial(const QString& use) const;

    static bool IsMaildir(const QString& dir);

private:
    LayoutFolder Make(const QString& path) const;
    QString m_root;
    Kind m_kind;
};

}  // namespace mv::stores::maildir

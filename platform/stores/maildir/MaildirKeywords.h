#pragma once
// A folder's dovecot-keywords file: "<index> <keyword>" per line, index 0
// being the info letter 'a'. Each folder has its own list, so the same
// keyword may have different letters in two folders.

#include "platform/common/Error.h"

#include <QString>
#include <QStringList>

namespace mv::stores::maildir {

class MaildirKeywords {
public:
    static constexpr int kMaxKeywords = 26;  // letters a..z

    // The list indexed by letter; missing indexes are empty strings. A
    // missing file is an empty list; an unreadable one is an error.
    static Result<QStringList> Load(const QString& folderDir);
    // Replaces the file atomically (write, then rename).
    static Status Save(const QString& folderDir, const QStringList& keywords);
};

}  // namespace mv::stores::maildir

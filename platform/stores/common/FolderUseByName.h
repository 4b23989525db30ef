#pragma once
// The special use a top-level folder's name implies, for servers and folder trees
// that do not say (RFC 6154 names, then the names common clients create).

#include <QString>

namespace mv::stores {

class FolderUseByName {
public:
    // "\\Sent", "\\Drafts", "\\Trash", "\\Archive", "\\Junk", or empty.
    // The name is compared without regard to case.
    static QString UseOf(const QString& name);
};

}  // namespace mv::stores

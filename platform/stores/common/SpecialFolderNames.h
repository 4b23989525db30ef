#pragma once
// Special use by a top-level folder's name, for servers and folder trees
// that do not say (RFC 6154 names, then the names common clients create).

#include <QString>

namespace mv::stores {

class SpecialFolderNames {
public:
    // "\\Sent", "\\Drafts", "\\Trash", "\\Archive", "\\Junk", or empty.
    // The name is compared without regard to case.
    static QString UseOf(const QString& name);
};

}  // namespace mv::stores

#pragma once
// The seam behind NameSpace::PickFolder: the desktop host shows its folder
// dialog, the headless host and the command line have none.

#include "Folder.h"

#include <memory>

namespace mv::outlook {

class NameSpace;

class FolderPicker {
public:
    virtual ~FolderPicker() = default;
    // The chosen folder; nullptr when the user cancels or there is no window.
    virtual std::unique_ptr<Folder> Pick(NameSpace& nameSpace) = 0;
};

class NoFolderPicker final : public FolderPicker {
public:
    std::unique_ptr<Folder> Pick(NameSpace&) override { return nullptr; }
};

}  // namespace mv::outlook

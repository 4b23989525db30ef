#pragma once
// The desktop's folder picker: a tree of every store of the namespace with
// its folders, OK and Cancel. One dialog serves every pick; each Pick reads
// the folder lists afresh, so folders created meanwhile appear.
//
// A store that cannot be reached just now shows as a node with the reason
// and no folders; the other stores are unaffected.

#include "platform/outlook/FolderPicker.h"

#include <QDialog>

class QPushButton;
class QStandardItemModel;
class QTreeView;
class QModelIndex;

namespace mv::outlook {
class NameSpace;
}

namespace mv::forms {

class FolderPickerDialog : public QDialog, public outlook::FolderPicker {
    Q_OBJECT
public:
    explicit FolderPickerDialog(QWidget* parent = nullptr);

    // Load, then the dialog modally; the chosen folder, or nullptr on Cancel.
    std::unique_ptr<outlook::Folder> Pick(outlook::NameSpace& nameSpace) override;

    // Fills the tree from every store of `nameSpace`.
    void Load(outlook::NameSpace& nameSpace);
    // The folder selected in the tree, opened through `nameSpace`; nullptr
    // when a store node or nothing is selected.
    std::unique_ptr<outlook::Folder> Selected(outlook::NameSpace& nameSpace) const;
    // Selects the folder with that display path ("Inbox/Projects") in the
    // store of that name; false when there is none.
    bool SelectPath(const QString& storeName, const QString& path);

private:
    void UpdateButtons();
    bool IsFolder(const QModelIndex& index) const;

    QTreeView* tvwFolders = nullptr;
    QStandardItemModel* m_model = nullptr;
    QPushButton* btnOK = nullptr;
    QPushButton* btnCancel = nullptr;
};

}  // namespace mv::forms

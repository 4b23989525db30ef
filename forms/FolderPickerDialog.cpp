#include "FolderPickerDialog.h"

#include "DialogButtons.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/mapi/MessageStore.h"
#include "platform/outlook/NameSpace.h"

#include <QHBoxLayout>
#include <QHash>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTreeView>
#include <QVBoxLayout>

namespace mv::forms {

namespace {

enum Role : int {
    kEntryRole = Qt::UserRole + 1,  // hex entry identifier; empty on store nodes
    kStoreRole,                     // hex store identifier
    kPathRole,                      // the folder's display path
};

}  // namespace

FolderPickerDialog::FolderPickerDialog(QWidget* parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("FolderPickerDialog"));
    setWindowTitle(QStringLiteral("Select Folder"));
    setModal(true);

    m_model = new QStandardItemModel(this);
    tvwFolders = new QTreeView(this);
    tvwFolders->setObjectName(QStringLiteral("tvwFolders"));
    tvwFolders->setModel(m_model);
    tvwFolders->setHeaderHidden(true);
    tvwFolders->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tvwFolders->setSelectionMode(QAbstractItemView::SingleSelection);

    auto* buttons = MakeOkCancelRow(this, btnOK, btnCancel);
    auto* outer = new QVBoxLayout(this);
    outer->addWidget(tvwFolders);
    outer->addLayout(buttons);
    resize(360, 420);

    connect(btnOK, &QPushButton::clicked, this, &QDialog::accept);
    connect(btnCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(tvwFolders, &QTreeView::doubleClicked, this, [this](const QModelIndex& index) {
        if (IsFolder(index)) accept();
    });
    connect(tvwFolders->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this] { UpdateButtons(); });
    UpdateButtons();
}

bool FolderPickerDialog::IsFolder(const QModelIndex& index) const
{
    return index.isValid() && !index.data(kEntryRole).toString().isEmpty();
}

void FolderPickerDialog::UpdateButtons()
{
    btnOK->setEnabled(IsFolder(tvwFolders->currentIndex()));
}

void FolderPickerDialog::Load(outlook::NameSpace& nameSpace)
{
    m_model->clear();
    for (mapi::MessageStore* store : nameSpace.Stores()) {
        if (!store) continue;
        const QString storeHex = mapi::MapiUtils::HrGetHexFromBinary(store->StoreId());
        auto* storeNode = new QStandardItem(store->DisplayName());
        storeNode->setData(storeHex, kStoreRole);
        storeNode->setSelectable(false);
        m_model->appendRow(storeNode);
        auto folders = store->Folders();
        if (!folders) {
            storeNode->setText(store->DisplayName() + QStringLiteral(" (") + folders.error().message +
                               QLatin1Char(')'));
            continue;
        }
        // Parents may be listed after their children: index every folder
        // first, then hang each one under its parent (or the store).
        QHash<QByteArray, QStandardItem*> byId;
        std::vector<std::pair<QStandardItem*, QByteArray>> pending;
        for (const mapi::FolderInfo& info : *folders) {
            auto* node = new QStandardItem(info.name);
            node->setData(mapi::MapiUtils::HrGetHexFromBinary(info.entryId), kEntryRole);
            node->setData(storeHex, kStoreRole);
            node->setData(info.path.isEmpty() ? info.name : info.path, kPathRole);
            byId.insert(info.entryId, node);
            pending.emplace_back(node, info.parentId);
        }
        for (const auto& [node, parentId] : pending) {
            QStandardItem* parent = parentId.isEmpty() ? nullptr : byId.value(parentId);
            // A folder that names itself or a missing parent goes to the top.
            (parent && parent != node ? parent : storeNode)->appendRow(node);
        }
    }
    tvwFolders->expandToDepth(0);
    UpdateButtons();
}

std::unique_ptr<outlook::Folder> FolderPickerDialog::Selected(outlook::NameSpace& nameSpace) const
{
    const QModelIndex index = tvwFolders->currentIndex();
    if (!IsFolder(index)) return nullptr;
    return nameSpace.GetFolderFromID(index.data(kEntryRole).toString(), index.data(kStoreRole).toString());
}

bool FolderPickerDialog::SelectPath(const QString& storeName, const QString& path)
{
    for (int s = 0; s < m_model->rowCount(); ++s) {
        QStandardItem* storeNode = m_model->item(s);
        if (storeNode->text() != storeName) continue;
        const QModelIndexList hits = m_model->match(m_model->index(0, 0, storeNode->index()), kPathRole, path,
                                                    1, Qt::MatchExactly | Qt::MatchRecursive);
        if (hits.isEmpty()) return false;
        tvwFolders->setCurrentIndex(hits.front());
        return true;
    }
    return false;
}

std::unique_ptr<outlook::Folder> FolderPickerDialog::Pick(outlook::NameSpace& nameSpace)
{
    Load(nameSpace);
    if (exec() != QDialog::Accepted) return nullptr;
    return Selected(nameSpace);
}

}  // namespace mv::forms

#include "MessageStore.h"

namespace mv::mapi {

// Backends without a batch command move one by one; stopping at the first
// error leaves the rest in the source, as the interface promises.
Result<std::vector<QByteArray>> MessageStore::MoveMany(const std::vector<QByteArray>& messageIds,
                                                       const QByteArray& destFolderId)
{
    std::vector<QByteArray> moved;
    moved.reserve(messageIds.size());
    for (const QByteArray& id : messageIds) {
        Result<QByteArray> r = Move(id, destFolderId);
        if (!r) return r.error();
        moved.push_back(std::move(r).value());
    }
    return moved;
}

Status MessageStore::SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus)
{
    for (const QByteArray& id : messageIds) {
        Status s = SetFlagStatus(id, flagStatus);
        if (!s && s.error().kind != ErrorKind::NotFound) return s;
    }
    return Status::success();
}

}  // namespace mv::mapi

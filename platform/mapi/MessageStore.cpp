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

}  // namespace mv::mapi

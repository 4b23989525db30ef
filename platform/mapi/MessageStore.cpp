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

namespace {
Error Unsupported(const char* call)
{
    return Error::permanent(QStringLiteral("this store cannot %1").arg(QLatin1String(call)));
}
}  // namespace

Result<std::vector<NewMessage>> MessageStore::Export(const std::vector<QByteArray>&)
{
    return Unsupported("export messages");
}

Result<std::vector<QByteArray>> MessageStore::AppendMany(const QByteArray& folderId,
                                                         const std::vector<NewMessage>& messages)
{
    std::vector<QByteArray> ids;
    ids.reserve(messages.size());
    for (const NewMessage& m : messages) {
        Result<QByteArray> r = Append(folderId, m);
        if (!r) return r.error();
        ids.push_back(std::move(r).value());
    }
    return ids;
}

Result<std::vector<Fingerprint>> MessageStore::Fingerprints(const std::vector<QByteArray>&)
{
    return Unsupported("fingerprint messages");
}

Result<std::vector<Presence>> MessageStore::Probe(const std::vector<QByteArray>&)
{
    return Unsupported("probe messages");
}

Status MessageStore::Remove(const std::vector<QByteArray>&)
{
    return Unsupported("remove messages");
}

Status MessageStore::Undelete(const std::vector<QByteArray>&)
{
    return Status::success();
}

Result<QByteArray> MessageStore::ArrivalMark(const QByteArray&)
{
    return QByteArray();
}

Result<std::vector<QByteArray>> MessageStore::Locate(const QByteArray&, const QByteArray&,
                                                     const std::vector<Fingerprint>&)
{
    return Unsupported("locate messages");
}

}  // namespace mv::mapi

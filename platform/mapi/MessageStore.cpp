#include "MessageStore.h"

namespace mv::mapi {

namespace {

// The batch calls of a backend without a batch command: one call per item,
// stopping at the first error, so what follows it is left untouched, as
// the interface promises.
template <class Item, class Call>
Result<std::vector<QByteArray>> OneByOne(const std::vector<Item>& items, Call call)
{
    std::vector<QByteArray> done;
    done.reserve(items.size());
    for (const Item& item : items) {
        Result<QByteArray> r = call(item);
        if (!r) return r.error();
        done.push_back(std::move(r).value());
    }
    return done;
}

}  // namespace

Result<std::vector<QByteArray>> MessageStore::MoveMany(const std::vector<QByteArray>& messageIds,
                                                       const QByteArray& destFolderId)
{
    return OneByOne(messageIds, [&](const QByteArray& id) { return Move(id, destFolderId); });
}

MessageStore* FindStore(const std::vector<MessageStore*>& stores, const QByteArray& storeId)
{
    for (MessageStore* store : stores)
        if (store && store->StoreId() == storeId) return store;
    for (MessageStore* store : stores)
        if (store && store->FormerStoreIds().contains(storeId)) return store;
    return nullptr;
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
    return OneByOne(messages, [&](const NewMessage& m) { return Append(folderId, m); });
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

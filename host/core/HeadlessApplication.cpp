#include "HeadlessApplication.h"

#include "platform/outlook/store/StoreItem.h"

namespace mv::host {

namespace {

// What ItemSend hands over when the Sent folder's newest message cannot be
// read: an item that names nothing and refuses to change.
class MinimalItem final : public outlook::Item {
public:
    QString EntryID() const override { return {}; }
    QString StoreID() const override { return {}; }
    QString MessageClass() const override { return QStringLiteral("IPM.Note"); }
    outlook::ItemKind Kind() const override { return outlook::ItemKind::Mail; }
    QString Subject() const override { return {}; }
    int FlagStatus() const override { return outlook::olNoFlag; }
    void SetFlagStatus(int) override {}
    Status Save() override { return Error::permanent(QStringLiteral("the sent item cannot be read")); }
    Status Move(const outlook::Folder&) override
    {
        return Error::permanent(QStringLiteral("the sent item cannot be read"));
    }
    QVariant Fields(mapi::PropTag) const override { return {}; }
    std::vector<outlook::Recipient> Recipients() const override { return {}; }
    QString SenderName() const override { return {}; }
    QString SenderEmailAddress() const override { return {}; }
    QString To() const override { return {}; }
    QString CC() const override { return {}; }
    QString Body() const override { return {}; }
    int Importance() const override { return outlook::olImportanceNormal; }
    bool UnRead() const override { return false; }
};

}  // namespace

HeadlessApplication::HeadlessApplication(StoreSet& stores, os::Clipboard& clipboard, QObject* parent)
    : outlook::Application(parent), m_stores(stores), m_clipboard(clipboard),
      m_nameSpace([&stores] { return stores.Stores(); })
{
}

HeadlessApplication::~HeadlessApplication() = default;

outlook::NameSpace* HeadlessApplication::GetNamespace(const QString& type)
{
    return type.compare(QLatin1String("MAPI"), Qt::CaseInsensitive) == 0 ? &m_nameSpace : nullptr;
}

outlook::Explorer* HeadlessApplication::ActiveExplorer()
{
    // The most recently opened one that is still open, as focus would have it.
    return m_explorers.Item(m_explorers.Count());
}

HeadlessExplorer* HeadlessApplication::OpenExplorer()
{
    auto& explorer = m_explorerObjects.emplace_back(std::make_unique<HeadlessExplorer>(&m_clipboard));
    HeadlessExplorer* raw = explorer.get();
    connect(raw, &outlook::Explorer::Closed, this, [this, raw] { m_explorers.Remove(raw); });
    m_explorers.Add(raw);
    return raw;
}

HeadlessInspector* HeadlessApplication::OpenInspector(std::unique_ptr<outlook::Item> item)
{
    auto& inspector = m_inspectorObjects.emplace_back(std::make_unique<HeadlessInspector>(std::move(item)));
    HeadlessInspector* raw = inspector.get();
    connect(raw, &outlook::Inspector::Closed, this, [this, raw] { m_inspectors.Remove(raw); });
    m_inspectors.Add(raw);
    return raw;
}

void HeadlessApplication::Open()
{
    if (!m_explorerObjects.empty()) return;
    OpenExplorer();
    Listen();
}

void HeadlessApplication::Listen()
{
    if (m_listening) return;
    m_listening = true;
    // Connecting is what starts an IMAP store's IDLE watch.
    for (mapi::MessageStore* store : m_stores.Stores())
        connect(store, &mapi::MessageStore::MessagesArrived, this,
                [this, store](const QByteArray& folderId) { OnArrived(store, folderId); });
}

void HeadlessApplication::Start()
{
    if (m_started) return;
    m_started = true;
    Q_EMIT Startup();
}

void HeadlessApplication::Stop()
{
    if (m_stopped) return;
    m_stopped = true;
    Q_EMIT Quit();
    for (mapi::MessageStore* store : m_stores.Stores()) disconnect(store, nullptr, this, nullptr);
    // Last opened first; each Close takes its window out of the collection.
    for (int i = m_inspectors.Count(); i >= 1; --i)
        if (outlook::Inspector* inspector = m_inspectors.Item(i)) inspector->Close();
    for (int i = m_explorers.Count(); i >= 1; --i)
        if (outlook::Explorer* explorer = m_explorers.Item(i)) explorer->Close();
}

HeadlessApplication::FolderRole HeadlessApplication::RoleOf(mapi::MessageStore* store, const QByteArray& folderId)
{
    auto info = store->Folder(folderId);
    if (!info) return FolderRole::Other;
    if (info->specialUse.compare(QLatin1String("\\Inbox"), Qt::CaseInsensitive) == 0) return FolderRole::Inbox;
    // The store's Sent folder: the one marked \Sent, else the one named Sent.
    auto sent = outlook::StoreNameSpace::SpecialFolder(*store, QStringLiteral("\\Sent"), QStringLiteral("Sent"));
    if (sent && sent->BinaryEntryID() == folderId) return FolderRole::Sent;
    return FolderRole::Other;
}

std::unique_ptr<outlook::Item> HeadlessApplication::NewestItem(mapi::MessageStore& store, const QByteArray& folderId)
{
    auto rows = store.Query(folderId, nullptr, {mapi::PR_ENTRYID, mapi::PR_MESSAGE_DELIVERY_TIME});
    if (!rows || rows->empty()) return nullptr;
    const mapi::Row* newest = nullptr;
    for (const mapi::Row& row : *rows)
        if (!newest || row[1].toDateTime() >= (*newest)[1].toDateTime()) newest = &row;
    auto item = outlook::StoreItem::Fetch(store, (*newest)[0].toByteArray());
    if (!item) return nullptr;
    return std::move(*item);
}

void HeadlessApplication::OnArrived(mapi::MessageStore* store, const QByteArray& folderId)
{
    switch (RoleOf(store, folderId)) {
    case FolderRole::Inbox:
        Q_EMIT NewMail();
        break;
    case FolderRole::Sent: {
        std::unique_ptr<outlook::Item> item = NewestItem(*store, folderId);
        if (!item) item = std::make_unique<MinimalItem>();
        bool cancel = false;  // a message already in Sent cannot be held back
        Q_EMIT ItemSend(item.get(), cancel);
        break;
    }
    case FolderRole::Other:
        break;
    }
}

}  // namespace mv::host

#include "MemoryStore.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/mapi/RestrictionEvaluator.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/common/MessageFingerprint.h"
#include "platform/stores/common/MimeProperties.h"

#include <QtEndian>

#include <algorithm>
#include <set>

namespace mv::stores {
namespace {

const QByteArray kMagic = QByteArrayLiteral("MVM1");
constexpr char kStoreKind = 'S';
constexpr char kFolderKind = 'F';
constexpr char kMessageKind = 'M';

void AppendNumber(QByteArray& id, quint32 n)
{
    char bytes[4];
    qToBigEndian(n, bytes);
    id.append(bytes, 4);
}

QString Hex(const QByteArray& id) { return mapi::MapiUtils::HrGetHexFromBinary(id); }

}  // namespace

MemoryStore::MemoryStore(Options options, QObject* parent)
    : MessageStore(parent), m_options(std::move(options))
{
    // A NUL ends the name inside identifiers.
    m_options.name.remove(QChar(0));
    AddFolder(0, QStringLiteral("Inbox"), QStringLiteral("\\Inbox"));
    AddFolder(0, QStringLiteral("Sent"), QStringLiteral("\\Sent"));
    AddFolder(0, QStringLiteral("Drafts"), QStringLiteral("\\Drafts"));
    AddFolder(0, QStringLiteral("Trash"), QStringLiteral("\\Trash"));
    AddFolder(0, QStringLiteral("Archive"), QStringLiteral("\\Archive"));
}

QByteArray MemoryStore::StoreId() const
{
    QByteArray id = kMagic;
    id.append(kStoreKind);
    id.append(m_options.name.toUtf8());
    return id;
}

QString MemoryStore::DisplayName() const { return m_options.name; }

QByteArray MemoryStore::MakeId(char kind, quint32 folder, std::optional<quint32> serial) const
{
    QByteArray id = kMagic;
    id.append(kind);
    id.append(m_options.name.toUtf8());
    id.append('\0');
    AppendNumber(id, folder);
    if (serial) AppendNumber(id, *serial);
    return id;
}

std::optional<quint32> MemoryStore::ParseFolderId(const QByteArray& id) const
{
    const QByteArray prefix = MakeId(kFolderKind, 0).chopped(4);
    if (id.size() != prefix.size() + 4 || !id.startsWith(prefix)) return std::nullopt;
    const quint32 folder = qFromBigEndian<quint32>(id.constData() + prefix.size());
    if (!m_folders.count(folder)) return std::nullopt;
    return folder;
}

std::optional<MemoryStore::MessageRef> MemoryStore::ParseMessageId(const QByteArray& id) const
{
    const QByteArray prefix = MakeId(kMessageKind, 0).chopped(4);
    if (id.size() != prefix.size() + 8 || !id.startsWith(prefix)) return std::nullopt;
    return MessageRef{qFromBigEndian<quint32>(id.constData() + prefix.size()),
                      qFromBigEndian<quint32>(id.constData() + prefix.size() + 4)};
}

const MemoryStore::Message* MemoryStore::FindMessage(const QByteArray& messageId) const
{
    const auto ref = ParseMessageId(messageId);
    if (!ref) return nullptr;
    const auto folder = m_folders.find(ref->folder);
    if (folder == m_folders.end()) return nullptr;
    const auto message = folder->second.messages.find(ref->serial);
    return message == folder->second.messages.end() ? nullptr : &message->second;
}

MemoryStore::Message* MemoryStore::FindMessage(const QByteArray& messageId)
{
    return const_cast<Message*>(std::as_const(*this).FindMessage(messageId));
}

Error MemoryStore::NoMessage(const QByteArray& messageId) const
{
    return Error::notFound(QStringLiteral("No message %1 in store %2").arg(Hex(messageId), m_options.name));
}

std::optional<Error> MemoryStore::Enter(Call call)
{
    ++m_calls[call];
    auto it = m_failures.find(call);
    if (it == m_failures.end() || it->second.remaining <= 0) return std::nullopt;
    if (it->second.skip > 0) {
        --it->second.skip;
        return std::nullopt;
    }
    --it->second.remaining;
    return it->second.error;
}

void MemoryStore::FailNext(Call call, int count, Error error)
{
    m_failures[call] = Injection{0, count, std::move(error)};
}

void MemoryStore::FailAt(Call call, int nth, Error error)
{
    m_failures[call] = Injection{std::max(0, nth - 1), 1, std::move(error)};
}

int MemoryStore::CallCount(Call call) const
{
    const auto it = m_calls.find(call);
    return it == m_calls.end() ? 0 : it->second;
}

quint32 MemoryStore::AddFolder(quint32 parent, const QString& name, const QString& specialUse)
{
    const quint32 number = m_nextFolder++;
    FolderData& folder = m_folders[number];
    folder.parent = parent;
    folder.name = name;
    folder.specialUse = specialUse;
    return number;
}

QString MemoryStore::PathOf(quint32 folder) const
{
    QStringList levels;
    for (quint32 f = folder; f != 0; f = m_folders.at(f).parent) levels.prepend(m_folders.at(f).name);
    return levels.join(QLatin1Char('/'));
}

mapi::FolderInfo MemoryStore::InfoOf(quint32 folder) const
{
    const FolderData& data = m_folders.at(folder);
    mapi::FolderInfo info;
    info.entryId = MakeId(kFolderKind, folder);
    info.parentId = data.parent ? MakeId(kFolderKind, data.parent) : QByteArray();
    info.name = data.name;
    info.path = PathOf(folder);
    info.specialUse = data.specialUse;
    info.total = info.unread = 0;
    for (const auto& [serial, message] : data.messages) {
        if (message.flags.deleted) continue;
        ++info.total;
        if (!message.flags.seen) ++info.unread;
    }
    return info;
}

QByteArray MemoryStore::FolderIdByPath(const QString& path) const
{
    for (const auto& [number, folder] : m_folders)
        if (PathOf(number).compare(path, Qt::CaseInsensitive) == 0) return MakeId(kFolderKind, number);
    return {};
}

Result<std::vector<mapi::FolderInfo>> MemoryStore::Folders()
{
    if (auto e = Enter(Call::Folders)) return *e;
    std::vector<mapi::FolderInfo> folders;
    for (const auto& [number, folder] : m_folders) folders.push_back(InfoOf(number));
    return folders;
}

Result<mapi::FolderInfo> MemoryStore::Folder(const QByteArray& folderId)
{
    if (auto e = Enter(Call::Folder)) return *e;
    const auto folder = ParseFolderId(folderId);
    if (!folder) return Error::notFound(QStringLiteral("No folder %1 in store %2").arg(Hex(folderId), m_options.name));
    return InfoOf(*folder);
}

Result<QByteArray> MemoryStore::CreateFolder(const QByteArray& parentId, const QString& name)
{
    if (auto e = Enter(Call::CreateFolder)) return *e;
    quint32 parent = 0;
    if (!parentId.isEmpty()) {
        const auto found = ParseFolderId(parentId);
        if (!found) return Error::notFound(QStringLiteral("No folder %1 in store %2").arg(Hex(parentId), m_options.name));
        parent = *found;
    }
    if (name.trimmed().isEmpty() || name.contains(QLatin1Char('/')) || name.contains(QChar(0)))
        return Error::permanent(QStringLiteral("Invalid folder name \"%1\"").arg(name));
    for (const auto& [number, folder] : m_folders)
        if (folder.parent == parent && folder.name.compare(name, Qt::CaseInsensitive) == 0)
            return Error::permanent(QStringLiteral("A folder named \"%1\" already exists").arg(PathOf(number)));
    return MakeId(kFolderKind, AddFolder(parent, name, {}));
}

Result<std::vector<mapi::Row>> MemoryStore::Query(const QByteArray& folderId, const mapi::Restriction* restriction,
                                                  const std::vector<mapi::PropTag>& columns)
{
    if (auto e = Enter(Call::Query)) return *e;
    const auto folder = ParseFolderId(folderId);
    if (!folder) return Error::notFound(QStringLiteral("No folder %1 in store %2").arg(Hex(folderId), m_options.name));
    if (restriction) {
        if (Status s = mapi::RestrictionEvaluator::CheckSupported(*restriction); !s) return s.error();
    }
    std::vector<mapi::Row> rows;
    for (const auto& [serial, message] : m_folders.at(*folder).messages) {
        if (message.flags.deleted) continue;
        if (restriction && !mapi::RestrictionEvaluator::Matches(*restriction, message.record)) continue;
        mapi::Row row;
        row.reserve(columns.size());
        for (mapi::PropTag column : columns)
            row.push_back(mapi::RestrictionEvaluator::Lookup(message.record, column).value_or(QVariant()));
        rows.push_back(std::move(row));
    }
    return rows;
}

Result<mapi::MessageRecord> MemoryStore::Item(const QByteArray& messageId)
{
    if (auto e = Enter(Call::Item)) return *e;
    const Message* message = FindMessage(messageId);
    if (!message) return NoMessage(messageId);
    return message->record;
}

Result<QByteArray> MemoryStore::RawMessage(const QByteArray& messageId)
{
    if (auto e = Enter(Call::RawMessage)) return *e;
    const Message* message = FindMessage(messageId);
    if (!message) return NoMessage(messageId);
    return message->raw;
}

Result<mapi::MessageFlags> MemoryStore::Flags(const QByteArray& messageId) const
{
    const Message* message = FindMessage(messageId);
    if (!message) return NoMessage(messageId);
    return message->flags;
}

void MemoryStore::StampIds(quint32 folder, quint32 serial, Message& message) const
{
    message.record.props.insert(mapi::PR_ENTRYID, MakeId(kMessageKind, folder, serial));
    message.record.props.insert(mapi::PR_STORE_ENTRYID, StoreId());
    message.record.props.insert(mapi::PR_PARENT_ENTRYID, MakeId(kFolderKind, folder));
}

Result<QByteArray> MemoryStore::Move(const QByteArray& messageId, const QByteArray& destFolderId)
{
    if (auto e = Enter(Call::Move)) return *e;
    const auto ref = ParseMessageId(messageId);
    if (!ref || !FindMessage(messageId)) return NoMessage(messageId);
    const auto dest = ParseFolderId(destFolderId);
    if (!dest) return Error::notFound(QStringLiteral("No folder %1 in store %2").arg(Hex(destFolderId), m_options.name));
    if (*dest == ref->folder) return messageId;

    auto node = m_folders.at(ref->folder).messages.extract(ref->serial);
    const quint32 serial = m_nextSerial++;
    node.key() = serial;
    StampIds(*dest, serial, node.mapped());
    m_folders.at(*dest).messages.insert(std::move(node));
    return MakeId(kMessageKind, *dest, serial);
}

Result<std::vector<QByteArray>> MemoryStore::MoveMany(const std::vector<QByteArray>& messageIds,
                                                      const QByteArray& destFolderId)
{
    if (auto e = Enter(Call::MoveMany)) return *e;
    return MessageStore::MoveMany(messageIds, destFolderId);
}

Status MemoryStore::SetFlagStatus(const QByteArray& messageId, int flagStatus)
{
    if (auto e = Enter(Call::SetFlagStatus)) return *e;
    if (flagStatus < mapi::FLAG_STATUS_NONE || flagStatus > mapi::FLAG_STATUS_MARKED)
        return Error::permanent(QStringLiteral("Invalid flag status %1").arg(flagStatus));
    Message* message = FindMessage(messageId);
    if (!message) return NoMessage(messageId);
    message->flags = FlagMapping::WithFlagStatus(message->flags, flagStatus);
    FlagMapping::ApplyFlags(message->flags, message->record.props);
    return Status::success();
}

Status MemoryStore::SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus)
{
    if (auto e = Enter(Call::SetFlagStatusMany)) return *e;
    return MessageStore::SetFlagStatusMany(messageIds, flagStatus);
}

Result<QByteArray> MemoryStore::Append(const QByteArray& folderId, const mapi::NewMessage& newMessage)
{
    if (auto e = Enter(Call::Append)) return *e;
    const auto folder = ParseFolderId(folderId);
    if (!folder) return Error::notFound(QStringLiteral("No folder %1 in store %2").arg(Hex(folderId), m_options.name));
    if (newMessage.rfc822.isEmpty()) return Error::permanent(QStringLiteral("An empty message cannot be stored"));

    Message message;
    message.raw = newMessage.rfc822;
    message.flags = newMessage.flags;
    // Whole seconds, as IMAP INTERNALDATE and Maildir keep them, so every
    // backend shows the same delivery time.
    QDateTime date = newMessage.internalDate.isValid() ? newMessage.internalDate
                     : m_options.clock                 ? m_options.clock()
                                                       : QDateTime::currentDateTimeUtc();
    date = date.toUTC();
    date.setTime(QTime(date.time().hour(), date.time().minute(), date.time().second()));
    message.internalDate = date;
    if (m_options.keepsUniqueNames) message.uniqueName = newMessage.uniqueName;

    ParseOptions parse;
    parse.withBody = true;
    parse.ownAddress = m_options.ownAddress;
    message.record = MimeProperties::FromBytes(message.raw, parse);
    FlagMapping::ApplyFlags(message.flags, message.record.props);
    message.record.props.insert(mapi::PR_MESSAGE_DELIVERY_TIME, date);
    message.record.props.insert(mapi::PR_MESSAGE_SIZE, static_cast<int>(message.raw.size()));

    const quint32 serial = m_nextSerial++;
    StampIds(*folder, serial, message);
    FolderData& data = m_folders.at(*folder);
    data.messages.emplace(serial, std::move(message));

    const QByteArray id = MakeId(kMessageKind, *folder, serial);
    if (data.specialUse == QLatin1String("\\Inbox") || data.specialUse == QLatin1String("\\Sent"))
        Q_EMIT MessagesArrived(folderId);
    return id;
}

// --- moves across stores, recovery ---

namespace {

// RFC822.SIZE: the octets with every line end a CRLF.
}  // namespace

mapi::Fingerprint MemoryStore::FingerprintOf(const Message& message) const
{
    mapi::Fingerprint f = MessageFingerprint::Of(message.raw, message.internalDate);
    f.uniqueName = message.uniqueName;
    return f;
}

Result<std::vector<mapi::NewMessage>> MemoryStore::Export(const std::vector<QByteArray>& messageIds)
{
    if (auto e = Enter(Call::Export)) return *e;
    std::vector<mapi::NewMessage> out;
    out.reserve(messageIds.size());
    for (const QByteArray& id : messageIds) {
        mapi::NewMessage m;
        if (const Message* message = FindMessage(id)) {
            m.rfc822 = message->raw;
            m.flags = message->flags;
            m.flags.deleted = false;
            m.internalDate = message->internalDate;
            m.uniqueName = message->uniqueName;
        }
        out.push_back(std::move(m));
    }
    return out;
}

Result<std::vector<QByteArray>> MemoryStore::AppendMany(const QByteArray& folderId,
                                                        const std::vector<mapi::NewMessage>& messages)
{
    if (auto e = Enter(Call::AppendMany)) return *e;
    return MessageStore::AppendMany(folderId, messages);
}

Result<std::vector<mapi::Fingerprint>> MemoryStore::Fingerprints(const std::vector<QByteArray>& messageIds)
{
    if (auto e = Enter(Call::Fingerprints)) return *e;
    std::vector<mapi::Fingerprint> out;
    out.reserve(messageIds.size());
    for (const QByteArray& id : messageIds) {
        const Message* message = FindMessage(id);
        out.push_back(message ? FingerprintOf(*message) : mapi::Fingerprint{});
    }
    return out;
}

Result<std::vector<mapi::Presence>> MemoryStore::Probe(const std::vector<QByteArray>& messageIds)
{
    if (auto e = Enter(Call::Probe)) return *e;
    std::vector<mapi::Presence> out;
    out.reserve(messageIds.size());
    for (const QByteArray& id : messageIds) {
        const Message* message = FindMessage(id);
        out.push_back(!message                ? mapi::Presence::Absent
                      : message->flags.deleted ? mapi::Presence::Deleted
                                               : mapi::Presence::Present);
    }
    return out;
}

Status MemoryStore::Remove(const std::vector<QByteArray>& messageIds)
{
    if (auto e = Enter(Call::Remove)) return *e;
    for (const QByteArray& id : messageIds) {
        const auto ref = ParseMessageId(id);
        if (!ref || !FindMessage(id)) continue;
        m_folders.at(ref->folder).messages.erase(ref->serial);
    }
    return Status::success();
}

Status MemoryStore::Undelete(const std::vector<QByteArray>& messageIds)
{
    if (auto e = Enter(Call::Undelete)) return *e;
    for (const QByteArray& id : messageIds)
        if (Message* message = FindMessage(id)) message->flags.deleted = false;
    return Status::success();
}

Result<QByteArray> MemoryStore::ArrivalMark(const QByteArray& folderId)
{
    if (auto e = Enter(Call::ArrivalMark)) return *e;
    if (!ParseFolderId(folderId))
        return Error::notFound(QStringLiteral("No folder %1 in store %2").arg(Hex(folderId), m_options.name));
    QByteArray mark;
    AppendNumber(mark, m_nextSerial);
    return mark;
}

Result<std::vector<QByteArray>> MemoryStore::Locate(const QByteArray& folderId, const QByteArray& mark,
                                                    const std::vector<mapi::Fingerprint>& fingerprints)
{
    if (auto e = Enter(Call::Locate)) return *e;
    const auto folder = ParseFolderId(folderId);
    if (!folder) return Error::notFound(QStringLiteral("No folder %1 in store %2").arg(Hex(folderId), m_options.name));
    const quint32 from = mark.size() == 4 ? qFromBigEndian<quint32>(mark.constData()) : 0;
    std::vector<QByteArray> out(fingerprints.size());
    std::set<quint32> given;
    for (size_t i = 0; i < fingerprints.size(); ++i) {
        const mapi::Fingerprint& want = fingerprints[i];
        if (!want.Known()) continue;
        for (const auto& [serial, message] : m_folders.at(*folder).messages) {
            if (serial < from || given.count(serial)) continue;
            const mapi::Fingerprint have = FingerprintOf(message);
            const bool byName = m_options.keepsUniqueNames && !want.uniqueName.isEmpty();
            const bool match = byName ? have.uniqueName == want.uniqueName
                                      : have.messageIdHeader == want.messageIdHeader && have.size == want.size &&
                                            have.internalDate == want.internalDate;
            if (!match) continue;
            given.insert(serial);
            out[i] = MakeId(kMessageKind, *folder, serial);
            break;
        }
    }
    return out;
}

Status MemoryStore::SetDeleted(const QByteArray& messageId, bool deleted)
{
    Message* message = FindMessage(messageId);
    if (!message) return NoMessage(messageId);
    message->flags.deleted = deleted;
    return Status::success();
}

QStringList MemoryStore::SubjectsIn(const QByteArray& folderId) const
{
    QStringList out;
    const auto folder = ParseFolderId(folderId);
    if (!folder) return out;
    for (const auto& [serial, message] : m_folders.at(*folder).messages) {
        const QString subject = message.record.Get(mapi::PR_SUBJECT).value_or(QVariant()).toString();
        out << (message.flags.deleted ? subject + QStringLiteral(" [deleted]") : subject);
    }
    out.sort();
    return out;
}

}  // namespace mv::stores

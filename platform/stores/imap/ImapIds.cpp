#include "ImapIds.h"

#include <QtEndian>

namespace mv::stores {

namespace {

constexpr char kMagic[] = "MVI1";
constexpr qsizetype kMagicSize = 4;

void PutU32(QByteArray& out, quint32 v)
{
    char b[4];
    qToBigEndian(v, b);
    out.append(b, 4);
}

quint32 GetU32(const QByteArray& in, qsizetype at) { return qFromBigEndian<quint32>(in.constData() + at); }

// Length of the folder part of `id`, or -1 when it is not one of ours.
qsizetype FolderPartSize(const QByteArray& id)
{
    if (id.size() < kMagicSize + 2 || !id.startsWith(kMagic)) return -1;
    const qsizetype nameSize = qFromBigEndian<quint16>(id.constData() + kMagicSize);
    const qsizetype size = kMagicSize + 2 + nameSize + 4;
    return id.size() >= size && nameSize > 0 ? size : -1;
}

}  // namespace

QByteArray ImapIds::StoreId(const QString& user, const QString& host, quint16 port)
{
    return QByteArray(kMagic) + QStringLiteral("%1@%2:%3").arg(user, host.toLower()).arg(port).toUtf8();
}

QByteArray ImapIds::FolderId(const QByteArray& mailbox, quint32 uidValidity)
{
    QByteArray out(kMagic);
    char len[2];
    qToBigEndian(static_cast<quint16>(mailbox.size()), len);
    out.append(len, 2);
    out += mailbox;
    PutU32(out, uidValidity);
    return out;
}

QByteArray ImapIds::MessageId(const ImapFolderRef& folder, quint32 uid)
{
    QByteArray out = FolderId(folder.mailbox, folder.uidValidity);
    PutU32(out, uid);
    return out;
}

std::optional<ImapFolderRef> ImapIds::ParseFolder(const QByteArray& id)
{
    const qsizetype size = FolderPartSize(id);
    if (size < 0 || size != id.size()) return std::nullopt;
    return ImapFolderRef{id.mid(kMagicSize + 2, size - kMagicSize - 6), GetU32(id, size - 4)};
}

std::optional<ImapMessageRef> ImapIds::ParseMessage(const QByteArray& id)
{
    const qsizetype size = FolderPartSize(id);
    if (size < 0 || id.size() != size + 4) return std::nullopt;
    auto folder = ParseFolder(id.left(size));
    if (!folder) return std::nullopt;
    return ImapMessageRef{*folder, GetU32(id, size)};
}

QByteArray ImapIds::FolderKey(const ImapFolderRef& folder)
{
    return folder.mailbox + '/' + QByteArray::number(folder.uidValidity);
}

}  // namespace mv::stores

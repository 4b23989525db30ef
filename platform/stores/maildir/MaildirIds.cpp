#include "MaildirIds.h"

namespace mv::stores::maildir {

namespace {
constexpr qsizetype kMagicLen = sizeof(kMagic) - 1;

bool HasMagic(const QByteArray& id)
{
    return id.startsWith(QByteArray::fromRawData(kMagic, kMagicLen));
}
}  // namespace

QByteArray StoreIdFor(const QString& canonicalRoot)
{
    return QByteArray(kMagic, kMagicLen) + canonicalRoot.toUtf8();
}

QByteArray StoreIdForKey(const QByteArray& hexKey)
{
    return QByteArray(kMagic, kMagicLen) + "key:" + hexKey;
}

QByteArray FolderIdFor(const QString& folderPath)
{
    return QByteArray(kMagic, kMagicLen) + folderPath.toUtf8();
}

QByteArray MessageIdFor(const QString& folderPath, const QString& unique)
{
    return QByteArray(kMagic, kMagicLen) + folderPath.toUtf8() + '\0' + unique.toUtf8();
}

std::optional<QString> ParseFolderId(const QByteArray& id)
{
    if (!HasMagic(id) || id.indexOf('\0', kMagicLen) >= 0) return std::nullopt;
    return QString::fromUtf8(id.mid(kMagicLen));
}

std::optional<MessageKey> ParseMessageId(const QByteArray& id)
{
    if (!HasMagic(id)) return std::nullopt;
    const qsizetype sep = id.indexOf('\0', kMagicLen);
    if (sep < 0 || sep + 1 >= id.size()) return std::nullopt;
    MessageKey key{QString::fromUtf8(id.mid(kMagicLen, sep - kMagicLen)), QString::fromUtf8(id.mid(sep + 1))};
    // A unique name is one path component; anything else is a forged id.
    if (key.unique.contains(QLatin1Char('/')) || key.unique.startsWith(QLatin1Char('.'))) return std::nullopt;
    return key;
}

}  // namespace mv::stores::maildir

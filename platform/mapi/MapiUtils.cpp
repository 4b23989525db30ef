#include "MapiUtils.h"

namespace mv::mapi {

QString MapiUtils::HrGetHexFromBinary(const QByteArray& binary)
{
    return QString::fromLatin1(binary.toHex().toUpper());
}

std::optional<QByteArray> MapiUtils::HexToBinary(const QString& hex)
{
    // QByteArray::fromHex skips junk silently; identifiers typed or stored
    // wrongly must fail instead of naming some other folder.
    if (hex.size() % 2 != 0) return std::nullopt;
    for (QChar c : hex) {
        const char16_t u = c.unicode();
        const bool digit = (u >= u'0' && u <= u'9') || (u >= u'A' && u <= u'F') || (u >= u'a' && u <= u'f');
        if (!digit) return std::nullopt;
    }
    return QByteArray::fromHex(hex.toLatin1());
}

}  // namespace mv::mapi

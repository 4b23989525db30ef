#pragma once
// Binary identifiers as the rule database keeps them: upper-case hex text.

#include <QByteArray>
#include <QString>

#include <optional>

namespace mv::mapi {

class MapiUtils {
public:
    static QString HrGetHexFromBinary(const QByteArray& binary);       // "0A1B..."
    static std::optional<QByteArray> HexToBinary(const QString& hex);  // nullopt on odd length or a non-hex digit
};

}  // namespace mv::mapi

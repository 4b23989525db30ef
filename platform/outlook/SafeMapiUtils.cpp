#include "SafeMapiUtils.h"

#include "platform/mapi/MapiUtils.h"

namespace mv::outlook {

QString SafeMapiUtils::HrGetHexFromBinary(const QByteArray& binary) const
{
    return mapi::MapiUtils::HrGetHexFromBinary(binary);
}

}  // namespace mv::outlook

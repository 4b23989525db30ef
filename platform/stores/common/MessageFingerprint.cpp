#include "MessageFingerprint.h"

#include "MimeProperties.h"

#include <algorithm>

namespace mv::stores {

qint64 MessageFingerprint::CrlfSize(const QByteArray& bytes)
{
    qint64 size = bytes.size();
    for (qsizetype i = bytes.indexOf('\n'); i >= 0; i = bytes.indexOf('\n', i + 1))
        if (i == 0 || bytes.at(i - 1) != '\r') ++size;
    return size;
}

mapi::Fingerprint MessageFingerprint::Of(const QByteArray& bytes, const QDateTime& arrived)
{
    mapi::Fingerprint f;
    // The header block ends at the first empty line, in either line-end style.
    const qsizetype lf = bytes.indexOf("\n\n");
    const qsizetype crlf = bytes.indexOf("\r\n\r\n");
    const qsizetype end = lf < 0 ? crlf : crlf < 0 ? lf : std::min(lf, crlf);
    f.messageIdHeader =
        MimeProperties::HeaderField(end < 0 ? bytes : bytes.left(end + 1), "Message-ID").simplified();
    f.size = CrlfSize(bytes);
    if (arrived.isValid()) f.internalDate = QDateTime::fromSecsSinceEpoch(arrived.toSecsSinceEpoch(), Qt::UTC);
    return f;
}

}  // namespace mv::stores

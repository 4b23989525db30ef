#include "ModifiedUtf7.h"

#include <QByteArray>

namespace mv::stores::maildir {

QString DecodeModifiedUtf7(const QString& encoded)
{
    QString out;
    out.reserve(encoded.size());
    for (qsizetype i = 0; i < encoded.size(); ++i) {
        const QChar c = encoded.at(i);
        if (c != QLatin1Char('&')) {
            out.append(c);
            continue;
        }
        const qsizetype end = encoded.indexOf(QLatin1Char('-'), i + 1);
        if (end < 0) {  // unterminated: not ours to guess
            out.append(encoded.mid(i));
            break;
        }
        if (end == i + 1) {
            out.append(QLatin1Char('&'));
        } else {
            QByteArray b64 = encoded.mid(i + 1, end - i - 1).toLatin1();
            b64.replace(',', '/');
            const auto decoded = QByteArray::fromBase64Encoding(b64, QByteArray::AbortOnBase64DecodingErrors);
            if (!decoded || decoded.decoded.size() % 2 != 0) {
                out.append(encoded.mid(i, end - i + 1));
            } else {
                const QByteArray& be = decoded.decoded;
                for (qsizetype k = 0; k + 1 < be.size(); k += 2)
                    out.append(QChar(static_cast<char16_t>((uchar(be[k]) << 8) | uchar(be[k + 1]))));
            }
        }
        i = end;
    }
    return out;
}

QString EncodeModifiedUtf7(const QString& text)
{
    QString out;
    QByteArray pending;  // UTF-16BE of the current non-ASCII run
    auto flush = [&] {
        if (pending.isEmpty()) return;
        QByteArray b64 = pending.toBase64(QByteArray::OmitTrailingEquals);
        b64.replace('/', ',');
        out += QLatin1Char('&') + QString::fromLatin1(b64) + QLatin1Char('-');
        pending.clear();
    };
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= 0x20 && u <= 0x7e) {
            flush();
            out += (u == '&') ? QStringLiteral("&-") : QString(c);
        } else {
            pending.append(char(u >> 8)).append(char(u & 0xff));
        }
    }
    flush();
    return out;
}

}  // namespace mv::stores::maildir

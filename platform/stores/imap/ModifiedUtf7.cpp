#include "ModifiedUtf7.h"

namespace mv::stores {

QString ModifiedUtf7::Decode(const QByteArray& wire)
{
    QString out;
    for (qsizetype i = 0; i < wire.size(); ++i) {
        const char c = wire[i];
        if (c != '&') {
            out += QLatin1Char(c);
            continue;
        }
        const qsizetype end = wire.indexOf('-', i + 1);
        if (end < 0) {
            out += QString::fromLatin1(wire.mid(i));
            break;
        }
        if (end == i + 1) {
            out += QLatin1Char('&');  // "&-" is a literal ampersand
        } else {
            QByteArray b64 = wire.mid(i + 1, end - i - 1);
            b64.replace(',', '/');
            const QByteArray utf16 = QByteArray::fromBase64(b64);
            if (utf16.size() % 2 != 0) {
                out += QString::fromLatin1(wire.mid(i, end - i + 1));
            } else {
                for (qsizetype k = 0; k + 1 < utf16.size(); k += 2)
                    out += QChar(static_cast<char16_t>((static_cast<uchar>(utf16[k]) << 8) | static_cast<uchar>(utf16[k + 1])));
            }
        }
        i = end;
    }
    return out;
}

QByteArray ModifiedUtf7::Encode(const QString& name)
{
    QByteArray out;
    QByteArray pending;  // UTF-16BE of the current non-ASCII run
    auto flush = [&] {
        if (pending.isEmpty()) return;
        QByteArray b64 = pending.toBase64(QByteArray::OmitTrailingEquals);
        b64.replace('/', ',');
        out += '&' + b64 + '-';
        pending.clear();
    };
    for (QChar ch : name) {
        const char16_t u = ch.unicode();
        if (u >= 0x20 && u <= 0x7e) {
            flush();
            out += u == '&' ? QByteArray("&-") : QByteArray(1, static_cast<char>(u));
        } else {
            pending += static_cast<char>(u >> 8);
            pending += static_cast<char>(u & 0xff);
        }
    }
    flush();
    return out;
}

}  // namespace mv::stores

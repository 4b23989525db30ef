#include "ModifiedUtf7.h"

#include <optional>

namespace mv::stores {

namespace {

int Base64Value(char16_t c)
{
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == ',') return 63;
    return -1;
}

// The UTF-16 text of one shift's modified base64, or nothing when it is not
// valid: a foreign character, a partial UTF-16 unit, or non-zero bits left.
std::optional<QString> DecodeShift(QStringView b64)
{
    QString out;
    quint32 bits = 0;
    int count = 0;
    QByteArray bytes;
    for (QChar ch : b64) {
        const int v = Base64Value(ch.unicode());
        if (v < 0) return std::nullopt;
        bits = (bits << 6) | static_cast<quint32>(v);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>((bits >> count) & 0xff);
        }
    }
    if (bytes.size() % 2 != 0 || (bits & ((1u << count) - 1)) != 0) return std::nullopt;
    for (qsizetype k = 0; k + 1 < bytes.size(); k += 2)
        out += QChar(static_cast<char16_t>((static_cast<uchar>(bytes[k]) << 8) | static_cast<uchar>(bytes[k + 1])));
    return out;
}

}  // namespace

QString ModifiedUtf7::Decode(const QByteArray& wire)
{
    return Decode(QString::fromLatin1(wire));
}

QString ModifiedUtf7::Decode(const QString& encoded)
{
    QString out;
    out.reserve(encoded.size());
    for (qsizetype i = 0; i < encoded.size(); ++i) {
        const QChar c = encoded.at(i);
        if (c != QLatin1Char('&')) {
            out += c;
            continue;
        }
        const qsizetype end = encoded.indexOf(QLatin1Char('-'), i + 1);
        if (end < 0) {
            out += QStringView(encoded).mid(i);
            break;
        }
        if (end == i + 1) {
            out += QLatin1Char('&');
        } else {
            const std::optional<QString> text = DecodeShift(QStringView(encoded).mid(i + 1, end - i - 1));
            out += text ? *text : QStringView(encoded).mid(i, end - i + 1).toString();
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

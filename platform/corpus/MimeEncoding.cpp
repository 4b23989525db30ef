#include "platform/corpus/MimeEncoding.h"

#include "platform/stores/common/GMimePtr.h"
#include "platform/stores/common/MimeProperties.h"

#include <gmime/gmime.h>

#include <cctype>

namespace mv::corpus {
namespace {

bool UsesBase64(const QByteArray& charset)
{
    // Western charsets are mostly ASCII and stay readable as Q; the others
    // are shorter and safer in B.
    const QByteArray lower = charset.toLower();
    return !(lower == "iso-8859-1" || lower == "windows-1252");
}

QByteArray TransferEncode(const QByteArray& bytes, GMimeContentEncoding encoding)
{
    GMimeEncoding state;
    g_mime_encoding_init_encode(&state, encoding);
    QByteArray out(static_cast<qsizetype>(g_mime_encoding_outlen(&state, static_cast<size_t>(bytes.size()))), '\0');
    const size_t written =
        g_mime_encoding_flush(&state, bytes.constData(), static_cast<size_t>(bytes.size()), out.data());
    out.truncate(static_cast<qsizetype>(written));
    return out;
}

}  // namespace

QByteArray MimeEncoding::ToCharset(const QString& text, const char* charset)
{
    stores::EnsureGMimeInitialised();
    const QByteArray utf8 = text.toUtf8();
    iconv_t cd = g_mime_iconv_open(charset, "UTF-8");
    if (cd == reinterpret_cast<iconv_t>(-1)) return {};
    stores::GCharPtr converted(g_mime_iconv_strndup(cd, utf8.constData(), static_cast<size_t>(utf8.size())));
    g_mime_iconv_close(cd);
    return converted ? QByteArray(converted.get()) : QByteArray();
}

QByteArray MimeEncoding::EncodedWords(const QString& text, const char* charset)
{
    const QByteArray name(charset);
    const bool base64 = UsesBase64(name);
    // Raw bytes per word: 36 in B is 48 characters, 18 in Q at most 54; with
    // the charset name both stay under 75.
    const qsizetype maxRaw = base64 ? 36 : 18;
    auto encodeWord = [&](const QByteArray& raw) {
        QByteArray payload;
        if (base64) {
            payload = raw.toBase64();
        } else {
            for (char ch : raw) {
                const auto c = static_cast<unsigned char>(ch);
                if (c == ' ')
                    payload += '_';
                else if (c < 128 && (std::isalnum(c) || c == '!' || c == '*' || c == '+' || c == '-' || c == '/'))
                    payload += static_cast<char>(c);
                else
                    payload += '=' + QByteArray::number(c, 16).toUpper().rightJustified(2, '0');
            }
        }
        return "=?" + name + "?" + (base64 ? "B" : "Q") + "?" + payload + "?=";
    };

    // Grow each word a character at a time; converting every chunk on its
    // own keeps stateful charsets (ISO-2022-JP) complete within each word.
    QList<QByteArray> words;
    QString chunk;
    QByteArray chunkRaw;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const qsizetype len = text[i].isHighSurrogate() && i + 1 < text.size() ? 2 : 1;
        const QString next = chunk + text.mid(i, len);
        const QByteArray raw = ToCharset(next, charset);
        if (!chunk.isEmpty() && raw.size() > maxRaw) {
            words << encodeWord(chunkRaw);
            chunk = text.mid(i, len);
            chunkRaw = ToCharset(chunk, charset);
        } else {
            chunk = next;
            chunkRaw = raw;
        }
        i += len - 1;
    }
    if (!chunk.isEmpty()) words << encodeWord(chunkRaw);
    return words.join("\n ");
}

QByteArray MimeEncoding::Phrase(const QString& name)
{
    bool ascii = true;
    for (QChar c : name) ascii = ascii && c.unicode() < 128;
    if (!ascii) return EncodedWords(name, "UTF-8");
    static const QString specials = QStringLiteral("()<>[]:;@\\,.\"");
    for (QChar c : name) {
        if (specials.contains(c)) {
            QByteArray quoted = name.toLatin1();
            quoted.replace("\\", "\\\\").replace("\"", "\\\"");
            return "\"" + quoted + "\"";
        }
    }
    return name.toLatin1();
}

QByteArray MimeEncoding::QuotedPrintable(const QByteArray& bytes)
{
    return TransferEncode(bytes, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
}

QByteArray MimeEncoding::Base64(const QByteArray& bytes) { return TransferEncode(bytes, GMIME_CONTENT_ENCODING_BASE64); }

}  // namespace mv::corpus

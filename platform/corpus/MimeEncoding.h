#pragma once
// The encoding side of MIME the corpus needs: text in a named charset (by
// GMime's iconv), RFC 2047 encoded words, and transfer encodings.

#include <QByteArray>
#include <QString>

namespace mv::corpus {

class MimeEncoding {
public:
    // `text` in `charset`; empty when iconv cannot convert it.
    static QByteArray ToCharset(const QString& text, const char* charset);
    // A header value of encoded words in `charset` (B or Q as mail programs
    // use for it), each short enough for the 75-character limit and folded
    // onto continuation lines. Decodes back to exactly `text`.
    static QByteArray EncodedWords(const QString& text, const char* charset);
    // A display name as a header phrase: as is, quoted, or encoded in UTF-8.
    static QByteArray Phrase(const QString& name);
    static QByteArray QuotedPrintable(const QByteArray& bytes);
    static QByteArray Base64(const QByteArray& bytes);
};

}  // namespace mv::corpus

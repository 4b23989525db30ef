#include "HtmlText.h"

#include <QHash>

namespace mv::stores {
namespace {

// The named entities that actually occur in mail; anything else stays as
// written so that no text is lost.
const QHash<QString, char32_t>& NamedEntities()
{
    static const QHash<QString, char32_t> table = {
        {"amp", U'&'},      {"lt", U'<'},       {"gt", U'>'},       {"quot", U'"'},
        {"apos", U'\''},    {"nbsp", U'\u00A0'}, {"copy", U'\u00A9'}, {"reg", U'\u00AE'},
        {"trade", U'\u2122'}, {"hellip", U'\u2026'}, {"mdash", U'\u2014'}, {"ndash", U'\u2013'},
        {"laquo", U'\u00AB'}, {"raquo", U'\u00BB'}, {"lsquo", U'\u2018'}, {"rsquo", U'\u2019'},
        {"ldquo", U'\u201C'}, {"rdquo", U'\u201D'}, {"bull", U'\u2022'}, {"euro", U'\u20AC'},
        {"pound", U'\u00A3'}, {"yen", U'\u00A5'},   {"cent", U'\u00A2'},  {"sect", U'\u00A7'},
        {"deg", U'\u00B0'},  {"middot", U'\u00B7'}, {"times", U'\u00D7'}, {"auml", U'\u00E4'},
        {"ouml", U'\u00F6'}, {"uuml", U'\u00FC'},  {"Auml", U'\u00C4'},  {"Ouml", U'\u00D6'},
        {"Uuml", U'\u00DC'}, {"szlig", U'\u00DF'}, {"eacute", U'\u00E9'}, {"egrave", U'\u00E8'},
        {"agrave", U'\u00E0'}, {"ccedil", U'\u00E7'}, {"zwnj", U'\u200C'},
    };
    return table;
}

bool IsBlockTag(const QString& name)
{
    static const QStringList blocks = {"p",  "br", "div", "tr", "li", "h1", "h2", "h3",  "h4",
                                       "h5", "h6", "hr",  "table", "ul", "ol", "blockquote",
                                       "pre", "dt", "dd", "title", "section", "article"};
    return blocks.contains(name);
}

// Collects output with HTML's whitespace rules: runs of white space become
// one space, no space at the start or end of a line, at most one blank line.
class TextSink {
public:
    void Char(QChar c, bool preformatted)
    {
        if (!preformatted && (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f')) {
            Space();
            return;
        }
        if (preformatted && c == '\n') {
            m_text += '\n';
            m_pendingSpace = false;
            return;
        }
        if (m_pendingSpace) m_text += ' ';
        m_pendingSpace = false;
        m_text += c == QChar(0x00A0) ? QChar(' ') : c;
    }
    void Text(const QString& s, bool preformatted)
    {
        for (QChar c : s) Char(c, preformatted);
    }
    void Space() { m_pendingSpace = !m_text.isEmpty() && !m_text.endsWith('\n'); }
    void LineBreak()
    {
        m_pendingSpace = false;
        while (m_text.endsWith(' ')) m_text.chop(1);
        if (m_text.isEmpty() || m_text.endsWith('\n')) return;
        m_text += '\n';
    }
    // <br> breaks even an empty line, up to one blank line.
    void HardBreak()
    {
        m_pendingSpace = false;
        while (m_text.endsWith(' ')) m_text.chop(1);
        if (!m_text.isEmpty() && !m_text.endsWith("\n\n")) m_text += '\n';
    }
    void BlankLine()
    {
        LineBreak();
        if (!m_text.isEmpty() && !m_text.endsWith("\n\n")) m_text += '\n';
    }
    QString Result() const { return m_text.trimmed(); }

private:
    QString m_text;
    bool m_pendingSpace = false;
};

// Position just after the tag that starts at `open` ('<'); quoted attribute
// values may contain '>'.
qsizetype TagEnd(const QString& html, qsizetype open)
{
    QChar quote;
    for (qsizetype i = open + 1; i < html.size(); ++i) {
        const QChar c = html[i];
        if (!quote.isNull()) {
            if (c == quote) quote = QChar();
        } else if (c == '"' || c == '\'') {
            // Only quotes that open an attribute value count; a stray one in
            // broken markup must not swallow the rest of the message.
            if (i > 0 && html[i - 1] == '=') quote = c;
        } else if (c == '>') {
            return i + 1;
        }
    }
    return html.size();
}

QString TagName(const QString& html, qsizetype open, qsizetype end, bool* closing)
{
    qsizetype i = open + 1;
    *closing = i < end && html[i] == '/';
    if (*closing) ++i;
    qsizetype start = i;
    while (i < end && (html[i].isLetterOrNumber() || html[i] == '-')) ++i;
    return html.mid(start, i - start).toLower();
}

// Decodes the entity at `amp`; returns the characters consumed (0 when it
// is not an entity, so the '&' is kept as text).
qsizetype DecodeEntity(const QString& html, qsizetype amp, QString* out)
{
    const qsizetype semi = html.indexOf(';', amp + 1);
    if (semi < 0 || semi - amp > 12) return 0;
    const QString name = html.mid(amp + 1, semi - amp - 1);
    char32_t code = 0;
    if (name.startsWith('#')) {
        bool ok = false;
        const bool hex = name.size() > 1 && (name[1] == 'x' || name[1] == 'X');
        const uint value = hex ? name.mid(2).toUInt(&ok, 16) : name.mid(1).toUInt(&ok, 10);
        if (!ok || value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
        code = value;
    } else {
        const auto it = NamedEntities().constFind(name);
        if (it == NamedEntities().constEnd()) return 0;
        code = *it;
    }
    *out = QString::fromUcs4(&code, 1);
    return semi - amp + 1;
}

}  // namespace

QString HtmlText::ToPlainText(const QString& html)
{
    TextSink sink;
    bool preformatted = false;
    qsizetype i = 0;
    while (i < html.size()) {
        const QChar c = html[i];
        if (c == '<') {
            if (html.mid(i, 4) == QLatin1String("<!--")) {
                const qsizetype end = html.indexOf(QLatin1String("-->"), i + 4);
                i = end < 0 ? html.size() : end + 3;
                continue;
            }
            const bool isTag = i + 1 < html.size() &&
                               (html[i + 1].isLetter() || html[i + 1] == '/' || html[i + 1] == '!' ||
                                html[i + 1] == '?');
            if (!isTag) {  // "a < b" in sloppy HTML is text
                sink.Char(c, preformatted);
                ++i;
                continue;
            }
            const qsizetype end = TagEnd(html, i);
            bool closing = false;
            const QString name = TagName(html, i, end, &closing);
            i = end;
            if (!closing && (name == "script" || name == "style" || name == "title" || name == "head")) {
                // Their content is not display text.
                const qsizetype close = html.indexOf("</" + name, i, Qt::CaseInsensitive);
                i = close < 0 ? html.size() : TagEnd(html, close);
                continue;
            }
            if (name == "pre") preformatted = !closing;
            if (name == "td" || name == "th") sink.Space();
            if (name == "p")
                sink.BlankLine();
            else if (name == "br")
                sink.HardBreak();
            else if (IsBlockTag(name))
                sink.LineBreak();
            continue;
        }
        if (c == '&') {
            QString decoded;
            if (const qsizetype used = DecodeEntity(html, i, &decoded)) {
                // A decoded space is content, not layout.
                for (QChar d : decoded) sink.Char(d == ' ' ? QChar(0x00A0) : d, preformatted);
                i += used;
                continue;
            }
        }
        sink.Char(c, preformatted);
        ++i;
    }
    return sink.Result();
}

}  // namespace mv::stores

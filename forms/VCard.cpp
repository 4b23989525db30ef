#include "VCard.h"

#include <QFile>

namespace mv::forms {

namespace {

// A content line: [group "."] name *(";" param) ":" value. Parameter values
// may be quoted and so hold ":" or ";".
struct ContentLine {
    QString name;  // upper case, group removed
    QString value;
};

bool Split(const QString& line, ContentLine* out)
{
    bool quoted = false;
    int colon = -1;
    int nameEnd = -1;
    for (int i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (c == u'"') quoted = !quoted;
        if (quoted) continue;
        if (c == u';' && nameEnd < 0) nameEnd = i;
        if (c == u':') {
            colon = i;
            break;
        }
    }
    if (colon <= 0) return false;
    QString name = line.left(nameEnd >= 0 ? nameEnd : colon).trimmed().toUpper();
    if (const int dot = name.lastIndexOf(u'.'); dot >= 0) name = name.mid(dot + 1);
    out->name = name;
    out->value = line.mid(colon + 1);
    return true;
}

}  // namespace

QStringList VCard::Unfold(const QString& text)
{
    QString normal = text;
    normal.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    normal.replace(u'\r', u'\n');
    QStringList lines;
    for (const QString& raw : normal.split(u'\n')) {
        if (!lines.isEmpty() && !raw.isEmpty() && (raw.front() == u' ' || raw.front() == u'\t'))
            lines.back() += raw.mid(1);
        else
            lines << raw;
    }
    return lines;
}

QString VCard::Unescape(const QString& value)
{
    QString out;
    out.reserve(value.size());
    for (int i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c != u'\\' || i + 1 == value.size()) {
            out += c;
            continue;
        }
        const QChar next = value.at(++i);
        out += (next == u'n' || next == u'N') ? QChar(u'\n') : next;
    }
    return out;
}

Result<std::vector<VCardContact>> VCard::Parse(const QByteArray& text)
{
    std::vector<VCardContact> cards;
    bool inCard = false;
    VCardContact current;
    for (const QString& line : Unfold(QString::fromUtf8(text))) {
        ContentLine cl;
        if (!Split(line, &cl)) continue;  // blank or junk lines between properties
        if (cl.name == QLatin1String("BEGIN") &&
            cl.value.trimmed().compare(QLatin1String("VCARD"), Qt::CaseInsensitive) == 0) {
            // A BEGIN inside a card means the previous one was cut off.
            inCard = true;
            current = {};
        } else if (cl.name == QLatin1String("END") && inCard &&
                   cl.value.trimmed().compare(QLatin1String("VCARD"), Qt::CaseInsensitive) == 0) {
            cards.push_back(std::move(current));
            current = {};
            inCard = false;
        } else if (inCard && cl.name == QLatin1String("FN")) {
            current.name = Unescape(cl.value).trimmed();
        } else if (inCard && cl.name == QLatin1String("EMAIL")) {
            QString address = Unescape(cl.value).trimmed();
            if (address.startsWith(QLatin1String("mailto:"), Qt::CaseInsensitive)) address = address.mid(7);
            if (!address.isEmpty() && !current.emails.contains(address, Qt::CaseInsensitive))
                current.emails << address;
        }
    }
    if (cards.empty()) return Error::permanent(QStringLiteral("no complete vCard found"));
    return cards;
}

Result<std::vector<VCardContact>> VCard::ReadFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Error::notFound(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
    // Contact files are small; a huge one is not a contact file.
    constexpr qint64 kMaxBytes = 4 * 1024 * 1024;
    if (file.size() > kMaxBytes)
        return Error::permanent(QStringLiteral("%1 is too large for a vCard").arg(path));
    auto parsed = Parse(file.readAll());
    if (!parsed) return Error::permanent(path + QStringLiteral(": ") + parsed.error().message);
    return parsed;
}

}  // namespace mv::forms

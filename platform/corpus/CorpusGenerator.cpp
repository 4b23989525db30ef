#include "platform/corpus/CorpusGenerator.h"

#include "platform/corpus/CorpusRandom.h"
#include "platform/corpus/MimeEncoding.h"

#include <QLocale>

namespace mv::corpus {
namespace {

// The kinds of mail in the mix, with their share (weights, out of 100).
enum class Kind { Plain, Alternative, HtmlOnly, Attachment, Reply, Forward, Ndr, ReadReceipt, Request, Cancel, MeetingReply };
const std::vector<int> kKindWeights = {28, 18, 5, 12, 12, 7, 4, 3, 4, 3, 4};

// Subject and body words in each charset the corpus encodes; the ASCII
// subject words are mixed in, as in real mail.
struct CharsetWords {
    const char* charset;
    QStringList words;
};

const std::vector<CharsetWords>& Charsets()
{
    static const std::vector<CharsetWords> table = {
        {"UTF-8", {"Grüße", "naïve", "✓", "Zoë", "Ελλάδα", "Łódź", "Ærø"}},
        {"ISO-8859-1", {"Grüße", "Café", "Übersicht", "réunion", "Bücher", "Señor"}},
        {"windows-1252", {"€ 500", "Angebot –", "„Zitat“", "Preis…", "Café"}},
        {"ISO-2022-JP", {"会議", "資料", "確認", "お知らせ", "予定"}},
        {"KOI8-R", {"Привет", "отчёт", "встреча", "бюджет", "план"}},
    };
    return table;
}

const QStringList& Domains()
{
    static const QStringList domains = {"example.com", "example.org", "example.net", "corp.example", "mail.test"};
    return domains;
}

// The demo's recurring correspondents: who writes (one of SampleAddresses,
// or null for any correspondent), the subjects they use ("{n}" an invoice
// or ticket number, "{q}" a quarter, "{w}" a subject word), the importance
// they mark mail with (null: drawn as for other mail) and how often the
// owner answers them.
struct Stream {
    const char* sender;
    QStringList subjects;
    const char* importance;
    int answeredPercent;
};

const std::vector<Stream>& Streams()
{
    static const std::vector<Stream> table = {
        {"billing@mail.test",
         {"Invoice {n}: payment due", "Payment received for invoice {n}",
          "Reminder: invoice {n} awaits payment"},
         nullptr, 5},
        {"helpdesk@example.org",
         {"[Ticket #{n}] Password reset", "[Ticket #{n}] VPN keeps disconnecting", "Ticket #{n} resolved"},
         nullptr, 30},
        {nullptr,
         {"Quarterly report Q{q}", "Draft quarterly report for review", "Quarterly report: {w} figures"},
         nullptr, 20},
        {nullptr, {"Quick question about the {w}", "When you have a minute: {w} {w}"}, "Low", 60},
    };
    return table;
}

// Share of the demo's INBOX mail, reports and invitations aside, that comes
// from a stream.
constexpr int kStreamPercent = 25;
constexpr int kAnsweredPercent = 15;

struct Person {
    QString name;
    QString address;
};

QByteArray Mailbox(const Person& p, bool withName)
{
    if (!withName || p.name.isEmpty()) return p.address.toLatin1();
    return MimeEncoding::Phrase(p.name) + " <" + p.address.toLatin1() + ">";
}

QByteArray RfcDate(const QDateTime& utc)
{
    return QLocale::c().toString(utc, QStringLiteral("ddd, dd MMM yyyy hh:mm:ss")).toLatin1() + " +0000";
}

QString Capitalised(QString s)
{
    if (!s.isEmpty()) s[0] = s[0].toUpper();
    return s;
}

// One message under construction. Every draw from the generator is its own
// statement: the operands of one expression are evaluated in an unspecified
// order, and a seed must mean the same corpus with every compiler.
class Builder {
public:
    Builder(CorpusRandom& rng, const CorpusOptions& options, int index) : m_rng(rng), m_options(options), m_index(index)
    {
    }

    GeneratedMessage Build();

private:
    Person RandomPerson()
    {
        const QStringList names = CorpusGenerator::SampleNames();
        const QStringList addresses = CorpusGenerator::SampleAddresses();
        const int i = static_cast<int>(m_rng.Below(static_cast<std::uint64_t>(names.size())));
        return {names[i], addresses[i]};
    }
    QByteArray AddressList(int count, bool allowGroup);
    QString SubjectText();
    QString StreamSubject();
    Person StreamSender();
    QByteArray SubjectHeader(const QString& prefix, const QString& text);
    QString BodyText(int paragraphs);
    QByteArray TextPart(const QString& text, const char* subtype);
    QByteArray AttachmentPart();
    QByteArray CalendarPart(const QString& method, const QString& summary);
    mapi::MessageFlags Flags(Kind kind);

    CorpusRandom& m_rng;
    const CorpusOptions& m_options;
    int m_index;
    const CharsetWords* m_charset = nullptr;  // null: plain ASCII subject
    const Stream* m_stream = nullptr;         // null: sender and subject drawn independently
};

QByteArray Builder::AddressList(int count, bool allowGroup)
{
    QList<QByteArray> entries;
    for (int i = 0; i < count; ++i) {
        const Person person = RandomPerson();
        entries << Mailbox(person, m_rng.Percent(70));
    }
    if (allowGroup && count > 1 && m_rng.Percent(5)) {
        // A group around some of the recipients, as list software writes.
        return "Project Team: " + entries.join(", ") + ";";
    }
    return entries.join(", ");
}

QString Builder::SubjectText()
{
    const QStringList words = CorpusGenerator::SampleSubjectWords();
    QStringList parts;
    const int count = m_rng.Between(2, 6);
    for (int i = 0; i < count; ++i) parts << m_rng.Pick(words);
    if (m_charset) {
        const int extra = m_rng.Between(1, 2);
        for (int i = 0; i < extra; ++i) {
            const auto at = static_cast<qsizetype>(m_rng.Below(static_cast<std::uint64_t>(parts.size() + 1)));
            parts.insert(at, m_rng.Pick(m_charset->words));
        }
    }
    return Capitalised(parts.join(' '));
}

QString Builder::StreamSubject()
{
    QString text = m_rng.Pick(m_stream->subjects);
    for (qsizetype at = text.indexOf(QLatin1Char('{')); at >= 0; at = text.indexOf(QLatin1Char('{'), at)) {
        const QChar token = text[at + 1];
        QString value;
        if (token == QLatin1Char('n'))
            value = QString::number(m_rng.Between(1000, 9999));
        else if (token == QLatin1Char('q'))
            value = QString::number(m_rng.Between(1, 4));
        else
            value = m_rng.Pick(CorpusGenerator::SampleSubjectWords());
        text.replace(at, 3, value);
        at += value.size();
    }
    return Capitalised(text);
}

Person Builder::StreamSender()
{
    if (!m_stream->sender) return RandomPerson();
    const QStringList addresses = CorpusGenerator::SampleAddresses();
    const auto i = addresses.indexOf(QLatin1String(m_stream->sender));
    Q_ASSERT(i >= 0);
    return {CorpusGenerator::SampleNames()[i], addresses[i]};
}

QByteArray Builder::SubjectHeader(const QString& prefix, const QString& text)
{
    const QByteArray lead = prefix.isEmpty() ? QByteArray() : prefix.toLatin1() + " ";
    if (!m_charset) return lead + text.toLatin1();
    return lead + MimeEncoding::EncodedWords(text, m_charset->charset);
}

QString Builder::BodyText(int paragraphs)
{
    const QStringList words = CorpusGenerator::SampleSubjectWords();
    static const QStringList fillers = {"the", "and", "we", "should", "about", "please", "next", "with", "for", "this"};
    QStringList out;
    for (int p = 0; p < paragraphs; ++p) {
        QStringList sentence;
        const int n = m_rng.Between(8, 40);
        for (int i = 0; i < n; ++i) {
            if (m_charset && m_rng.Percent(8))
                sentence << m_rng.Pick(m_charset->words);
            else
                sentence << (m_rng.Percent(30) ? m_rng.Pick(words).toLower() : m_rng.Pick(fillers));
        }
        out << Capitalised(sentence.join(' ')) + ".";
    }
    return out.join("\n\n") + "\n";
}

QByteArray Builder::TextPart(const QString& text, const char* subtype)
{
    // Text follows the subject's charset; ASCII mail is declared UTF-8.
    const char* charset = m_charset ? m_charset->charset : "UTF-8";
    QByteArray encoded = MimeEncoding::ToCharset(text, charset);
    if (encoded.isEmpty()) {
        // A quoted name the charset cannot hold: the text goes out in UTF-8.
        charset = "UTF-8";
        encoded = text.toUtf8();
    }
    QByteArray head = QByteArray("Content-Type: text/") + subtype + "; charset=" + charset + "\n";
    if (QByteArray(charset) == "ISO-2022-JP") {
        head += "Content-Transfer-Encoding: 7bit\n";
    } else if (m_rng.Percent(50)) {
        head += "Content-Transfer-Encoding: quoted-printable\n";
        encoded = MimeEncoding::QuotedPrintable(encoded);
    } else if (m_rng.Percent(30)) {
        head += "Content-Transfer-Encoding: base64\n";
        encoded = MimeEncoding::Base64(encoded);
    } else {
        head += "Content-Transfer-Encoding: 8bit\n";
    }
    return head + "\n" + encoded;
}

QByteArray Builder::AttachmentPart()
{
    static const struct {
        const char* type;
        const char* extension;
        const char* magic;
    } kTypes[] = {{"application/pdf", "pdf", "%PDF-1.4\n"},
                  {"image/png", "png", "\x89PNG\r\n\x1a\n"},
                  {"application/zip", "zip", "PK\x03\x04"},
                  {"text/csv", "csv", "date,amount\n"}};
    const auto& type = m_rng.Pick(kTypes);
    QByteArray data(type.magic);
    const int size = m_rng.Between(512, 24 * 1024);
    data.reserve(size);
    while (data.size() < size) {
        const std::uint64_t r = m_rng.Next();
        data.append(reinterpret_cast<const char*>(&r), sizeof r);
    }
    const QByteArray name =
        m_rng.Pick(CorpusGenerator::SampleSubjectWords()).toLower().toLatin1() + "-" + QByteArray::number(m_index);
    return QByteArray("Content-Type: ") + type.type + "; name=\"" + name + "." + type.extension +
           "\"\nContent-Disposition: attachment; filename=\"" + name + "." + type.extension +
           "\"\nContent-Transfer-Encoding: base64\n\n" + MimeEncoding::Base64(data);
}

QByteArray Builder::CalendarPart(const QString& method, const QString& summary)
{
    const int days = m_rng.Between(1, 60);
    const QDateTime start = m_options.now.addDays(days).addSecs(3600 * m_rng.Between(0, 8));
    const QString stamp = QStringLiteral("yyyyMMdd'T'hhmmss'Z'");
    QString ics = "BEGIN:VCALENDAR\r\nPRODID:-//Mailvane//Corpus//EN\r\nVERSION:2.0\r\nMETHOD:" + method +
                  "\r\nBEGIN:VEVENT\r\nUID:corpus-" + QString::number(m_options.seed) + "-" +
                  QString::number(m_index) + "@mail.test\r\nDTSTAMP:" + m_options.now.toString(stamp) +
                  "\r\nDTSTART:" + start.toString(stamp) + "\r\nDTEND:" + start.addSecs(3600).toString(stamp) +
                  "\r\nSUMMARY:" + summary + "\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n";
    return "Content-Type: text/calendar; charset=UTF-8; method=" + method.toLatin1() +
           "\nContent-Transfer-Encoding: base64\n\n" + MimeEncoding::Base64(ics.toUtf8());
}

mapi::MessageFlags Builder::Flags(Kind kind)
{
    mapi::MessageFlags flags;
    flags.seen = m_rng.Percent(70);
    const int answeredPercent = m_stream ? m_stream->answeredPercent : kAnsweredPercent;
    flags.answered = kind != Kind::Ndr && m_rng.Percent(answeredPercent);
    flags.flagged = m_rng.Percent(10);
    if (m_rng.Percent(8)) flags.keywords << "$Forwarded";
    if (!flags.flagged && m_rng.Percent(6)) flags.keywords << "$Completed";
    if (flags.flagged && m_rng.Percent(60)) {
        // Colour 1..6 in three bits.
        const int colour = m_rng.Between(1, 6);
        for (int bit = 0; bit < 3; ++bit)
            if (colour & (1 << bit)) flags.keywords << QStringLiteral("$MailFlagBit%1").arg(bit);
    }
    return flags;
}

GeneratedMessage Builder::Build()
{
    GeneratedMessage out;
    Kind kind = static_cast<Kind>(m_rng.Weighted(kKindWeights));
    if (!m_options.withAttachments && kind == Kind::Attachment) kind = Kind::Plain;
    const bool special = kind == Kind::Ndr || kind == Kind::ReadReceipt || kind == Kind::Request ||
                         kind == Kind::Cancel || kind == Kind::MeetingReply;
    if (!special) out.folder = CorpusGenerator::Folders()[m_rng.Weighted({64, 16, 12, 8})];
    const bool sent = out.folder == "Sent";
    if (!special && m_rng.Percent(30)) m_charset = &m_rng.Pick(Charsets());
    // Only the demo draws here, so a seed still gives the mixed profile the
    // mail it always gave.
    const bool demoInbox = m_options.profile == CorpusProfile::Demo && !special && out.folder.isEmpty();
    if (demoInbox && m_rng.Percent(kStreamPercent)) m_stream = &m_rng.Pick(Streams());

    const qint64 span = 3LL * 365 * 24 * 3600;
    const QDateTime date = m_options.now.addSecs(-static_cast<qint64>(m_rng.Below(static_cast<std::uint64_t>(span))));
    const Person owner{"Mailbox Owner", CorpusGenerator::OwnerAddress()};
    const Person from = sent ? owner : m_stream ? StreamSender() : RandomPerson();
    const QByteArray messageId = "<" + QByteArray::number(static_cast<qulonglong>(m_options.seed)) + "." +
                                 QByteArray::number(m_index) + "." +
                                 QByteArray::number(static_cast<qulonglong>(m_rng.Next() & 0xFFFFFFFF), 16) +
                                 "@mail.test>";

    QString subject = m_stream ? StreamSubject() : SubjectText();
    QString prefix;
    QByteArray head;
    QByteArray body;
    const QByteArray boundary = "=_corpus_" + QByteArray::number(m_index) + "_" +
                                QByteArray::number(static_cast<qulonglong>(m_rng.Next() & 0xFFFFFF), 16);

    switch (kind) {
    case Kind::Plain:
    case Kind::Reply:
    case Kind::Forward: {
        QString text = BodyText(m_rng.Between(1, 4));
        if (kind == Kind::Reply) {
            prefix = "Re:";
            head += "In-Reply-To: <parent." + QByteArray::number(m_index) + "@mail.test>\n";
            const QString author = RandomPerson().name;
            text += "\n" + author + " wrote:\n> " + BodyText(1).trimmed() + "\n";
        }
        if (kind == Kind::Forward) {
            prefix = "Fwd:";
            if (m_options.withAttachments && m_rng.Percent(50)) {
                const Person original = RandomPerson();
                const QByteArray originalText = BodyText(1).toUtf8();
                const QByteArray textPart = TextPart(text, "plain");
                const QByteArray inner = "From: " + Mailbox(original, true) + "\nSubject: " +
                                         subject.toUtf8() + "\nDate: " + RfcDate(date.addDays(-1)) +
                                         "\nContent-Type: text/plain; charset=UTF-8\n\n" + originalText;
                body = "--" + boundary + "\n" + textPart + "\n--" + boundary +
                       "\nContent-Type: message/rfc822\nContent-Disposition: attachment\n\n" + inner + "\n--" +
                       boundary + "--\n";
                head += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\n";
                break;
            }
            text = "---------- Forwarded message ----------\n" + text;
        }
        const QByteArray part = TextPart(text, "plain");
        const qsizetype split = part.indexOf("\n\n");
        head += part.left(split + 1);
        body = part.mid(split + 2);
        break;
    }
    case Kind::Alternative:
    case Kind::HtmlOnly: {
        const QString text = BodyText(m_rng.Between(1, 3));
        QString html = "<html><head><style>p { margin: 0 }</style></head><body>";
        for (const QString& paragraph : text.trimmed().split("\n\n"))
            html += "<p>" + paragraph.toHtmlEscaped() + "</p>\n";
        html += "</body></html>\n";
        if (kind == Kind::HtmlOnly) {
            const QByteArray part = TextPart(html, "html");
            const qsizetype split = part.indexOf("\n\n");
            head += part.left(split + 1);
            body = part.mid(split + 2);
        } else {
            head += "Content-Type: multipart/alternative; boundary=\"" + boundary + "\"\n";
            const QByteArray plainPart = TextPart(text, "plain");
            const QByteArray htmlPart = TextPart(html, "html");
            body = "--" + boundary + "\n" + plainPart + "\n--" + boundary + "\n" + htmlPart + "\n--" + boundary +
                   "--\n";
        }
        break;
    }
    case Kind::Attachment: {
        head += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\n";
        body = "This is a multi-part message in MIME format.\n\n--" + boundary + "\n" +
               TextPart(BodyText(m_rng.Between(1, 2)), "plain") + "\n";
        const int files = m_rng.Between(1, 3);
        for (int i = 0; i < files; ++i) body += "--" + boundary + "\n" + AttachmentPart() + "\n";
        body += "--" + boundary + "--\n";
        break;
    }
    case Kind::Ndr: {
        subject = "Undelivered Mail Returned to Sender";
        const Person lost = RandomPerson();
        head += "Content-Type: multipart/report; report-type=delivery-status; boundary=\"" + boundary + "\"\n";
        body = "--" + boundary + "\nContent-Type: text/plain; charset=us-ascii\n\nYour message to " +
               lost.address.toLatin1() + " could not be delivered.\n\n--" + boundary +
               "\nContent-Type: message/delivery-status\n\nReporting-MTA: dns; mx.mail.test\n\n"
               "Final-Recipient: rfc822; " + lost.address.toLatin1() +
               "\nAction: failed\nStatus: 5.1.1\n\n--" + boundary +
               "\nContent-Type: text/rfc822-headers\n\nFrom: " + owner.address.toLatin1() + "\nTo: " +
               lost.address.toLatin1() + "\nSubject: " + SubjectText().toLatin1() + "\n\n--" + boundary + "--\n";
        break;
    }
    case Kind::ReadReceipt: {
        const QString original = SubjectText();
        subject = "Read: " + original;
        head += "Content-Type: multipart/report; report-type=disposition-notification; boundary=\"" + boundary +
                "\"\n";
        body = "--" + boundary + "\nContent-Type: text/plain; charset=UTF-8\n\nYour message \"" + original.toUtf8() +
               "\" was displayed.\n\n--" + boundary +
               "\nContent-Type: message/disposition-notification\n\nReporting-UA: mail.test; Mailvane\n"
               "Final-Recipient: rfc822; " + from.address.toLatin1() +
               "\nDisposition: manual-action/MDN-sent-manually; displayed\n\n--" + boundary + "--\n";
        break;
    }
    case Kind::Request:
    case Kind::Cancel:
    case Kind::MeetingReply: {
        const QString method = kind == Kind::Request ? "REQUEST" : kind == Kind::Cancel ? "CANCEL" : "REPLY";
        const QString subjectPrefix = kind == Kind::Request ? "" : kind == Kind::Cancel ? "Canceled: " : "Accepted: ";
        const QString meeting = SubjectText();
        subject = subjectPrefix + meeting;
        head += "Content-Type: multipart/alternative; boundary=\"" + boundary + "\"\n";
        const QByteArray textPart = TextPart("Meeting: " + meeting + "\n", "plain");
        const QByteArray calendarPart = CalendarPart(method, meeting);
        body = "--" + boundary + "\n" + textPart + "\n--" + boundary + "\n" + calendarPart + "\n--" + boundary +
               "--\n";
        break;
    }
    }

    const QString fullSubject = prefix.isEmpty() ? subject : prefix + " " + subject;
    QByteArray headers;
    if (!sent && out.folder.isEmpty()) {
        const int receiver = m_rng.Weighted({70, 15, 15});
        if (receiver == 0) headers += "Delivered-To: " + owner.address.toLatin1() + "\n";
        if (receiver == 1) headers += "X-Original-To: team@" + m_rng.Pick(Domains()).toLatin1() + "\n";
    }
    headers += "Date: " + RfcDate(date) + "\n";
    headers += "From: " + (kind == Kind::Ndr ? QByteArray("Mail Delivery System <MAILER-DAEMON@mx.mail.test>")
                                             : Mailbox(from, m_rng.Percent(85))) + "\n";
    if (sent) {
        headers += "To: " + AddressList(m_rng.Between(1, 3), true) + "\n";
    } else if (m_rng.Percent(30)) {
        const QByteArray others = AddressList(m_rng.Between(1, 2), true);
        headers += "To: " + Mailbox(owner, true) + ", " + others + "\n";
    } else {
        headers += "To: " + Mailbox(owner, true) + "\n";
    }
    if (!special && m_rng.Percent(35)) headers += "Cc: " + AddressList(m_rng.Between(1, 3), true) + "\n";
    if (sent && m_rng.Percent(20)) headers += "Bcc: " + AddressList(m_rng.Between(1, 2), false) + "\n";
    headers += "Subject: " + SubjectHeader(prefix, subject) + "\n";
    headers += "Message-ID: " + messageId + "\n";
    const bool markedByStream = m_stream && m_stream->importance;
    const int importance = markedByStream ? -1 : m_rng.Weighted({80, 10, 10});
    if (markedByStream) headers += "Importance: " + QByteArray(m_stream->importance) + "\n";
    if (importance == 1) headers += "Importance: " + QByteArray(m_rng.Percent(50) ? "High" : "Low") + "\n";
    if (importance == 2) headers += "X-Priority: " + QByteArray::number(m_rng.Between(1, 5)) + "\n";
    headers += "MIME-Version: 1.0\n" + head;

    out.subject = fullSubject;
    out.message.rfc822 = headers + "\n" + body;
    out.message.flags = Flags(kind);
    if (sent) out.message.flags.seen = true;
    out.message.internalDate = date.addSecs(m_rng.Between(1, 300));  // delivered shortly after it was sent
    return out;
}

}  // namespace

std::vector<GeneratedMessage> CorpusGenerator::Generate(const CorpusOptions& options)
{
    CorpusRandom rng(options.seed);
    std::vector<GeneratedMessage> messages;
    messages.reserve(static_cast<size_t>(std::max(0, options.count)));
    for (int i = 0; i < options.count; ++i) messages.push_back(Builder(rng, options, i).Build());
    return messages;
}

QStringList CorpusGenerator::SampleNames()
{
    return {"Anna Berg",    "Carl Dahl",     "Erik Falk",        "Frida Holm",      "Gustav Lund",
            "Hanna Nyberg", "Jörg Müller",   "Åsa Lindqvist",    "Zoë Martin",      "Sean O'Brien",
            "Dahl, Carl",   "Maria García",  "Yuki Tanaka",      "Olga Ivanova",    "Pierre Lefèvre",
            "Li Wei",       "Nina Kowalska", "Tom Baker",        "Sara Ek",         "Billing Team",
            "Newsletter",   "IT Helpdesk",   "Priya Raman",      "Lars Öberg",      "Chloé Dubois"};
}

QStringList CorpusGenerator::SampleAddresses()
{
    return {"anna.berg@example.com",  "carl.dahl@example.org",   "erik.falk@example.net",  "frida@corp.example",
            "gustav.lund@mail.test",  "hanna@example.com",       "jm@example.org",         "asa.l@example.net",
            "zoe@corp.example",       "sean.obrien@mail.test",   "cdahl@example.com",      "mgarcia@example.org",
            "yuki@example.net",       "olga.i@corp.example",     "pierre@mail.test",       "li.wei@example.com",
            "nina.k@example.org",     "tom@example.net",         "sara.ek@corp.example",   "billing@mail.test",
            "news@example.com",       "helpdesk@example.org",    "priya@example.net",      "lars@corp.example",
            "chloe@mail.test"};
}

QStringList CorpusGenerator::SampleSubjectWords()
{
    return {"invoice", "meeting", "report",  "budget",    "project", "review",  "quarterly", "update",
            "agenda",  "travel",  "contract", "proposal", "release", "deadline", "schedule", "minutes",
            "offer",   "order",   "shipping", "payment",  "holiday", "training", "newsletter", "survey",
            "backup",  "server",  "ticket",  "password",  "lunch",   "party",   "team",      "draft"};
}

QString CorpusGenerator::OwnerAddress() { return QStringLiteral("owner@example.com"); }

QStringList CorpusGenerator::Folders() { return {"", "Sent", "Archive", "Archive/Projects"}; }

}  // namespace mv::corpus

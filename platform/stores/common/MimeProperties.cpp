#include "MimeProperties.h"

#include "GMimePtr.h"
#include "HtmlText.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QStringDecoder>

#include <fcntl.h>

#include <functional>
#include <mutex>
#include <optional>

using namespace mv::mapi;

namespace mv::stores {

void EnsureGMimeInitialised()
{
    static std::once_flag once;
    std::call_once(once, [] { g_mime_init(); });
}

namespace {

// glibc loads a converter's module on iconv_open and unloads it soon after
// the last iconv_close; mail that mixes a few charsets then had the same
// modules loaded and unloaded thousands of times a run, a dlopen each. A
// converter per charset kept open for the life of the process keeps its
// module loaded. Bounded: a message cannot make it hold more than a few.
void KeepCharsetLoaded(QByteArrayView charset)
{
    constexpr qsizetype kLongestName = 40;
    constexpr qsizetype kMostCharsets = 64;
    if (charset.isEmpty() || charset.size() > kLongestName) return;
    const QByteArray name = charset.toByteArray().toLower();
    static std::mutex mutex;
    static QSet<QByteArray> kept;
    std::lock_guard lock(mutex);
    if (kept.size() >= kMostCharsets || kept.contains(name)) return;
    kept.insert(name);
    (void)g_mime_iconv_open("UTF-8", name.constData());  // never closed, on purpose
}

// The charsets of a header block's encoded words ("=?koi8-r?B?...?=").
void KeepHeaderCharsetsLoaded(QByteArrayView block)
{
    for (qsizetype at = block.indexOf("=?"); at >= 0; at = block.indexOf("=?", at + 2)) {
        const qsizetype end = block.indexOf('?', at + 2);
        if (end < 0) return;
        QByteArrayView charset = block.sliced(at + 2, end - at - 2);
        if (const qsizetype star = charset.indexOf('*'); star >= 0) charset = charset.first(star);  // a language tag
        KeepCharsetLoaded(charset);
        at = end - 1;
    }
}

// Deeper nesting than this is not mail anyone wrote; parts below it are
// ignored rather than walked (and the walk stays off the stack's edge).
constexpr int kMaxDepth = 32;
constexpr qsizetype kReadChunk = 64 * 1024;

ParserOptionsPtr MakeParserOptions()
{
    ParserOptionsPtr options(g_mime_parser_options_new());
    g_mime_parser_options_set_rfc2047_compliance_mode(options.get(), GMIME_RFC_COMPLIANCE_LOOSE);
    g_mime_parser_options_set_address_compliance_mode(options.get(), GMIME_RFC_COMPLIANCE_LOOSE);
    g_mime_parser_options_set_parameter_compliance_mode(options.get(), GMIME_RFC_COMPLIANCE_LOOSE);
    // Undeclared 8-bit text: UTF-8 when it is valid, else the Windows code
    // page that mislabelled Latin-1 mail really uses, else Latin-1, which
    // accepts every byte.
    const char* fallback[] = {"utf-8", "windows-1252", "iso-8859-1", nullptr};
    g_mime_parser_options_set_fallback_charsets(options.get(), fallback);
    return options;
}

// Offset just past the blank line that ends the header block, or `size`.
qsizetype HeaderBlockEnd(const char* data, qsizetype size, qsizetype from = 0)
{
    for (qsizetype i = from; i < size; ++i) {
        if (data[i] != '\n') continue;
        if (i + 1 < size && data[i + 1] == '\n') return i + 2;
        if (i + 2 < size && data[i + 1] == '\r' && data[i + 2] == '\n') return i + 3;
    }
    return size;
}

// Old Macintosh mail ends lines with a bare CR, which GMime does not take
// for a line end; without this the whole message would be one header.
QByteArray NormaliseLineEnds(QByteArray block)
{
    // Reads through constData() so that a block that needs no change is
    // never copied.
    const qsizetype size = block.size();
    bool bare = false;
    for (qsizetype i = 0; i < size; ++i) {
        const char* data = block.constData();
        if (data[i] == '\r' && (i + 1 == size || data[i + 1] != '\n')) {
            block[i] = '\n';
            bare = true;
        }
    }
    if (bare) block.truncate(HeaderBlockEnd(block.constData(), size));
    return block;
}

GPtr<GMimeMessage> Parse(GMimeStream* stream, GMimeParserOptions* options, bool persist)
{
    GPtr<GMimeParser> parser(g_mime_parser_new_with_stream(stream));
    g_mime_parser_set_format(parser.get(), GMIME_FORMAT_MESSAGE);
    // With a persistent stream the parts refer to byte ranges of the file
    // instead of holding copies of their content.
    g_mime_parser_set_persist_stream(parser.get(), persist);
    return GPtr<GMimeMessage>(g_mime_parser_construct_message(parser.get(), options));
}

GPtr<GMimeMessage> ParseBytes(const char* data, qsizetype size, GMimeParserOptions* options)
{
    GPtr<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(data, static_cast<size_t>(size)));
    return Parse(stream.get(), options, false);
}

QString FromUtf8(const char* text) { return text ? QString::fromUtf8(text) : QString(); }

// Duplicate headers: the first one wins for every field, the way most
// readers show them (GMime itself keeps the last Subject it saw).
GMimeHeader* FirstHeader(GMimeMessage* message, const char* name)
{
    GMimeHeaderList* headers = g_mime_object_get_header_list(GMIME_OBJECT(message));
    return headers ? g_mime_header_list_get_header(headers, name) : nullptr;
}

// GMime joins the payloads of adjacent B-encoded words before decoding
// them, and loses every word after one that ends in "==" padding. Q payloads
// join safely, so each B word is rewritten as the same bytes in Q first.
QByteArray Base64WordsAsQ(const QByteArray& raw)
{
    if (!raw.contains("?B?") && !raw.contains("?b?")) return raw;
    // One per thread: the IMAP lookahead reads records on its own thread, and
    // a pattern is compiled on its first use.
    static thread_local const QRegularExpression word(QStringLiteral(R"(=\?([^?\s]+)\?[Bb]\?([^?\s]*)\?=)"));
    const QString text = QString::fromLatin1(raw);
    QByteArray out;
    qsizetype last = 0;
    for (QRegularExpressionMatchIterator it = word.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        const QByteArray bytes = QByteArray::fromBase64(m.captured(2).toLatin1());
        if (bytes.isEmpty()) continue;  // not decodable: GMime keeps it as written
        out += raw.mid(last, m.capturedStart() - last);
        out += "=?" + m.captured(1).toLatin1() + "?Q?";
        for (char ch : bytes) {
            const auto c = static_cast<unsigned char>(ch);
            if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))
                out += static_cast<char>(c);
            else
                out += '=' + QByteArray::number(c, 16).toUpper().rightJustified(2, '0');
        }
        out += "?=";
        last = m.capturedEnd();
    }
    return out + raw.mid(last);
}

QByteArray RawValue(GMimeHeader* header)
{
    const char* raw = header ? g_mime_header_get_raw_value(header) : nullptr;
    return raw ? Base64WordsAsQ(QByteArray(raw)) : QByteArray();
}

// The raw value of the first field of that name (encoded B words already
// rewritten as Q), nothing when there is none: from a parsed message, or
// from a block of header fields read field by field.
using FieldReader = std::function<std::optional<QByteArray>(const char* name)>;

FieldReader MessageFields(GMimeMessage* message)
{
    return [message](const char* name) -> std::optional<QByteArray> {
        GMimeHeader* header = FirstHeader(message, name);
        if (!header) return std::nullopt;
        return RawValue(header);
    };
}

QString HeaderText(const FieldReader& fields, const char* name, GMimeParserOptions* options)
{
    const std::optional<QByteArray> raw = fields(name);
    if (!raw) return {};
    GCharPtr unfolded(g_mime_utils_header_unfold(raw->constData()));
    GCharPtr decoded(g_mime_utils_header_decode_text(options, unfolded.get()));
    return FromUtf8(decoded.get()).trimmed();
}

struct Mailbox {
    QString name;
    QString address;
    QString DisplayName() const { return name.isEmpty() ? address : name; }
};

void CollectMailboxes(InternetAddressList* list, int depth, std::vector<Mailbox>* out)
{
    if (!list || depth > kMaxDepth) return;
    const int count = internet_address_list_length(list);
    for (int i = 0; i < count; ++i) {
        InternetAddress* address = internet_address_list_get_address(list, i);
        if (INTERNET_ADDRESS_IS_GROUP(address)) {
            // Groups are flattened: their members are the recipients.
            CollectMailboxes(internet_address_group_get_members(INTERNET_ADDRESS_GROUP(address)), depth + 1, out);
        } else if (INTERNET_ADDRESS_IS_MAILBOX(address)) {
            Mailbox box;
            box.name = FromUtf8(internet_address_get_name(address)).trimmed();
            box.address = FromUtf8(internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address))).trimmed();
            if (!box.address.isEmpty() || !box.name.isEmpty()) out->push_back(box);
        }
    }
}

std::vector<Mailbox> Mailboxes(const FieldReader& fields, const char* headerName, GMimeParserOptions* options)
{
    std::vector<Mailbox> boxes;
    const std::optional<QByteArray> raw = fields(headerName);
    if (!raw) return boxes;
    GPtr<InternetAddressList> list(internet_address_list_parse(options, raw->constData()));
    CollectMailboxes(list.get(), 0, &boxes);
    if (!list || internet_address_list_length(list.get()) == 0) {
        // Not parseable as an address list: keep the text as the address
        // rather than losing who the mail was from or to.
        const QString text = HeaderText(fields, headerName, options);
        if (!text.isEmpty()) boxes.push_back({QString(), text});
    }
    return boxes;
}

// Importance: wins over X-Priority; both absent means normal.
int ImportanceOf(const FieldReader& fields, GMimeParserOptions* options)
{
    static const QHash<QString, int> importance = {
        {"low", IMPORTANCE_LOW}, {"normal", IMPORTANCE_NORMAL}, {"high", IMPORTANCE_HIGH}};
    const QString word = HeaderText(fields, "Importance", options).toLower();
    if (auto it = importance.constFind(word); it != importance.constEnd()) return *it;

    // X-Priority: "1 (Highest)" ... "5 (Lowest)"; only the leading digit counts.
    const QString priority = HeaderText(fields, "X-Priority", options);
    if (!priority.isEmpty() && priority[0].isDigit()) {
        static constexpr int kByDigit[] = {IMPORTANCE_NORMAL, IMPORTANCE_HIGH, IMPORTANCE_HIGH, IMPORTANCE_NORMAL,
                                           IMPORTANCE_LOW,    IMPORTANCE_LOW};
        const int digit = priority[0].digitValue();
        if (digit >= 1 && digit <= 5) return kByDigit[digit];
    }
    return IMPORTANCE_NORMAL;
}

bool IsType(GMimeContentType* type, const char* mediaType, const char* subType)
{
    return type && g_mime_content_type_is_type(type, mediaType, subType);
}

// Content of a leaf part with its transfer encoding removed, held in a
// memory stream that the caller reads in place.
GPtr<GMimeStream> DecodedStream(GMimePart* part)
{
    GMimeDataWrapper* content = g_mime_part_get_content(part);
    if (!content) return nullptr;
    GPtr<GMimeStream> memory(g_mime_stream_mem_new());
    if (g_mime_data_wrapper_write_to_stream(content, memory.get()) < 0) return nullptr;
    return memory;
}

QByteArrayView View(GMimeStream* memory)
{
    if (!memory) return {};
    GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory));
    return {reinterpret_cast<const char*>(bytes->data), static_cast<qsizetype>(bytes->len)};
}

QString ToUnicode(QByteArrayView bytes, const char* charset, GMimeParserOptions* options)
{
    const QByteArray name = charset ? QByteArray(g_mime_charset_canon_name(charset)).toLower() : QByteArray();
    const bool declaredUnicode = name.isEmpty() || name == "utf-8" || name == "us-ascii";
    if (declaredUnicode) {
        QStringDecoder utf8(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
        QString text = utf8.decode(bytes);
        if (!utf8.hasError()) return text;
    } else {
        KeepCharsetLoaded(name);
        iconv_t cd = g_mime_iconv_open("UTF-8", name.constData());
        if (cd != reinterpret_cast<iconv_t>(-1)) {
            GCharPtr converted(g_mime_iconv_strndup(cd, bytes.data(), static_cast<size_t>(bytes.size())));
            g_mime_iconv_close(cd);
            if (converted) return QString::fromUtf8(converted.get());
        }
    }
    // Declared UTF-8 or ASCII that is not, no charset, or one iconv does not
    // know: the same fallbacks as for 8-bit headers.
    GCharPtr text(g_mime_utils_decode_8bit(options, bytes.data(), static_cast<size_t>(bytes.size())));
    return FromUtf8(text.get());
}

QString PartText(GMimePart* part, GMimeParserOptions* options)
{
    const char* charset = g_mime_object_get_content_type_parameter(GMIME_OBJECT(part), "charset");
    GPtr<GMimeStream> content = DecodedStream(part);
    QString text = ToUnicode(View(content.get()), charset, options);
    content.reset();
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    return text;
}

// What the structure walk finds: the body candidates, the first calendar
// part, and whether anything counts as an attachment.
struct Structure {
    GMimePart* plain = nullptr;
    GMimePart* html = nullptr;
    GMimePart* calendar = nullptr;
    bool hasAttachment = false;
};

bool HasFileName(GMimePart* part)
{
    const char* name = g_mime_part_get_filename(part);
    return name && *name;
}

void Walk(GMimeObject* object, int depth, bool inReport, Structure* found)
{
    if (!object || depth > kMaxDepth) return;
    GMimeContentType* type = g_mime_object_get_content_type(object);
    if (GMIME_IS_MULTIPART(object)) {
        const bool report = inReport || IsType(type, "multipart", "report");
        GMimeMultipart* multipart = GMIME_MULTIPART(object);
        const int count = g_mime_multipart_get_count(multipart);
        for (int i = 0; i < count; ++i) Walk(g_mime_multipart_get_part(multipart, i), depth + 1, report, found);
        return;
    }
    if (GMIME_IS_MESSAGE_PART(object)) {
        // A forwarded message is an attachment; the original returned inside
        // a report is part of the report. Its own parts are not ours.
        if (!inReport) found->hasAttachment = true;
        return;
    }
    if (!GMIME_IS_PART(object)) return;
    GMimePart* part = GMIME_PART(object);
    if (g_mime_part_is_attachment(part)) {
        found->hasAttachment = true;
        if (IsType(type, "text", "calendar") && !found->calendar) found->calendar = part;
        return;
    }
    if (IsType(type, "text", "plain")) {
        if (!found->plain) found->plain = part;
    } else if (IsType(type, "text", "html")) {
        if (!found->html) found->html = part;
    } else if (IsType(type, "text", "calendar")) {
        if (!found->calendar) found->calendar = part;
    } else if (!inReport && HasFileName(part)) {
        found->hasAttachment = true;
    }
}

QString CalendarMethod(GMimePart* part)
{
    const char* param = g_mime_object_get_content_type_parameter(GMIME_OBJECT(part), "method");
    if (param && *param) return QString::fromUtf8(param).trimmed().toUpper();
    static thread_local const QRegularExpression methodLine(QStringLiteral("^METHOD:\\s*([A-Za-z-]+)"),
                                               QRegularExpression::MultilineOption |
                                                   QRegularExpression::CaseInsensitiveOption);
    GPtr<GMimeStream> content = DecodedStream(part);
    const QRegularExpressionMatch match = methodLine.match(QString::fromUtf8(View(content.get())));
    return match.hasMatch() ? match.captured(1).toUpper() : QString();
}

QString MessageClass(GMimeObject* top, const Structure& found)
{
    GMimeContentType* type = top ? g_mime_object_get_content_type(top) : nullptr;
    if (IsType(type, "multipart", "report")) {
        static const QHash<QString, QString> byReportType = {
            {"delivery-status", "REPORT.IPM.Note.NDR"},
            {"disposition-notification", "REPORT.IPM.Note.IPNRN"},
        };
        const QString reportType =
            FromUtf8(g_mime_content_type_get_parameter(type, "report-type")).trimmed().toLower();
        if (auto it = byReportType.constFind(reportType); it != byReportType.constEnd()) return *it;
    }
    if (found.calendar) {
        static const QHash<QString, QString> byMethod = {
            {"REQUEST", "IPM.Schedule.Meeting.Request"},
            {"CANCEL", "IPM.Schedule.Meeting.Canceled"},
            {"REPLY", "IPM.Schedule.Meeting.Resp.Pos"},
        };
        if (auto it = byMethod.constFind(CalendarMethod(found.calendar)); it != byMethod.constEnd()) return *it;
    }
    return QStringLiteral("IPM.Note");
}

QString BodyText(const Structure& found, GMimeParserOptions* options)
{
    if (found.plain) return PartText(found.plain, options);
    if (found.html) return HtmlText::ToPlainText(PartText(found.html, options));
    return {};
}

// Only multipart mail and calendar items need their structure for the
// class and the attachment flag; everything else is known from headers.
bool NeedsStructure(GMimeMessage* headersOnly)
{
    GMimeObject* top = headersOnly ? g_mime_message_get_mime_part(headersOnly) : nullptr;
    GMimeContentType* type = top ? g_mime_object_get_content_type(top) : nullptr;
    return IsType(type, "multipart", "*") || IsType(type, "text", "calendar");
}

void PutAddressProps(PropertyMap& props, const Mailbox& box, PropTag name, PropTag email, PropTag addrType)
{
    props.insert(name, box.DisplayName());
    props.insert(email, box.address);
    props.insert(addrType, QStringLiteral("SMTP"));
}

QString JoinDisplayNames(const std::vector<Mailbox>& boxes)
{
    QStringList names;
    for (const Mailbox& box : boxes) names << box.DisplayName();
    return names.join(QLatin1String("; "));
}

// Header properties of `message` (parsed headers only, or in full).
void HeaderProperties(const FieldReader& fields, const ParseOptions& parse, GMimeParserOptions* options,
                      MessageRecord* record)
{
    PropertyMap& props = record->props;
    props.insert(PR_SUBJECT, HeaderText(fields, "Subject", options));
    props.insert(PR_IMPORTANCE, ImportanceOf(fields, options));
    if (const QString id = HeaderText(fields, "Message-ID", options); !id.isEmpty())
        props.insert(PR_INTERNET_MESSAGE_ID, id);

    if (const auto from = Mailboxes(fields, "From", options); !from.empty())
        PutAddressProps(props, from.front(), PR_SENT_REPRESENTING_NAME, PR_SENT_REPRESENTING_EMAIL_ADDRESS,
                        PR_SENT_REPRESENTING_ADDRTYPE);

    // The mailbox the message was delivered to: the topmost Delivered-To is
    // the final delivery, X-Original-To the address before aliasing.
    std::vector<Mailbox> receiver = Mailboxes(fields, "Delivered-To", options);
    if (receiver.empty()) receiver = Mailboxes(fields, "X-Original-To", options);
    if (receiver.empty() && !parse.ownAddress.isEmpty()) receiver.push_back({QString(), parse.ownAddress});
    if (!receiver.empty())
        PutAddressProps(props, receiver.front(), PR_RCVD_REPRESENTING_NAME, PR_RCVD_REPRESENTING_EMAIL_ADDRESS,
                        PR_RCVD_REPRESENTING_ADDRTYPE);

    static const struct {
        const char* header;
        int type;
        PropTag display;  // 0: not shown in a display property
    } kRecipientHeaders[] = {{"To", MAPI_TO, PR_DISPLAY_TO}, {"Cc", MAPI_CC, PR_DISPLAY_CC}, {"Bcc", MAPI_BCC, 0}};
    for (const auto& kind : kRecipientHeaders) {
        const std::vector<Mailbox> boxes = Mailboxes(fields, kind.header, options);
        if (kind.display) props.insert(kind.display, JoinDisplayNames(boxes));
        for (const Mailbox& box : boxes) {
            record->recipients.push_back({{PR_DISPLAY_NAME, box.DisplayName()},
                                          {PR_EMAIL_ADDRESS, box.address},
                                          {PR_ADDRTYPE, QStringLiteral("SMTP")},
                                          {PR_RECIPIENT_TYPE, kind.type}});
        }
    }
}

MessageRecord EmptyRecord(qint64 size)
{
    MessageRecord record;
    record.props.insert(PR_SUBJECT, QString());
    record.props.insert(PR_IMPORTANCE, IMPORTANCE_NORMAL);
    record.props.insert(PR_MESSAGE_CLASS, QStringLiteral("IPM.Note"));
    record.props.insert(PR_MESSAGE_FLAGS, 0);
    record.props.insert(PR_DISPLAY_TO, QString());
    record.props.insert(PR_DISPLAY_CC, QString());
    record.props.insert(PR_MESSAGE_SIZE, static_cast<int>(qMin<qint64>(size, std::numeric_limits<int>::max())));
    return record;
}

// Builds the record. Header properties always come from the header block,
// the class and attachment flag from `full` when the structure is needed,
// so that a record read with the body agrees with one read without it.
MessageRecord Assemble(GMimeMessage* headers, GMimeMessage* full, qint64 size, const ParseOptions& parse,
                       GMimeParserOptions* options)
{
    MessageRecord record = EmptyRecord(size);
    if (parse.withBody) {
        Structure text;
        if (full) Walk(g_mime_message_get_mime_part(full), 0, false, &text);
        record.props.insert(PR_BODY, BodyText(text, options));
    }
    if (!headers) return record;
    HeaderProperties(MessageFields(headers), parse, options, &record);

    GMimeObject* top = g_mime_message_get_mime_part(NeedsStructure(headers) && full ? full : headers);
    Structure found;
    Walk(top, 0, false, &found);
    record.props.insert(PR_MESSAGE_FLAGS, found.hasAttachment ? MSGFLAG_HASATTACH : 0);
    record.props.insert(PR_MESSAGE_CLASS, MessageClass(top, found));
    return record;
}

// Reads the file up to the end of its header block.
bool ReadHeaderBlock(QFile& file, QByteArray* block)
{
    block->clear();
    while (!file.atEnd()) {
        const qsizetype searchFrom = qMax<qsizetype>(0, block->size() - 2);
        const QByteArray chunk = file.read(kReadChunk);
        if (chunk.isEmpty()) return !file.error();
        block->append(chunk);
        const qsizetype end = HeaderBlockEnd(block->constData(), block->size(), searchFrom);
        if (end < block->size()) {
            block->truncate(end);
            return true;
        }
    }
    return file.error() == QFileDevice::NoError;
}

Error OpenError(const QString& path, const QFile& file)
{
    const QString text = QStringLiteral("Cannot read message file %1: %2").arg(path, file.errorString());
    return QFileInfo::exists(path) ? Error::permanent(text) : Error::notFound(text);
}

}  // namespace

MessageRecord MimeProperties::FromBytes(const QByteArray& rfc822, const ParseOptions& options)
{
    EnsureGMimeInitialised();
    ParserOptionsPtr parserOptions = MakeParserOptions();
    const qsizetype headerEnd = HeaderBlockEnd(rfc822.constData(), rfc822.size());
    const QByteArray block = NormaliseLineEnds(QByteArray::fromRawData(rfc822.constData(), headerEnd));
    KeepHeaderCharsetsLoaded(block);
    GPtr<GMimeMessage> headers = ParseBytes(block.constData(), block.size(), parserOptions.get());
    GPtr<GMimeMessage> full;
    if (options.withBody || NeedsStructure(headers.get()))
        full = ParseBytes(rfc822.constData(), rfc822.size(), parserOptions.get());
    return Assemble(headers.get(), full.get(), rfc822.size(), options, parserOptions.get());
}

Result<MessageRecord> MimeProperties::FromFile(const QString& path, const ParseOptions& options)
{
    EnsureGMimeInitialised();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return OpenError(path, file);
    QByteArray block;
    if (!ReadHeaderBlock(file, &block)) return OpenError(path, file);
    block = NormaliseLineEnds(std::move(block));
    KeepHeaderCharsetsLoaded(block);
    const qint64 size = file.size();

    ParserOptionsPtr parserOptions = MakeParserOptions();
    GPtr<GMimeMessage> headers = ParseBytes(block.constData(), block.size(), parserOptions.get());
    GPtr<GMimeMessage> full;
    if (options.withBody || NeedsStructure(headers.get())) {
        // Parsed from the file itself: the content stays on disk until a
        // part is decoded, so a large message is never held twice.
        GPtr<GMimeStream> stream(g_mime_stream_fs_open(QFile::encodeName(path).constData(), O_RDONLY, 0, nullptr));
        if (!stream) return OpenError(path, file);
        full = Parse(stream.get(), parserOptions.get(), true);
    }
    return Assemble(headers.get(), full.get(), size, options, parserOptions.get());
}

Result<QString> MimeProperties::BodyFromFile(const QString& path)
{
    ParseOptions options;
    options.withBody = true;
    Result<MessageRecord> record = FromFile(path, options);
    if (!record) return record.error();
    return record->props.value(PR_BODY).toString();
}

MessageRecord MimeProperties::FromHeaderFields(const QByteArray& block, const ParseOptions& options)
{
    EnsureGMimeInitialised();
    // Read-only once made, so one serves every call and thread.
    static GMimeParserOptions* const parserOptions = MakeParserOptions().release();
    KeepHeaderCharsetsLoaded(block);
    MessageRecord record = EmptyRecord(block.size());
    const FieldReader fields = [&block](const char* name) -> std::optional<QByteArray> {
        QByteArray raw = HeaderField(block, name);
        if (raw.isNull()) return std::nullopt;
        return Base64WordsAsQ(raw);
    };
    HeaderProperties(fields, options, parserOptions, &record);
    return record;
}

QByteArray MimeProperties::HeaderField(const QByteArray& block, const char* name)
{
    const qsizetype nameLength = qstrlen(name);
    for (qsizetype at = 0; at < block.size();) {
        qsizetype end = block.indexOf('\n', at);
        if (end < 0) end = block.size();
        if (end - at > nameLength && block.at(at + nameLength) == ':' &&
            qstrnicmp(block.constData() + at, name, nameLength) == 0) {
            // The field goes on over lines that start with white space.
            QByteArray value = block.mid(at + nameLength + 1, end - at - nameLength - 1);
            while (end + 1 < block.size() && (block.at(end + 1) == ' ' || block.at(end + 1) == '\t')) {
                const qsizetype next = block.indexOf('\n', end + 1);
                const qsizetype stop = next < 0 ? block.size() : next;
                value += '\n' + block.mid(end + 1, stop - end - 1);
                end = stop;
            }
            value.replace("\r", "");
            return value;
        }
        at = end + 1;
    }
    return {};
}

QString MimeProperties::DecodeHeaderValue(const QByteArray& rawValue)
{
    EnsureGMimeInitialised();
    // Read-only once made, so one serves every call and thread.
    static GMimeParserOptions* const options = MakeParserOptions().release();
    KeepHeaderCharsetsLoaded(rawValue);
    GCharPtr unfolded(g_mime_utils_header_unfold(Base64WordsAsQ(rawValue).constData()));
    GCharPtr decoded(g_mime_utils_header_decode_text(options, unfolded.get()));
    return FromUtf8(decoded.get()).trimmed();
}

}  // namespace mv::stores

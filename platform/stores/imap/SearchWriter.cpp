#include "SearchWriter.h"

#include "platform/mapi/RestrictionEvaluator.h"
#include "platform/stores/common/FlagMapping.h"

#include <QLocale>

#include <functional>
#include <vector>

namespace mv::stores {

using namespace mv::mapi;

namespace {

// One IMAP flag as a search term and as store state.
struct FlagVar {
    const char* set;
    const char* clear;
    std::function<void(MessageFlags&)> apply;
};

FlagVar SystemFlag(const char* set, const char* clear, bool MessageFlags::*member)
{
    return {set, clear, [member](MessageFlags& f) { f.*member = true; }};
}

FlagVar Keyword(const char* set, const char* clear, const char* name)
{
    return {set, clear, [name](MessageFlags& f) { f.keywords << QString::fromLatin1(name); }};
}

// Which flags each flag-derived property depends on.
std::vector<FlagVar> FlagsBehind(PropTag tag)
{
    switch (tag) {
    case PR_MESSAGE_FLAGS:
        return {SystemFlag("SEEN", "UNSEEN", &MessageFlags::seen)};
    case PR_FLAG_STATUS:
        return {SystemFlag("FLAGGED", "UNFLAGGED", &MessageFlags::flagged),
                Keyword("KEYWORD $Completed", "UNKEYWORD $Completed", "$Completed")};
    case PR_FLAG_ICON:
        return {SystemFlag("FLAGGED", "UNFLAGGED", &MessageFlags::flagged),
                Keyword("KEYWORD $MailFlagBit0", "UNKEYWORD $MailFlagBit0", "$MailFlagBit0"),
                Keyword("KEYWORD $MailFlagBit1", "UNKEYWORD $MailFlagBit1", "$MailFlagBit1"),
                Keyword("KEYWORD $MailFlagBit2", "UNKEYWORD $MailFlagBit2", "$MailFlagBit2")};
    case PR_LAST_VERB_EXECUTED:
        return {SystemFlag("ANSWERED", "UNANSWERED", &MessageFlags::answered),
                Keyword("KEYWORD $Forwarded", "UNKEYWORD $Forwarded", "$Forwarded")};
    default:
        return {};
    }
}

// Content keys per property; recipients' rows are searched in all three
// address headers because the sub-restriction does not test the type.
struct ContentKey {
    PropTag tag;
    std::vector<const char*> keys;  // ORed
};
const ContentKey kContentKeys[] = {
    {PR_SUBJECT, {"SUBJECT"}},
    {PR_BODY, {"BODY"}},
    {PR_SENT_REPRESENTING_NAME, {"FROM"}},
    {PR_SENT_REPRESENTING_EMAIL_ADDRESS, {"FROM"}},
    {PR_DISPLAY_CC, {"CC"}},
    {PR_DISPLAY_TO, {"TO"}},
};
const std::vector<const char*> kRecipientKeys = {"TO", "CC", "BCC"};

QByteArray ImapDate(const QDate& d)
{
    return QLocale::c().toString(d, QStringLiteral("d-MMM-yyyy")).toLatin1();
}

}  // namespace

QByteArray SearchWriter::Operand(const Key& k) { return k.compound ? '(' + k.text + ')' : k.text; }

SearchWriter::Key SearchWriter::AndOf(std::vector<Key> keys)
{
    bool exact = true;
    for (const Key& k : keys) {
        if (k.text == "NOT ALL") return k;
        exact = exact && k.exact;
    }
    std::erase_if(keys, [](const Key& k) { return k.text == "ALL"; });
    if (keys.empty()) return {"ALL", exact, false};
    if (keys.size() == 1) return {keys.front().text, exact, keys.front().compound};
    Key out{{}, exact, true};
    for (const Key& k : keys) {
        if (!out.text.isEmpty()) out.text += ' ';
        out.text += k.text;  // an AND inside an AND needs no parentheses
    }
    return out;
}

SearchWriter::Key SearchWriter::OrOf(std::vector<Key> keys)
{
    std::erase_if(keys, [](const Key& k) { return k.text == "NOT ALL"; });
    if (keys.empty()) return {"NOT ALL", true, false};
    for (const Key& k : keys)
        if (k.text == "ALL") return {"ALL", k.exact, false};
    // IMAP's OR takes two operands: fold from the right.
    Key acc = keys.back();
    for (auto it = keys.rbegin() + 1; it != keys.rend(); ++it)
        acc = {"OR " + Operand(*it) + ' ' + Operand(acc), acc.exact && it->exact, false};
    return acc;
}

QByteArray SearchWriter::String(const QString& text, bool* utf8) const
{
    bool plain = true;
    for (QChar c : text)
        if (c.unicode() < 0x20 || c.unicode() > 0x7e) plain = false;
    if (plain) {
        QByteArray q = text.toLatin1();
        q.replace('\\', "\\\\").replace('"', "\\\"");
        return '"' + q + '"';
    }
    const QByteArray bytes = text.toUtf8();
    *utf8 = true;
    if (m_options.literalPlus) return '{' + QByteArray::number(bytes.size()) + "+}\r\n" + bytes;
    QByteArray q = bytes;  // servers without LITERAL+ commonly take 8-bit in quotes
    q.replace('\\', "\\\\").replace('"', "\\\"").replace('\r', ' ').replace('\n', ' ');
    return '"' + q + '"';
}

SearchWriter::Key SearchWriter::Content(const Restriction& r, bool inRecipients, bool* utf8) const
{
    const QString term = r.value.toString();
    if (term.isEmpty()) return {"ALL", false, false};
    const std::vector<const char*>* names = nullptr;
    if (inRecipients && (r.propTag == PR_EMAIL_ADDRESS || r.propTag == PR_DISPLAY_NAME)) names = &kRecipientKeys;
    for (const ContentKey& ck : kContentKeys)
        if (!inRecipients && ck.tag == r.propTag) names = &ck.keys;
    if (!names) return {"ALL", false, false};
    std::vector<Key> keys;
    const QByteArray s = String(term, utf8);
    for (const char* name : *names) keys.push_back({QByteArray(name) + ' ' + s, false, false});
    Key k = OrOf(keys);
    k.exact = false;  // server matching rules differ in details (folding, decoding)
    return k;
}

SearchWriter::Key SearchWriter::Flags(const Restriction& r) const
{
    const std::vector<FlagVar> vars = FlagsBehind(r.propTag);
    const int n = static_cast<int>(vars.size());
    const int combos = 1 << n;
    // Which combinations of the flags satisfy the node?
    std::vector<bool> match(combos);
    for (int c = 0; c < combos; ++c) {
        MessageFlags flags;
        for (int v = 0; v < n; ++v)
            if (c & (1 << v)) vars[v].apply(flags);
        MessageRecord record;
        FlagMapping::ApplyFlags(flags, record.props);
        match[c] = RestrictionEvaluator::Matches(r, record);
    }
    // Cover the matching set with cubes (each flag set, clear or free),
    // largest first, so that the usual cases come out as one key.
    struct Cube { int care; int value; int size; };
    std::vector<Cube> cubes;
    for (int care = 0; care < combos; ++care)
        for (int value = care;; value = (value - 1) & care) {
            cubes.push_back({care, value, n - __builtin_popcount(care)});
            if (value == 0) break;
        }
    std::stable_sort(cubes.begin(), cubes.end(), [](const Cube& a, const Cube& b) { return a.size > b.size; });
    std::vector<bool> covered(combos);
    std::vector<Key> terms;
    for (const Cube& cube : cubes) {
        bool inside = true, useful = false;
        for (int c = 0; c < combos; ++c) {
            if ((c & cube.care) != cube.value) continue;
            if (!match[c]) inside = false;
            if (!covered[c]) useful = true;
        }
        if (!inside || !useful) continue;
        std::vector<Key> literals;
        for (int v = 0; v < n; ++v)
            if (cube.care & (1 << v))
                literals.push_back({(cube.value & (1 << v)) ? vars[v].set : vars[v].clear, true, false});
        terms.push_back(AndOf(literals));
        for (int c = 0; c < combos; ++c)
            if ((c & cube.care) == cube.value) covered[c] = true;
    }
    return OrOf(terms);
}

SearchWriter::Key SearchWriter::Importance(const Restriction& r) const
{
    // Importance: wins over X-Priority, and a message with neither is normal,
    // which SEARCH cannot express: only high and low narrow the search.
    if (r.relop != RELOP_EQ) return {"ALL", false, false};
    const int v = r.value.toInt();
    std::vector<Key> keys;
    if (v == IMPORTANCE_HIGH)
        keys = {{"HEADER Importance \"high\"", false, false}, {"HEADER X-Priority \"1\"", false, false},
                {"HEADER X-Priority \"2\"", false, false}};
    else if (v == IMPORTANCE_LOW)
        keys = {{"HEADER Importance \"low\"", false, false}, {"HEADER X-Priority \"4\"", false, false},
                {"HEADER X-Priority \"5\"", false, false}};
    else
        return {"ALL", false, false};
    Key k = OrOf(keys);
    k.exact = false;
    return k;
}

SearchWriter::Key SearchWriter::DeliveryTime(const Restriction& r) const
{
    const QDateTime t = r.value.toDateTime().toUTC();
    if (!t.isValid()) return {"ALL", false, false};
    // Both keys are widened: BEFORE and SINCE look at the date alone in the
    // server's zone, OLDER at the server's clock.
    if (r.relop == RELOP_LT || r.relop == RELOP_LE) {
        if (m_options.within && m_options.now.isValid()) {
            const qint64 age = t.secsTo(m_options.now) - 300;
            if (age < 1) return {"ALL", false, false};
            return {"OLDER " + QByteArray::number(age), false, false};
        }
        return {"BEFORE " + ImapDate(t.date().addDays(2)), false, false};
    }
    if (r.relop == RELOP_GT || r.relop == RELOP_GE) return {"SINCE " + ImapDate(t.date().addDays(-2)), false, false};
    return {"ALL", false, false};
}

SearchWriter::Key SearchWriter::Property(const Restriction& r) const
{
    switch (r.propTag) {
    case PR_FLAG_STATUS:
    case PR_FLAG_ICON:
    case PR_LAST_VERB_EXECUTED:
        return Flags(r);
    case PR_IMPORTANCE:
        return Importance(r);
    case PR_MESSAGE_DELIVERY_TIME:
        return DeliveryTime(r);
    default:
        return {"ALL", false, false};
    }
}

SearchWriter::Key SearchWriter::Node(const Restriction& r, bool* utf8) const
{
    switch (r.kind) {
    case RES_AND: {
        std::vector<Key> keys;
        for (const Restriction& c : r.children()) keys.push_back(Node(c, utf8));
        return AndOf(std::move(keys));
    }
    case RES_OR: {
        std::vector<Key> keys;
        for (const Restriction& c : r.children()) keys.push_back(Node(c, utf8));
        return OrOf(std::move(keys));
    }
    case RES_NOT: {
        if (r.children().size() != 1) return {"ALL", false, false};
        const Key inner = Node(r.children().front(), utf8);
        if (!inner.exact) return {"ALL", false, false};
        if (inner.text == "ALL") return {"NOT ALL", true, false};
        return {"NOT " + Operand(inner), true, false};
    }
    case RES_CONTENT:
        return Content(r, false, utf8);
    case RES_PROPERTY:
        return Property(r);
    case RES_BITMASK:
        if (r.propTag == PR_MESSAGE_FLAGS && r.mask == static_cast<std::uint32_t>(MSGFLAG_READ)) return Flags(r);
        return {"ALL", false, false};
    case RES_SUBRESTRICTION: {
        if (r.propTag != PR_MESSAGE_RECIPIENTS) return {"ALL", false, false};
        // Each row-level test becomes a test on the whole message: wider.
        std::function<Key(const Restriction&)> row = [&](const Restriction& c) -> Key {
            if (c.kind == RES_CONTENT) return Content(c, true, utf8);
            std::vector<Key> keys;
            for (const Restriction& g : c.children()) keys.push_back(row(g));
            if (c.kind == RES_AND) return AndOf(keys);
            if (c.kind == RES_OR) return OrOf(keys);
            return {"ALL", false, false};
        };
        std::vector<Key> keys;
        for (const Restriction& c : r.children()) keys.push_back(row(c));
        Key k = AndOf(keys);
        k.exact = false;
        return k;
    }
    default:
        return {"ALL", false, false};
    }
}

SearchKeys SearchWriter::Write(const Restriction* restriction) const
{
    if (!restriction) return {"ALL", false, true};
    SearchKeys out;
    const Key k = Node(*restriction, &out.utf8);
    out.text = k.text;
    out.exact = k.exact;
    return out;
}

QByteArray SearchWriter::Command(const SearchKeys& keys)
{
    QByteArray cmd = "UID SEARCH ";
    if (keys.utf8) cmd += "CHARSET UTF-8 ";
    cmd += "UNDELETED";
    if (keys.text != "ALL") cmd += ' ' + keys.text;
    return cmd;
}

}  // namespace mv::stores

#include "ThunderbirdImporter.h"

#include "CriteriaBuilder.h"

#include <QUrl>

namespace mv::importers {

namespace {

struct Action {
    QString name, value;
};

struct Filter {
    int line = 0;
    QString name;
    bool enabled = true;
    std::vector<Action> actions;
    QString condition;
};

struct Term {
    QString joiner, field, op, value, original;
};

// "key=\"value\"" with the file's backslash escapes undone.
bool SplitLine(const QString& line, QString* key, QString* value)
{
    const qsizetype eq = line.indexOf(u'=');
    if (eq <= 0 || line.size() < eq + 3 || line.at(eq + 1) != u'"' || !line.endsWith(u'"')) return false;
    *key = line.left(eq).trimmed();
    value->clear();
    for (qsizetype i = eq + 2; i < line.size() - 1; ++i) {
        if (line.at(i) == u'\\' && i + 1 < line.size() - 1) ++i;
        *value += line.at(i);
    }
    return true;
}

// One field of a term: a quoted string (with \" escapes) or text up to
// one of `stops`.
QString Piece(const QString& s, qsizetype& i, const QString& stops)
{
    QString out;
    if (i < s.size() && s.at(i) == u'"') {
        for (++i; i < s.size() && s.at(i) != u'"'; ++i) {
            if (s.at(i) == u'\\' && i + 1 < s.size()) ++i;
            out += s.at(i);
        }
        ++i;
        return out;
    }
    while (i < s.size() && !stops.contains(s.at(i))) out += s.at(i++);
    return out;
}

// "AND (f,op,v) OR (f,op,v)"; false when the text is not in that shape.
bool ParseCondition(const QString& s, std::vector<Term>* terms)
{
    qsizetype i = 0;
    const auto skip = [&] {
        while (i < s.size() && s.at(i).isSpace()) ++i;
    };
    for (skip(); i < s.size(); skip()) {
        Term t;
        while (i < s.size() && s.at(i).isLetter()) t.joiner += s.at(i++);
        skip();
        const qsizetype start = i;
        if (i >= s.size() || s.at(i) != u'(') return false;
        ++i;
        t.field = Piece(s, i, QStringLiteral(","));
        if (i >= s.size() || s.at(i++) != u',') return false;
        t.op = Piece(s, i, QStringLiteral(","));
        if (i >= s.size() || s.at(i++) != u',') return false;
        t.value = Piece(s, i, QStringLiteral(")"));
        if (i >= s.size() || s.at(i++) != u')') return false;
        t.original = s.mid(start, i - start).trimmed();
        t.joiner = t.joiner.toUpper();
        if (t.joiner != QLatin1String("AND") && t.joiner != QLatin1String("OR")) return false;
        terms->push_back(t);
    }
    return !terms->empty();
}

struct TextFieldName {
    const char* name;
    TextField field;
};
// "to or cc" is "to": a rule's recipient list matches every recipient.
constexpr TextFieldName kTextFields[] = {{"subject", TextField::Subject}, {"from", TextField::From},
                                         {"to", TextField::To},           {"cc", TextField::Cc},
                                         {"to or cc", TextField::To},     {"body", TextField::Body}};

struct Code {
    const char* word;
    int code;
};
constexpr Code kPriorities[] = {{"highest", 2}, {"high", 2}, {"normal", 1}, {"low", 0}, {"lowest", 0}};

struct StatusCode {
    const char* word;
    std::optional<int> engine::RuleRecord::*field;
    int is, isnt;  // -1: no code
};
constexpr StatusCode kStatuses[] = {
    {"read", &engine::RuleRecord::status, 1, 0},
    {"flagged", &engine::RuleRecord::flagStatus, 2, engine::kFlagNoneSet},
    {"replied", &engine::RuleRecord::lastVerb, engine::kLastVerbReplied, -1},
    {"forwarded", &engine::RuleRecord::lastVerb, engine::kLastVerbForwarded, -1},
};

std::optional<TextField> TextFieldOf(const QString& name)
{
    for (const TextFieldName& f : kTextFields)
        if (name.compare(QLatin1String(f.name), Qt::CaseInsensitive) == 0) return f.field;
    return std::nullopt;
}

// A state term (priority, status, age) into the rule; false with a reason.
bool AddState(const Term& t, ImportedRule& rule, CriteriaBuilder& builder, QString* why)
{
    const QString field = t.field.toLower(), op = t.op.toLower(), value = t.value.toLower();
    if (field == QLatin1String("priority")) {
        int code = -1;
        for (const Code& p : kPriorities)
            if (value == QLatin1String(p.word)) code = p.code;
        // Importance has three levels: above Normal is High, below it Low.
        if (code >= 0 && op != QLatin1String("is"))
            code = value != QLatin1String("normal")       ? -1
                   : op == QLatin1String("isgreaterthan") ? 2
                   : op == QLatin1String("islessthan")    ? 0
                                                          : -1;
        if (code < 0) {
            *why = QStringLiteral("importance has three levels; this priority test names none of them");
            return false;
        }
        return builder.SetCode(&engine::RuleRecord::importance, code, t.original);
    }
    if (field == QLatin1String("status")) {
        for (const StatusCode& s : kStatuses) {
            if (value != QLatin1String(s.word)) continue;
            const int code = op == QLatin1String("is") ? s.is : op == QLatin1String("isn't") ? s.isnt : -1;
            if (code < 0) break;
            return builder.SetCode(s.field, code, t.original);
        }
        *why = QStringLiteral("rules test read, flagged, replied and forwarded (is / isn't read or flagged)");
        return false;
    }
    if (field == QLatin1String("age in days")) {
        bool ok = false;
        const int days = value.toInt(&ok);
        if (op != QLatin1String("isgreaterthan") || !ok || days <= 0) {
            *why = QStringLiteral("rules take mail older than a number of days only");
            return false;
        }
        rule.olderThanDays = days;
        return true;
    }
    *why = QStringLiteral("the field \"%1\" has no counterpart in a rule").arg(t.field);
    return false;
}

void AddCondition(const QString& condition, ImportedRule& rule)
{
    if (condition.trimmed().compare(QLatin1String("ALL"), Qt::CaseInsensitive) == 0) return;
    std::vector<Term> terms;
    if (!ParseCondition(condition, &terms)) {
        rule.unmapped << QStringLiteral("condition \"%1\": not in the form \"AND (field,op,value) ...\"")
                             .arg(condition);
        return;
    }
    CriteriaBuilder builder(rule.record, rule.unmapped);
    const bool any = terms.size() > 1 && terms.front().joiner == QLatin1String("OR");
    std::vector<TextTest> anyOf;
    for (const Term& t : terms) {
        if (t.joiner != terms.front().joiner) {
            rule.unmapped << QStringLiteral("condition \"%1\": AND and OR mixed").arg(condition);
            return;
        }
        const auto field = TextFieldOf(t.field);
        const bool contains = t.op.compare(QLatin1String("contains"), Qt::CaseInsensitive) == 0;
        if (field && contains) {
            const TextTest test{*field, {t.value}, t.original, false};
            if (any)
                anyOf.push_back(test);
            else
                builder.AddAll(test);
            continue;
        }
        QString why;
        if (field)
            why = QStringLiteral("the \"%1\" match; rules match by \"contains\" only").arg(t.op);
        else if (any)
            why = QStringLiteral("only text tests can be alternatives in one rule");
        // A state that conflicts was reported by the builder, with no reason here.
        else if (AddState(t, rule, builder, &why) || why.isEmpty())
            continue;
        rule.unmapped << QStringLiteral("%1: %2").arg(t.original, why) +
                             (any ? QStringLiteral(", so the whole OR condition was left out") : QString());
        if (any) return;
    }
    if (any) builder.AddAny(anyOf, QStringLiteral("condition \"%1\"").arg(condition));
}

// The folder path of a folder URI: what follows the authority, decoded.
QString FolderPath(const QString& uri)
{
    const qsizetype scheme = uri.indexOf(QLatin1String("://"));
    if (scheme < 0) return {};
    const qsizetype slash = uri.indexOf(u'/', scheme + 3);
    if (slash < 0) return {};
    return QUrl::fromPercentEncoding(uri.mid(slash + 1).toUtf8());
}

void AddFilter(const Filter& f, ImportedRules& out)
{
    ImportedRule rule;
    rule.record.ruleName = f.name;
    rule.record.active = f.enabled ? -1 : 0;
    for (const Action& a : f.actions) {
        if (a.name == QLatin1String("Move to folder") && rule.destination.path.isEmpty()) {
            rule.destination.path = FolderPath(a.value);
            if (rule.destination.path.isEmpty())
                rule.unmapped << QStringLiteral("Move to folder \"%1\": not a folder address").arg(a.value);
        } else if (a.name != QLatin1String("Stop execution")) {
            rule.unmapped << QStringLiteral("the action \"%1\"%2 has no counterpart in a rule")
                                 .arg(a.name,
                                      a.value.isEmpty() ? QString() : QStringLiteral(" \"%1\"").arg(a.value));
        }
    }
    if (rule.destination.path.isEmpty()) {
        out.unmapped << QStringLiteral("line %1: the filter \"%2\" moves no mail, so gives no rule%3")
                            .arg(f.line)
                            .arg(f.name)
                            .arg(rule.unmapped.isEmpty()
                                     ? QString()
                                     : QStringLiteral(" (") + rule.unmapped.join(QStringLiteral("; ")) +
                                           u')');
        return;
    }
    AddCondition(f.condition, rule);
    out.rules.push_back(std::move(rule));
}

}  // namespace

Result<ImportedRules> ThunderbirdImporter::FromText(const QString& text)
{
    ImportedRules out;
    std::vector<Filter> filters;
    bool versionSeen = false;
    int lineNo = 0;
    for (const QString& raw : text.split(u'\n')) {
        ++lineNo;
        const QString line = raw.trimmed();
        if (line.isEmpty()) continue;
        QString key, value;
        if (!SplitLine(line, &key, &value)) {
            if (!versionSeen)
                return Error::permanent(
                    QStringLiteral("line %1: not a filter list (expected version=\"9\")").arg(lineNo));
            out.unmapped << QStringLiteral("line %1: not a key=\"value\" line: %2").arg(lineNo).arg(line);
            continue;
        }
        if (key == QLatin1String("version")) {
            versionSeen = true;
        } else if (!versionSeen) {
            return Error::permanent(
                QStringLiteral("line %1: not a filter list (expected version=\"9\" first)").arg(lineNo));
        } else if (key == QLatin1String("name")) {
            filters.push_back({lineNo, value, true, {}, {}});
        } else if (key == QLatin1String("logging") || filters.empty()) {
            continue;
        } else if (key == QLatin1String("enabled")) {
            filters.back().enabled = value == QLatin1String("yes");
        } else if (key == QLatin1String("action")) {
            filters.back().actions.push_back({value, {}});
        } else if (key == QLatin1String("actionValue") && !filters.back().actions.empty()) {
            filters.back().actions.back().value = value;
        } else if (key == QLatin1String("condition")) {
            filters.back().condition = value;
        }
        // "type" says when a filter runs (on arrival, by hand, after junk
        // scoring); every rule runs on arrival and by hand alike.
    }
    if (!versionSeen) return Error::permanent(QStringLiteral("not a filter list (no version=\"9\" line)"));
    for (const Filter& f : filters) AddFilter(f, out);
    return out;
}

}  // namespace mv::importers

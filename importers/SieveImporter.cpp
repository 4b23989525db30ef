#include "SieveImporter.h"

#include "CriteriaBuilder.h"
#include "SieveParser.h"

#include <span>

namespace mv::importers {

namespace {

struct HeaderField {
    const char* header;
    TextField field;
};
constexpr HeaderField kHeaders[] = {
    {"subject", TextField::Subject}, {"from", TextField::From}, {"to", TextField::To}, {"cc", TextField::Cc}};

// Commands that change nothing a rule does: "keep" outside a block is what
// happens to mail no rule takes, "stop" after fileinto is what a move means.
constexpr const char* kHarmless[] = {"require", "stop", "keep"};

bool IsHarmless(const QString& name)
{
    for (const char* h : kHarmless)
        if (name == QLatin1String(h)) return true;
    return false;
}

QString Where(int line)
{
    return QStringLiteral("line %1").arg(line);
}

QString Quoted(const QStringList& strings)
{
    QStringList q;
    for (const QString& s : strings) q << u'"' + s + u'"';
    return q.size() == 1 ? q.front() : u'[' + q.join(QStringLiteral(", ")) + u']';
}

QString Describe(const SieveTest& t)
{
    QStringList parts{t.name};
    for (const SieveArgument& a : t.arguments) {
        if (a.kind == SieveArgument::Kind::Tag)
            parts << u':' + a.tag;
        else if (a.kind == SieveArgument::Kind::Number)
            parts << QString::number(a.number);
        else
            parts << Quoted(a.strings);
    }
    if (!t.tests.empty()) parts << QStringLiteral("(...)");
    return QStringLiteral("%1: %2").arg(Where(t.line), parts.join(u' '));
}

// A header/address test as the text tests it stands for (one per header
// name, any of them may hold); a reason when it is not one.
std::vector<TextTest> TextTests(const SieveTest& t, QString* why)
{
    if (t.name != QLatin1String("header") && t.name != QLatin1String("address")) {
        *why = QStringLiteral("the \"%1\" test has no counterpart in a rule").arg(t.name);
        return {};
    }
    std::vector<const SieveArgument*> positional;
    bool contains = false;
    for (size_t i = 0; i < t.arguments.size(); ++i) {
        const SieveArgument& a = t.arguments[i];
        if (a.kind == SieveArgument::Kind::Strings) {
            positional.push_back(&a);
        } else if (a.kind != SieveArgument::Kind::Tag) {
            *why = QStringLiteral("a number where the test takes none");
            return {};
        } else if (a.tag == QLatin1String("contains")) {
            contains = true;
        } else if (a.tag == QLatin1String("all")) {
            // the whole address, as rules match it
        } else if (a.tag == QLatin1String("comparator") && i + 1 < t.arguments.size()) {
            // Rules compare without regard to case, as the default comparator does.
            const QStringList& c = t.arguments[++i].strings;
            if (c != QStringList{QStringLiteral("i;ascii-casemap")}) {
                *why = QStringLiteral("the comparator %1; rules ignore case").arg(Quoted(c));
                return {};
            }
        } else {
            *why = QStringLiteral("the :%1 match; rules match by \":contains\" only").arg(a.tag);
            return {};
        }
    }
    if (!contains) {
        *why = QStringLiteral("the \":is\" match (the default); rules match by \":contains\" only");
        return {};
    }
    if (positional.size() != 2) {
        *why = QStringLiteral("expected a header list and a key list");
        return {};
    }
    QList<TextField> fields;
    for (const QString& h : positional[0]->strings) {
        const HeaderField* found = nullptr;
        for (const HeaderField& k : kHeaders)
            if (h.compare(QLatin1String(k.header), Qt::CaseInsensitive) == 0) found = &k;
        if (!found) {
            *why = QStringLiteral("the header \"%1\"; rules test subject, from, to and cc").arg(h);
            return {};
        }
        if (!fields.contains(found->field)) fields << found->field;
    }
    // A rule's "to" list matches every recipient, so "to or cc" is just "to".
    if (fields.size() == 2 && fields.contains(TextField::To) && fields.contains(TextField::Cc))
        fields = {TextField::To};
    std::vector<TextTest> tests;
    for (TextField f : fields)
        tests.push_back({f, positional[1]->strings, Describe(t), t.name == QLatin1String("address")});
    return tests;
}

// Adds the "if" test to the rule: allof test by test, anyof as one choice.
void AddTest(const SieveTest& test, CriteriaBuilder& builder, QStringList& unmapped)
{
    if (test.name == QLatin1String("true")) return;  // a rule without criteria takes every message
    if (test.name == QLatin1String("allof")) {
        for (const SieveTest& t : test.tests) AddTest(t, builder, unmapped);
        return;
    }
    const bool anyOf = test.name == QLatin1String("anyof");
    std::vector<TextTest> tests;
    for (const SieveTest& t : anyOf ? std::span(test.tests) : std::span(&test, 1)) {
        QString why;
        std::vector<TextTest> one = TextTests(t, &why);
        if (!why.isEmpty()) {
            unmapped << QStringLiteral("%1: %2").arg(Describe(t), why) +
                            (anyOf ? QStringLiteral(", so the whole anyof was left out") : QString());
            return;
        }
        tests.insert(tests.end(), one.begin(), one.end());
    }
    builder.AddAny(tests, Describe(test));
}

// One if/elsif block: a rule when it files into a folder.
void AddBlock(const SieveCommand& c, ImportedRules& out)
{
    ImportedRule rule;
    for (const SieveCommand& action : c.block) {
        if (action.name == QLatin1String("fileinto") && rule.destination.path.isEmpty()) {
            for (const SieveArgument& a : action.arguments) {
                if (a.kind == SieveArgument::Kind::Strings && a.strings.size() == 1)
                    rule.destination.path = a.strings.front();
                else if (a.kind == SieveArgument::Kind::Tag)
                    rule.unmapped << QStringLiteral("%1: fileinto :%2; a rule moves the message")
                                         .arg(Where(action.line), a.tag);
            }
            continue;
        }
        if (action.name != QLatin1String("keep") && IsHarmless(action.name)) continue;
        if (action.name == QLatin1String("fileinto"))
            rule.unmapped << QStringLiteral("%1: a second fileinto; a rule moves to one folder")
                                 .arg(Where(action.line));
        else
            rule.unmapped << QStringLiteral("%1: the action \"%2\" has no counterpart in a rule")
                                 .arg(Where(action.line), action.name);
    }
    if (rule.destination.path.isEmpty()) {
        out.unmapped
            << QStringLiteral("%1: %2 block without fileinto gives no rule").arg(Where(c.line), c.name);
        return;
    }
    rule.record.ruleName = QStringLiteral("%1 (sieve line %2)").arg(rule.destination.path).arg(c.line);
    rule.record.active = -1;
    CriteriaBuilder builder(rule.record, rule.unmapped);
    if (c.tests.size() == 1)
        AddTest(c.tests.front(), builder, rule.unmapped);
    else
        rule.unmapped << QStringLiteral("%1: expected one test after %2").arg(Where(c.line), c.name);
    out.rules.push_back(std::move(rule));
}

}  // namespace

Result<ImportedRules> SieveImporter::FromScript(const QString& script)
{
    auto commands = SieveParser::Parse(script);
    if (!commands) return commands.error();
    ImportedRules out;
    for (const SieveCommand& c : *commands) {
        if (c.name == QLatin1String("if") || c.name == QLatin1String("elsif"))
            AddBlock(c, out);
        else if (c.name == QLatin1String("else"))
            out.unmapped << QStringLiteral("%1: an else block has no test of its own, so gives no rule")
                                .arg(Where(c.line));
        else if (!IsHarmless(c.name))
            out.unmapped
                << QStringLiteral("%1: \"%2\" outside an if block gives no rule").arg(Where(c.line), c.name);
    }
    return out;
}

}  // namespace mv::importers

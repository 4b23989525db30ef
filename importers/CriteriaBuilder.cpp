#include "CriteriaBuilder.h"

namespace mv::importers {

namespace {

struct FieldInfo {
    TextField field;
    const char* name;
    QString engine::RuleRecord::*column;
    bool addressList;  // ";"-separated, any entry matches; else words that must all occur
};

constexpr FieldInfo kFields[] = {
    {TextField::Subject, "subject", &engine::RuleRecord::subject, false},
    {TextField::From, "from", &engine::RuleRecord::fromAddress, true},
    {TextField::To, "to", &engine::RuleRecord::toAddress, true},
    {TextField::Cc, "cc", &engine::RuleRecord::ccAddress, true},
    {TextField::Body, "body", &engine::RuleRecord::message, false},
};

const FieldInfo& Info(TextField field)
{
    for (const FieldInfo& f : kFields)
        if (f.field == field) return f;
    return kFields[0];
}

// Why the keys of an address test do not fit a rule's address list; empty
// when they do.
QString AddressProblem(const TextTest& test)
{
    for (const QString& k : test.keys) {
        if (k.contains(u';'))
            return QStringLiteral("\";\" separates a rule's addresses, so \"%1\" cannot be one of them")
                .arg(k);
        // A rule looks at addresses only for entries holding "@" and ".";
        // any other entry is matched against names.
        if (test.addressOnly && !(k.contains(u'@') && k.contains(u'.')))
            return QStringLiteral(
                       "\"%1\" would be matched against names, not addresses: a rule's entry is an "
                       "address only when it holds \"@\" and \".\"")
                .arg(k);
    }
    return {};
}

}  // namespace

bool CriteriaBuilder::Refuse(const QString& original, const QString& why)
{
    m_unmapped << QStringLiteral("%1: %2").arg(original, why);
    return false;
}

bool CriteriaBuilder::AddAll(const TextTest& test)
{
    const FieldInfo& f = Info(test.field);
    QString& value = m_record.*f.column;
    if (f.addressList) {
        if (!value.isEmpty())
            return Refuse(test.original,
                          QStringLiteral("a second %1 test; a rule's %1 list matches any one of its "
                                         "entries, so two tests that must both hold do not fit")
                              .arg(QLatin1String(f.name)));
        if (const QString why = AddressProblem(test); !why.isEmpty()) return Refuse(test.original, why);
        value = test.keys.join(u';');
        return true;
    }
    if (test.keys.size() > 1)
        return Refuse(test.original, QStringLiteral("any one of several %1 words; every word of a rule's %1 "
                                                    "list must occur")
                                         .arg(QLatin1String(f.name)));
    const QString key = test.keys.value(0);
    if (key.contains(u'"'))
        return Refuse(
            test.original,
            QStringLiteral("a double quote cannot be part of a %1 word").arg(QLatin1String(f.name)));
    if (key.trimmed().isEmpty()) return true;  // every text contains the empty string
    const QString term = key.contains(u' ') ? u'"' + key + u'"' : key;
    value = value.isEmpty() ? term : value + u' ' + term;
    return true;
}

bool CriteriaBuilder::AddAny(const std::vector<TextTest>& tests, const QString& original)
{
    if (tests.size() == 1) return AddAll(tests.front());
    TextTest merged{tests.empty() ? TextField::Subject : tests.front().field, {}, original, false};
    for (const TextTest& t : tests) {
        if (t.field != merged.field || !Info(t.field).addressList)
            return Refuse(original,
                          QStringLiteral("any one of tests on different fields (or of several subject or "
                                         "body words) does not fit one rule"));
        if (const QString why = AddressProblem(t); !why.isEmpty()) return Refuse(t.original, why);
        merged.keys << t.keys;
    }
    return AddAll(merged);
}

bool CriteriaBuilder::SetCode(std::optional<int> engine::RuleRecord::*field, int code,
                              const QString& original)
{
    std::optional<int>& value = m_record.*field;
    if (value && *value != code)
        return Refuse(original, QStringLiteral("conflicts with an earlier test on the same state"));
    value = code;
    return true;
}

}  // namespace mv::importers

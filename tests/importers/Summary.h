#pragma once
// One line per imported rule with the criteria it got, and "!" lines for
// what did not map, so a table row can state a whole translation.

#include "importers/ImportedRule.h"

namespace mv::test {

inline QString RuleSummary(const importers::ImportedRule& r)
{
    QStringList parts{
        r.record.ruleName + QStringLiteral(" -> ") +
        (r.destination.HasIds() ? QStringLiteral("#") + r.destination.entryIdHex : r.destination.path)};
    const struct {
        const char* label;
        QString value;
    } texts[] = {{"subject", r.record.subject},
                 {"from", r.record.fromAddress},
                 {"to", r.record.toAddress},
                 {"cc", r.record.ccAddress},
                 {"body", r.record.message}};
    for (const auto& t : texts)
        if (!t.value.isEmpty()) parts << QStringLiteral("%1=%2").arg(QLatin1String(t.label), t.value);
    const struct {
        const char* label;
        std::optional<int> value;
    } codes[] = {{"importance", r.record.importance}, {"status", r.record.status},
                 {"flag", r.record.flagStatus},       {"verb", r.record.lastVerb},
                 {"age", r.record.msgAgeId},          {"days", r.olderThanDays}};
    for (const auto& c : codes)
        if (c.value) parts << QStringLiteral("%1=%2").arg(QLatin1String(c.label)).arg(*c.value);
    if (r.record.active.value_or(-1) == 0) parts << QStringLiteral("off");
    return parts.join(u' ');
}

// Each rule's summary, then "! " and the first words of every unmapped line
// (up to its first ":" after the location), file-level ones last.
inline QStringList Summary(const importers::ImportedRules& rules)
{
    QStringList out;
    for (const importers::ImportedRule& r : rules.rules) {
        out << RuleSummary(r);
        for (const QString& u : r.unmapped) out << QStringLiteral("  ! ") + u;
    }
    for (const QString& u : rules.unmapped) out << QStringLiteral("! ") + u;
    return out;
}

}  // namespace mv::test

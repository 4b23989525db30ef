#pragma once
// The twenty rules every store benchmark runs, so that the figures of the
// stores compare: restrictions as the engine builds them from typical rules.

#include "engine/RuleRecord.h"
#include "platform/mapi/PropTags.h"
#include "platform/corpus/CorpusGenerator.h"

#include <QStringList>

#include <optional>
#include <vector>

namespace mv::bench {

struct Rule {
    const char* name;
    engine::RuleRecord record;
    std::optional<int> ageDays;
};

// A rule that tests nothing, as the rules table stores it, filled in by `fill`.
template <typename Fill>
engine::RuleRecord RuleWith(Fill fill)
{
    engine::RuleRecord r;
    r.importance = engine::kImportanceDontCare;
    r.status = engine::kStatusDontCare;
    r.flagStatus = engine::kFlagDontCare;
    r.lastVerb = engine::kLastVerbDontCare;
    r.msgAgeId = engine::kMsgAgeAnyTime;
    fill(r);
    return r;
}

// The i-th sample (wrapping round), so that the rules name what the corpus writes.
inline QString SampleAt(const QStringList& samples, int i)
{
    return samples.isEmpty() ? QStringLiteral("x") : samples.at(i % samples.size());
}

inline std::vector<Rule> TypicalRules()
{
    const QStringList addresses = corpus::CorpusGenerator::SampleAddresses();
    const QStringList names = corpus::CorpusGenerator::SampleNames();
    const QStringList words = corpus::CorpusGenerator::SampleSubjectWords();
    const auto at = SampleAt;
    return {
        {"sender address", RuleWith([&](auto& r) { r.fromAddress = at(addresses, 0); }), {}},
        {"sender list of 3", RuleWith([&](auto& r) { r.fromAddress = QStringList{at(addresses, 1), at(addresses, 2), at(addresses, 3)}.join(';'); }), {}},
        {"sender name", RuleWith([&](auto& r) { r.fromAddress = at(names, 0); }), {}},
        {"subject word", RuleWith([&](auto& r) { r.subject = at(words, 0); }), {}},
        {"subject two words", RuleWith([&](auto& r) { r.subject = at(words, 1) + ' ' + at(words, 2); }), {}},
        {"subject phrase", RuleWith([&](auto& r) { r.subject = '"' + at(words, 3) + ' ' + at(words, 4) + '"'; }), {}},
        {"recipient address", RuleWith([&](auto& r) { r.toAddress = at(addresses, 4); }), {}},
        {"recipient names", RuleWith([&](auto& r) { r.toAddress = at(names, 1) + ';' + at(names, 2); }), {}},
        {"copy recipient", RuleWith([&](auto& r) { r.ccAddress = at(names, 3); }), {}},
        {"unread", RuleWith([](auto& r) { r.status = 0; }), {}},
        {"read + subject", RuleWith([&](auto& r) { r.status = 1; r.subject = at(words, 5); }), {}},
        {"flagged", RuleWith([](auto& r) { r.flagStatus = 2; }), {}},
        {"no flag", RuleWith([](auto& r) { r.flagStatus = engine::kFlagNoneSet; }), {}},
        {"red flag", RuleWith([](auto& r) { r.flagStatus = engine::kFlagColourBase + 6; }), {}},
        {"high importance", RuleWith([](auto& r) { r.importance = 2; }), {}},
        {"replied", RuleWith([](auto& r) { r.lastVerb = engine::kLastVerbReplied; }), {}},
        {"older than 30 days", RuleWith([](auto&) {}), 30},
        {"sender + older than a year", RuleWith([&](auto& r) { r.fromAddress = at(addresses, 5); }), 365},
        {"senders + subject + unread + age", RuleWith([&](auto& r) {
             r.fromAddress = at(addresses, 6) + ';' + at(addresses, 7);
             r.subject = at(words, 6);
             r.status = 0;
         }), 90},
        {"forwarded + low importance", RuleWith([](auto& r) { r.lastVerb = engine::kLastVerbForwarded; r.importance = 0; }), {}},
    };
}

inline const std::vector<mapi::PropTag> kEngineColumns = {mapi::PR_ENTRYID, mapi::PR_STORE_ENTRYID, mapi::PR_MESSAGE_CLASS,
                                                   mapi::PR_SUBJECT, mapi::PR_MESSAGE_DELIVERY_TIME};

}  // namespace mv::bench

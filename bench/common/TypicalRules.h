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

inline std::vector<Rule> TypicalRules()
{
    const QStringList addresses = corpus::CorpusGenerator::SampleAddresses();
    const QStringList names = corpus::CorpusGenerator::SampleNames();
    const QStringList words = corpus::CorpusGenerator::SampleSubjectWords();
    auto at = [](const QStringList& l, int i) { return l.isEmpty() ? QStringLiteral("x") : l.at(i % l.size()); };
    auto rule = [](auto fill) {
        engine::RuleRecord r;
        r.importance = engine::kImportanceDontCare;
        r.status = engine::kStatusDontCare;
        r.flagStatus = engine::kFlagDontCare;
        r.lastVerb = engine::kLastVerbDontCare;
        r.msgAgeId = engine::kMsgAgeAnyTime;
        fill(r);
        return r;
    };
    return {
        {"sender address", rule([&](auto& r) { r.fromAddress = at(addresses, 0); }), {}},
        {"sender list of 3", rule([&](auto& r) { r.fromAddress = QStringList{at(addresses, 1), at(addresses, 2), at(addresses, 3)}.join(';'); }), {}},
        {"sender name", rule([&](auto& r) { r.fromAddress = at(names, 0); }), {}},
        {"subject word", rule([&](auto& r) { r.subject = at(words, 0); }), {}},
        {"subject two words", rule([&](auto& r) { r.subject = at(words, 1) + ' ' + at(words, 2); }), {}},
        {"subject phrase", rule([&](auto& r) { r.subject = '"' + at(words, 3) + ' ' + at(words, 4) + '"'; }), {}},
        {"recipient address", rule([&](auto& r) { r.toAddress = at(addresses, 4); }), {}},
        {"recipient names", rule([&](auto& r) { r.toAddress = at(names, 1) + ';' + at(names, 2); }), {}},
        {"copy recipient", rule([&](auto& r) { r.ccAddress = at(names, 3); }), {}},
        {"unread", rule([](auto& r) { r.status = 0; }), {}},
        {"read + subject", rule([&](auto& r) { r.status = 1; r.subject = at(words, 5); }), {}},
        {"flagged", rule([](auto& r) { r.flagStatus = 2; }), {}},
        {"no flag", rule([](auto& r) { r.flagStatus = engine::kFlagNoneSet; }), {}},
        {"red flag", rule([](auto& r) { r.flagStatus = engine::kFlagColourBase + 6; }), {}},
        {"high importance", rule([](auto& r) { r.importance = 2; }), {}},
        {"replied", rule([](auto& r) { r.lastVerb = engine::kLastVerbReplied; }), {}},
        {"older than 30 days", rule([](auto&) {}), 30},
        {"sender + older than a year", rule([&](auto& r) { r.fromAddress = at(addresses, 5); }), 365},
        {"senders + subject + unread + age", rule([&](auto& r) {
             r.fromAddress = at(addresses, 6) + ';' + at(addresses, 7);
             r.subject = at(words, 6);
             r.status = 0;
         }), 90},
        {"forwarded + low importance", rule([](auto& r) { r.lastVerb = engine::kLastVerbForwarded; r.importance = 0; }), {}},
    };
}

inline const std::vector<mapi::PropTag> kEngineColumns = {mapi::PR_ENTRYID, mapi::PR_STORE_ENTRYID, mapi::PR_MESSAGE_CLASS,
                                                   mapi::PR_SUBJECT, mapi::PR_MESSAGE_DELIVERY_TIME};

}  // namespace mv::bench

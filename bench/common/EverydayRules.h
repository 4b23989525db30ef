#pragma once
// Twenty rules as people write them, unlike TypicalRules (one criterion
// kind at a time): subject words and phrases, senders and lists of
// senders, a copy recipient, two body-text rules (one narrowed by a subject
// word written after it), read/flagged/answered states and age windows.

#include "bench/common/TypicalRules.h"

namespace mv::bench {

inline std::vector<Rule> EverydayRules()
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
    auto senders = [&](int from, int n) {
        QStringList l;
        for (int i = 0; i < n; ++i) l << at(addresses, from + i);
        return l.join(';');
    };
    return {
        {"subject word", rule([&](auto& r) { r.subject = at(words, 0); }), {}},
        {"subject two words", rule([&](auto& r) { r.subject = at(words, 1) + ' ' + at(words, 2); }), {}},
        {"subject phrase", rule([&](auto& r) { r.subject = '"' + at(words, 3) + ' ' + at(words, 4) + '"'; }), {}},
        {"subject word, unread", rule([&](auto& r) { r.subject = at(words, 5); r.status = 0; }), {}},
        {"sender", rule([&](auto& r) { r.fromAddress = at(addresses, 0); }), {}},
        {"senders (4)", rule([&](auto& r) { r.fromAddress = senders(1, 4); }), {}},
        {"sender name", rule([&](auto& r) { r.fromAddress = at(names, 0); }), {}},
        {"senders (3) + subject", rule([&](auto& r) { r.fromAddress = senders(5, 3); r.subject = at(words, 6); }), {}},
        {"copy recipient", rule([&](auto& r) { r.ccAddress = at(names, 3); }), {}},
        {"body text", rule([](auto& r) { r.message = QStringLiteral("wrote:"); }), {}},
        {"body text + subject", rule([&](auto& r) { r.message = at(words, 7).toLower(); r.subject = at(words, 8); }), {}},
        {"read", rule([](auto& r) { r.status = 1; }), 30},
        {"flagged", rule([](auto& r) { r.flagStatus = 2; }), {}},
        {"answered", rule([](auto& r) { r.lastVerb = engine::kLastVerbReplied; }), {}},
        {"forwarded", rule([](auto& r) { r.lastVerb = engine::kLastVerbForwarded; }), {}},
        {"older than a year", rule([](auto&) {}), 365},
        {"sender, older than 90 days", rule([&](auto& r) { r.fromAddress = at(addresses, 8); }), 90},
        {"senders (2), unread, 7 days", rule([&](auto& r) { r.fromAddress = senders(9, 2); r.status = 0; }), 7},
        {"flagged + sender", rule([&](auto& r) { r.flagStatus = 2; r.fromAddress = at(addresses, 11); }), {}},
        {"read + subject, 30 days", rule([&](auto& r) { r.status = 1; r.subject = at(words, 9); }), 30},
    };
}

}  // namespace mv::bench

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
    const auto at = SampleAt;
    auto senders = [&](int from, int n) {
        QStringList l;
        for (int i = 0; i < n; ++i) l << at(addresses, from + i);
        return l.join(';');
    };
    return {
        {"subject word", RuleWith([&](auto& r) { r.subject = at(words, 0); }), {}},
        {"subject two words", RuleWith([&](auto& r) { r.subject = at(words, 1) + ' ' + at(words, 2); }), {}},
        {"subject phrase", RuleWith([&](auto& r) { r.subject = '"' + at(words, 3) + ' ' + at(words, 4) + '"'; }), {}},
        {"subject word, unread", RuleWith([&](auto& r) { r.subject = at(words, 5); r.status = 0; }), {}},
        {"sender", RuleWith([&](auto& r) { r.fromAddress = at(addresses, 0); }), {}},
        {"senders (4)", RuleWith([&](auto& r) { r.fromAddress = senders(1, 4); }), {}},
        {"sender name", RuleWith([&](auto& r) { r.fromAddress = at(names, 0); }), {}},
        {"senders (3) + subject", RuleWith([&](auto& r) { r.fromAddress = senders(5, 3); r.subject = at(words, 6); }), {}},
        {"copy recipient", RuleWith([&](auto& r) { r.ccAddress = at(names, 3); }), {}},
        {"body text", RuleWith([](auto& r) { r.message = QStringLiteral("wrote:"); }), {}},
        {"body text + subject", RuleWith([&](auto& r) { r.message = at(words, 7).toLower(); r.subject = at(words, 8); }), {}},
        {"read, older than a year", RuleWith([](auto& r) { r.status = 1; }), 365},
        {"flagged", RuleWith([](auto& r) { r.flagStatus = 2; }), {}},
        {"answered", RuleWith([](auto& r) { r.lastVerb = engine::kLastVerbReplied; }), {}},
        {"forwarded", RuleWith([](auto& r) { r.lastVerb = engine::kLastVerbForwarded; }), {}},
        {"older than a year", RuleWith([](auto&) {}), 365},
        {"sender, older than 90 days", RuleWith([&](auto& r) { r.fromAddress = at(addresses, 8); }), 90},
        {"senders (2), unread, 7 days", RuleWith([&](auto& r) { r.fromAddress = senders(9, 2); r.status = 0; }), 7},
        {"flagged + sender", RuleWith([&](auto& r) { r.flagStatus = 2; r.fromAddress = at(addresses, 11); }), {}},
        {"read + subject, 30 days", RuleWith([&](auto& r) { r.status = 1; r.subject = at(words, 9); }), 30},
    };
}

}  // namespace mv::bench

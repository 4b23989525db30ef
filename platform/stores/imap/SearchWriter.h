#pragma once
// Writes a restriction as the keys of one UID SEARCH.
//
// The keys are never narrower than the restriction: where IMAP cannot say
// exactly what the restriction says (display name versus address, day-
// granular dates, importance spread over two headers), the key is wider and
// the store re-checks the candidates with RestrictionEvaluator. Under NOT a
// wider key would turn narrower, so an inexact operand of NOT becomes ALL.
// Flag-derived properties (read bit, flag status, flag colour, last verb)
// are written exactly: the flag combinations that satisfy the node are
// worked out with FlagMapping and the evaluator, so the keys and the
// re-check can never disagree.

#include "platform/mapi/Restriction.h"

#include <QByteArray>
#include <QDateTime>

namespace mv::stores {

struct SearchOptions {
    bool within = false;       // the server offers WITHIN (OLDER / YOUNGER)
    bool literalPlus = false;  // non-ASCII terms go as non-synchronising literals
    QDateTime now;             // UTC, for OLDER
};

struct SearchKeys {
    QByteArray text;     // "SUBJECT \"budget\" UNSEEN"; "ALL" for no restriction
    bool utf8 = false;   // a term is not ASCII: send CHARSET UTF-8
    bool exact = false;  // the server's answer needs no re-check
};

class SearchWriter {
public:
    explicit SearchWriter(SearchOptions options) : m_options(std::move(options)) {}

    SearchKeys Write(const mapi::Restriction* restriction) const;
    // The whole command: "UID SEARCH [CHARSET UTF-8] UNDELETED <keys>".
    static QByteArray Command(const SearchKeys& keys);
    // A search string as an IMAP astring (quoted, or a literal).
    QByteArray String(const QString& text, bool* utf8) const;

private:
    struct Key {
        QByteArray text;
        bool exact = true;
        bool compound = false;  // several keys side by side: needs parentheses as an operand
    };
    Key Node(const mapi::Restriction& r, bool* utf8) const;
    Key Content(const mapi::Restriction& r, bool inRecipients, bool* utf8) const;
    Key Property(const mapi::Restriction& r) const;
    Key Flags(const mapi::Restriction& r) const;
    Key Importance(const mapi::Restriction& r) const;
    Key DeliveryTime(const mapi::Restriction& r) const;
    static Key AndOf(std::vector<Key> keys);
    static Key OrOf(std::vector<Key> keys);
    static QByteArray Operand(const Key& k);

    SearchOptions m_options;
};

}  // namespace mv::stores

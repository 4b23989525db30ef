#pragma once
// The one restriction tree every store consumes: the memory and Maildir
// stores evaluate it (RestrictionEvaluator), the IMAP store writes it as a
// UID SEARCH and re-checks candidates with the same evaluator.
//
// A value type. It is built node by node, the way the rule engine builds it:
// set the root's kind, add a child of a kind, set that child's tag, value,
// relation or mask. AddChild returns a reference that stays valid while the
// tree lives (children are kept in a std::list).

#include "PropTags.h"

#include <QString>
#include <QVariant>

#include <cstdint>
#include <list>

namespace mv::mapi {

enum RestrictionKind : int {
    RES_AND = 0,
    RES_OR = 1,
    RES_NOT = 2,
    RES_CONTENT = 3,
    RES_PROPERTY = 4,
    RES_COMPAREPROPS = 5,  // not supported by the stores
    RES_BITMASK = 6,
    RES_SIZE = 7,          // not supported by the stores
    RES_EXIST = 8,
    RES_SUBRESTRICTION = 9,
};

// Fuzzy levels of RES_CONTENT (low word: how, high word: options).
inline constexpr std::uint32_t FL_FULLSTRING = 0x00000;
inline constexpr std::uint32_t FL_SUBSTRING = 0x00001;
inline constexpr std::uint32_t FL_PREFIX = 0x00002;
inline constexpr std::uint32_t FL_IGNORECASE = 0x10000;
inline constexpr std::uint32_t FL_IGNORENONSPACE = 0x20000;
inline constexpr std::uint32_t FL_LOOSE = 0x40000;

enum Relop : int { RELOP_LT = 0, RELOP_LE = 1, RELOP_GT = 2, RELOP_GE = 3, RELOP_EQ = 4, RELOP_NE = 5, RELOP_RE = 6 };
enum BitmaskRelop : int { BMR_EQZ = 0, BMR_NEZ = 1 };

class Restriction {
public:
    explicit Restriction(RestrictionKind kind = RES_AND) : kind(kind) {}

    RestrictionKind kind;
    PropTag propTag = 0;          // CONTENT, PROPERTY, BITMASK, EXIST; SUBRESTRICTION: the sub-object (PR_MESSAGE_RECIPIENTS)
    std::uint32_t fuzzyLevel = 0; // CONTENT
    int relop = 0;                // PROPERTY: Relop; BITMASK: BitmaskRelop
    std::uint32_t mask = 0;       // BITMASK
    QVariant value;               // CONTENT: QString; PROPERTY: int, QString or UTC QDateTime

    std::list<Restriction>& children() { return m_children; }
    const std::list<Restriction>& children() const { return m_children; }

    // AND, OR, NOT (one child), SUBRESTRICTION (its children are ANDed).
    Restriction& AddChild(RestrictionKind childKind) { return m_children.emplace_back(childKind); }
    Restriction& AddChild(Restriction child) { return m_children.emplace_back(std::move(child)); }
    void Clear() { *this = Restriction(RES_AND); }

    // Convenience builders for tests and stores.
    static Restriction Content(PropTag tag, const QString& text, std::uint32_t fuzzy = FL_SUBSTRING | FL_IGNORECASE);
    static Restriction Property(Relop relop, PropTag tag, const QVariant& value);
    static Restriction Bitmask(BitmaskRelop relop, PropTag tag, std::uint32_t mask);
    static Restriction Exist(PropTag tag);
    static Restriction And(std::list<Restriction> children);
    static Restriction Or(std::list<Restriction> children);
    static Restriction Not(Restriction child);
    static Restriction Sub(PropTag subObject, Restriction child);

    bool operator==(const Restriction& other) const;
    // Readable one-line form for logs and test failures, e.g.
    // AND(CONTENT(PR_SUBJECT ~ "budget"), BITMASK(PR_MESSAGE_FLAGS & 0x1 == 0)).
    QString ToString() const;

private:
    std::list<Restriction> m_children;
};

}  // namespace mv::mapi

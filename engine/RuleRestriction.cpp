#include "RuleRestriction.h"

#include "RuleText.h"

namespace mv::engine {
namespace {

using namespace mv::mapi;

constexpr std::uint32_t kFuzzy = FL_SUBSTRING | FL_IGNORECASE;

void SetContent(Restriction& node, PropTag tag, const QString& term)
{
    node.fuzzyLevel = kFuzzy;
    node.propTag = tag;
    node.value = term;
}

void SetProperty(Restriction& node, Relop relop, PropTag tag, int value)
{
    node.relop = relop;
    node.propTag = tag;
    node.value = value;
}

// Subject and body: several terms all required; a text without a space is
// one term, quotes and all.
void AddWords(Restriction& root, PropTag tag, const QString& text)
{
    if (!text.contains(QLatin1Char(' '))) {
        SetContent(root.AddChild(RES_CONTENT), tag, text);
        return;
    }
    Restriction& all = root.AddChild(RES_AND);
    for (const QString& term : SplitAroundQuotes(text, QStringLiteral(" "), true))
        SetContent(all.AddChild(RES_CONTENT), tag, term);
}

// Address lists: any one term suffices. `tagFor` picks the property by
// what the term looks like.
template <class TagFor>
void AddAddresses(Restriction& parent, const QString& list, TagFor tagFor)
{
    const QStringList all = SplitAddressList(list);
    const qsizetype upper = all.size() - 1;
    if (upper == 1) {
        SetContent(parent.AddChild(RES_CONTENT), tagFor(all[0]), all[0]);
        return;
    }
    Restriction& any = parent.AddChild(RES_OR);
    for (qsizetype i = 0; i < upper; ++i) SetContent(any.AddChild(RES_CONTENT), tagFor(all[i]), all[i]);
}

bool LooksLikeAddress(const QString& term)
{
    return IsSmtpAddress(term) || IsExchangeAddress(term);
}

}  // namespace

void AddRuleCriteria(const RuleRecord& rule, const std::optional<QDateTime>& cutOffUtc, Restriction& root)
{
    if (cutOffUtc) {
        Restriction& age = root.AddChild(RES_PROPERTY);
        age.relop = RELOP_LT;
        age.propTag = PR_MESSAGE_DELIVERY_TIME;
        age.value = *cutOffUtc;
    }

    if (!rule.subject.isEmpty()) AddWords(root, PR_SUBJECT, rule.subject);

    if (!rule.fromAddress.isEmpty()) {
        AddAddresses(root, rule.fromAddress, [](const QString& t) {
            return LooksLikeAddress(t) ? PR_SENT_REPRESENTING_EMAIL_ADDRESS : PR_SENT_REPRESENTING_NAME;
        });
    }

    if (!rule.toAddress.isEmpty()) {
        Restriction& sub = root.AddChild(RES_SUBRESTRICTION);
        sub.propTag = PR_MESSAGE_RECIPIENTS;
        AddAddresses(sub, rule.toAddress,
                     [](const QString& t) { return LooksLikeAddress(t) ? PR_EMAIL_ADDRESS : PR_DISPLAY_NAME; });
    }

    if (!rule.ccAddress.isEmpty())
        AddAddresses(root, rule.ccAddress, [](const QString&) { return PR_DISPLAY_CC; });

    if (!rule.message.isEmpty()) AddWords(root, PR_BODY, rule.message);

    if (rule.status && *rule.status < kStatusDontCare) {
        Restriction& read = root.AddChild(RES_BITMASK);
        read.relop = *rule.status;
        read.propTag = PR_MESSAGE_FLAGS;
        read.mask = MSGFLAG_READ;
    }

    if (rule.flagStatus && *rule.flagStatus > kFlagDontCare) {
        const int code = *rule.flagStatus;
        if (code == kFlagNoneSet) {
            Restriction& none = root.AddChild(RES_AND);
            SetProperty(none.AddChild(RES_PROPERTY), RELOP_NE, PR_FLAG_STATUS, FLAG_STATUS_COMPLETE);
            SetProperty(none.AddChild(RES_PROPERTY), RELOP_NE, PR_FLAG_STATUS, FLAG_STATUS_MARKED);
        } else if (code > kFlagColourBase) {
            SetProperty(root.AddChild(RES_PROPERTY), RELOP_EQ, PR_FLAG_ICON, code - kFlagColourBase);
        } else {
            SetProperty(root.AddChild(RES_PROPERTY), RELOP_EQ, PR_FLAG_STATUS, code);
        }
    }

    if (rule.importance && *rule.importance < kImportanceDontCare)
        SetProperty(root.AddChild(RES_PROPERTY), RELOP_EQ, PR_IMPORTANCE, *rule.importance);

    if (rule.lastVerb && *rule.lastVerb != kLastVerbDontCare) {
        if (*rule.lastVerb == kLastVerbReplied) {
            Restriction& either = root.AddChild(RES_OR);
            SetProperty(either.AddChild(RES_PROPERTY), RELOP_EQ, PR_LAST_VERB_EXECUTED, EXCHIVERB_REPLYTOSENDER);
            SetProperty(either.AddChild(RES_PROPERTY), RELOP_EQ, PR_LAST_VERB_EXECUTED, EXCHIVERB_REPLYTOALL);
        } else {
            SetProperty(root.AddChild(RES_PROPERTY), RELOP_EQ, PR_LAST_VERB_EXECUTED, *rule.lastVerb);
        }
    }
}

}  // namespace mv::engine

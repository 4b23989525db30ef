#include "platform/mapi/RestrictionEvaluator.h"

#include <gtest/gtest.h>

#include <QTimeZone>

namespace mv::mapi {
namespace {

const QDateTime kDelivered(QDate(2026, 3, 1), QTime(10, 0), QTimeZone::utc());

PropertyMap Recipient(const QString& name, const QString& address, int type)
{
    return {{PR_DISPLAY_NAME, name}, {PR_EMAIL_ADDRESS, address}, {PR_ADDRTYPE, QStringLiteral("SMTP")},
            {PR_RECIPIENT_TYPE, type}};
}

// A read, high-importance, unflagged message with one To and one Cc
// recipient; it has no body, no flag icon and no last verb.
MessageRecord Sample()
{
    MessageRecord m;
    m.props = {
        {PR_SUBJECT, QStringLiteral("Budget Review: Q3 Ünïcode ÄRGER")},
        {PR_SENT_REPRESENTING_NAME, QStringLiteral("Alice Smith")},
        {PR_SENT_REPRESENTING_EMAIL_ADDRESS, QStringLiteral("alice@example.com")},
        {PR_DISPLAY_CC, QStringLiteral("Erin West")},
        {PR_MESSAGE_FLAGS, MSGFLAG_READ},
        {PR_FLAG_STATUS, 0},
        {PR_IMPORTANCE, 2},
        {PR_MESSAGE_DELIVERY_TIME, kDelivered},
        {PR_ENTRYID, QByteArray("\x01\x02", 2)},
    };
    m.recipients = {Recipient(QStringLiteral("Dave Brown"), QStringLiteral("dave@example.net"), MAPI_TO),
                    Recipient(QStringLiteral("Erin West"), QStringLiteral("erin@example.com"), MAPI_CC)};
    return m;
}

// A source that answers only through Get and SubRows, as a store's own
// source may: the evaluator's copy-free paths must give the same answers.
class CopyingSource final : public PropertySource {
public:
    explicit CopyingSource(MessageRecord record) : m_record(std::move(record)) {}
    std::optional<QVariant> Get(PropTag tag) const override { return m_record.Get(tag); }
    std::vector<PropertyMap> SubRows(PropTag subObject) const override { return m_record.SubRows(subObject); }

private:
    MessageRecord m_record;
};

using R = Restriction;
constexpr std::uint32_t kCaseSensitive = FL_SUBSTRING;

struct Case {
    const char* name;
    Restriction restriction;
    bool expected;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

std::vector<Case> Cases()
{
    const QDateTime localSameInstant = kDelivered.toTimeZone(QTimeZone(3600 * 5));
    return {
        // Content: the engine's FL_SUBSTRING|FL_IGNORECASE, and the other levels.
        {"ContentSubstringIgnoresCase", R::Content(PR_SUBJECT, "budget review"), true},
        {"ContentAbsentWord", R::Content(PR_SUBJECT, "invoice"), false},
        {"ContentFoldsNonAsciiCase", R::Content(PR_SUBJECT, "ärger"), true},
        {"ContentCaseSensitiveMiss", R::Content(PR_SUBJECT, "budget", kCaseSensitive), false},
        {"ContentCaseSensitiveHit", R::Content(PR_SUBJECT, "Budget", kCaseSensitive), true},
        {"ContentEmptyTermMatchesPresentProperty", R::Content(PR_SUBJECT, ""), true},
        {"ContentEmptyTermNeedsTheProperty", R::Content(PR_BODY, ""), false},
        {"ContentFullStringExact", R::Content(PR_SENT_REPRESENTING_NAME, "alice smith", FL_FULLSTRING | FL_IGNORECASE), true},
        {"ContentFullStringPartial", R::Content(PR_SENT_REPRESENTING_NAME, "alice", FL_FULLSTRING | FL_IGNORECASE), false},
        {"ContentPrefixHit", R::Content(PR_SUBJECT, "budget r", FL_PREFIX | FL_IGNORECASE), true},
        {"ContentPrefixMissInMiddle", R::Content(PR_SUBJECT, "review", FL_PREFIX | FL_IGNORECASE), false},
        {"ContentIgnoreNonSpace", R::Content(PR_SUBJECT, "unicode", FL_SUBSTRING | FL_IGNORECASE | FL_IGNORENONSPACE), true},
        {"ContentDiacriticsCountWithoutNonSpace", R::Content(PR_SUBJECT, "unicode"), false},
        {"ContentOnIntegerProperty", R::Content(PR_IMPORTANCE, "2"), false},
        {"ContentUnicodeTagFindsString8Value", R::Content(0x0037001F, "budget"), true},
        {"ContentSenderAddress", R::Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, "@EXAMPLE.com"), true},
        {"ContentCcDisplayShowsNamesNotAddresses", R::Content(PR_DISPLAY_CC, "erin@example.com"), false},
        // Property relations.
        {"PropertyEqualInt", R::Property(RELOP_EQ, PR_IMPORTANCE, 2), true},
        {"PropertyEqualOtherIntWidth", R::Property(RELOP_EQ, PR_IMPORTANCE, QVariant::fromValue<short>(2)), true},
        {"PropertyEqualWrongValue", R::Property(RELOP_EQ, PR_IMPORTANCE, 1), false},
        {"PropertyNotEqualPresent", R::Property(RELOP_NE, PR_FLAG_STATUS, 1), true},
        {"PropertyNotEqualMissingIsFalse", R::Property(RELOP_NE, PR_LAST_VERB_EXECUTED, 102), false},
        {"PropertyEqualMissingIsFalse", R::Property(RELOP_EQ, PR_FLAG_ICON, 6), false},
        {"PropertyNoneSet",
         R::And({R::Property(RELOP_NE, PR_FLAG_STATUS, 1), R::Property(RELOP_NE, PR_FLAG_STATUS, 2)}), true},
        {"PropertyStringIgnoresCase", R::Property(RELOP_EQ, PR_SENT_REPRESENTING_NAME, "ALICE SMITH"), true},
        {"PropertyStringOrdering", R::Property(RELOP_LT, PR_SENT_REPRESENTING_NAME, "bob"), true},
        {"PropertyTypeMismatchIsFalse", R::Property(RELOP_NE, PR_IMPORTANCE, "2"), false},
        {"PropertyLessOrEqualGreater", R::Property(RELOP_GE, PR_IMPORTANCE, 2), true},
        {"PropertyGreaterStrict", R::Property(RELOP_GT, PR_IMPORTANCE, 2), false},
        {"PropertyBinaryEqual", R::Property(RELOP_EQ, PR_ENTRYID, QByteArray("\x01\x02", 2)), true},
        // Dates compare as instants.
        {"DateBeforeLaterCutOff", R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, kDelivered.addSecs(1)), true},
        {"DateNotBeforeItself", R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, kDelivered), false},
        {"DateNotBeforeEarlierCutOff", R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, kDelivered.addDays(-1)), false},
        {"DateSameInstantOtherZone", R::Property(RELOP_EQ, PR_MESSAGE_DELIVERY_TIME, localSameInstant), true},
        // Bitmasks.
        {"BitmaskReadIsSet", R::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ), true},
        {"BitmaskUnreadWanted", R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ), false},
        {"BitmaskOtherBitClear", R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_HASATTACH), true},
        {"BitmaskMissingProperty", R::Bitmask(BMR_EQZ, PR_LAST_VERB_EXECUTED, 1), false},
        // Presence.
        {"ExistPresent", R::Exist(PR_SUBJECT), true},
        {"ExistAbsent", R::Exist(PR_FLAG_ICON), false},
        // Recipients: any one row must satisfy all children.
        {"SubName", R::Sub(PR_MESSAGE_RECIPIENTS, R::Content(PR_DISPLAY_NAME, "dave")), true},
        {"SubCcRecipientCountsToo", R::Sub(PR_MESSAGE_RECIPIENTS, R::Content(PR_EMAIL_ADDRESS, "erin@")), true},
        {"SubNoRow", R::Sub(PR_MESSAGE_RECIPIENTS, R::Content(PR_DISPLAY_NAME, "zed")), false},
        {"SubOrOfTerms",
         R::Sub(PR_MESSAGE_RECIPIENTS, R::Or({R::Content(PR_DISPLAY_NAME, "zed"), R::Content(PR_EMAIL_ADDRESS, "dave@")})),
         true},
        {"SubChildrenMustHoldOnOneRow",
         [] {
             Restriction sub(RES_SUBRESTRICTION);
             sub.propTag = PR_MESSAGE_RECIPIENTS;
             sub.AddChild(R::Content(PR_DISPLAY_NAME, "dave"));
             sub.AddChild(R::Content(PR_EMAIL_ADDRESS, "erin"));
             return sub;
         }(),
         false},
        {"SubRowDoesNotSeeMessageProperties", R::Sub(PR_MESSAGE_RECIPIENTS, R::Exist(PR_SUBJECT)), false},
        {"SubOnUnknownSubObject", R::Sub(0x0E13000D, R::And({})), false},
        // Logic.
        {"EmptyAndIsTrue", R::And({}), true},
        {"EmptyOrIsFalse", R::Or({}), false},
        {"OrOneHit", R::Or({R::Content(PR_SUBJECT, "nope"), R::Property(RELOP_EQ, PR_IMPORTANCE, 2)}), true},
        {"AndOneMiss", R::And({R::Content(PR_SUBJECT, "budget"), R::Property(RELOP_EQ, PR_IMPORTANCE, 0)}), false},
        {"NotOfHit", R::Not(R::Content(PR_SUBJECT, "budget")), false},
        {"NotOfMissingPropertyIsTrue", R::Not(R::Property(RELOP_EQ, PR_FLAG_ICON, 6)), true},
        {"NotWithoutChildIsFalse", Restriction(RES_NOT), false},
        {"UnsupportedKindsAreFalse", R::Or({Restriction(RES_COMPAREPROPS), Restriction(RES_SIZE)}), false},
    };
}

class EvaluatorCases : public ::testing::TestWithParam<Case> {};

TEST_P(EvaluatorCases, MatchesSample)
{
    const Case& c = GetParam();
    EXPECT_EQ(RestrictionEvaluator::Matches(c.restriction, Sample()), c.expected) << c.restriction.ToString().toStdString();
    EXPECT_EQ(RestrictionEvaluator::Matches(c.restriction, CopyingSource(Sample())), c.expected) << "through Get";
}

INSTANTIATE_TEST_SUITE_P(Semantics, EvaluatorCases, ::testing::ValuesIn(Cases()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Evaluator, MessageWithoutRecipientsFailsEverySubRestriction)
{
    MessageRecord bare = Sample();
    bare.recipients.clear();
    EXPECT_FALSE(RestrictionEvaluator::Matches(R::Sub(PR_MESSAGE_RECIPIENTS, R::And({})), bare));
    EXPECT_TRUE(RestrictionEvaluator::Matches(R::Sub(PR_MESSAGE_RECIPIENTS, R::And({})), Sample()));
}

struct SupportCase {
    const char* name;
    Restriction restriction;
    bool supported;
};
void PrintTo(const SupportCase& c, std::ostream* os) { *os << c.name; }

std::vector<SupportCase> SupportTable()
{
    Restriction deepSize = R::And({R::Or({R::Content(PR_SUBJECT, "a"), Restriction(RES_SIZE)})});
    Restriction regex = R::Property(RELOP_RE, PR_SUBJECT, "a.*");
    Restriction badFuzzy = R::Content(PR_SUBJECT, "a", 7);
    Restriction intContent = R::Content(PR_SUBJECT, "a");
    intContent.value = 5;
    Restriction twoChildNot(RES_NOT);
    twoChildNot.AddChild(R::And({}));
    twoChildNot.AddChild(R::And({}));
    Restriction badBitmask = R::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, 1);
    badBitmask.relop = 3;
    return {
        {"EngineShapedTree",
         R::And({R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, kDelivered), R::Content(PR_SUBJECT, "x"),
                 R::Sub(PR_MESSAGE_RECIPIENTS, R::Or({R::Content(PR_DISPLAY_NAME, "y")})),
                 R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, 1), R::Not(R::Exist(PR_FLAG_ICON))}),
         true},
        {"SizeDeepInside", deepSize, false},
        {"CompareProps", Restriction(RES_COMPAREPROPS), false},
        {"RegexRelation", regex, false},
        {"UnknownFuzzyLevel", badFuzzy, false},
        {"ContentValueNotText", intContent, false},
        {"NotWithTwoChildren", twoChildNot, false},
        {"InvalidDate", R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, QDateTime()), false},
        {"MissingValue", R::Property(RELOP_EQ, PR_IMPORTANCE, QVariant()), false},
        {"UnknownBitmaskRelation", badBitmask, false},
    };
}

class SupportCases : public ::testing::TestWithParam<SupportCase> {};

TEST_P(SupportCases, CheckSupported)
{
    const SupportCase& c = GetParam();
    const Status s = RestrictionEvaluator::CheckSupported(c.restriction);
    EXPECT_EQ(s.ok(), c.supported);
    if (!s.ok()) {
        EXPECT_EQ(s.error().kind, ErrorKind::Permanent);
        EXPECT_TRUE(s.error().message.contains(QStringLiteral("Unsupported restriction")));
    }
}

INSTANTIATE_TEST_SUITE_P(Trees, SupportCases, ::testing::ValuesIn(SupportTable()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace mv::mapi

namespace mv::mapi {
namespace {

// The evaluator's own case-insensitive search must agree with QString's,
// which the other matching paths (prefix, full string) still use.
TEST(Evaluator, CaseInsensitiveSubstringAgreesWithQString)
{
    const QString haystacks[] = {
        QStringLiteral("Budget Review"),
        QStringLiteral("300 \u212A and \u017Fun"),  // KELVIN SIGN, LONG S
        QStringLiteral("\u0130stanbul / ISTANBUL"),
        QStringLiteral("Stra\u00DFe STRASSE"),
        QStringLiteral("emoji \U0001F600 ok \U00010400"),  // a capital outside the BMP
        QStringLiteral("aaab"),
        QString(),
    };
    const QString needles[] = {
        QStringLiteral("review"), QStringLiteral("REVIEW"), QStringLiteral("300 k"), QStringLiteral("sun"),
        QStringLiteral("istanbul"), QStringLiteral("strasse"), QStringLiteral("ok"), QStringLiteral("aab"),
        QStringLiteral("\u00DF"), QStringLiteral("\U00010428"), QString(), QStringLiteral("budget review!"),
    };
    for (const QString& haystack : haystacks) {
        MessageRecord m;
        m.props.insert(PR_SUBJECT, haystack);
        for (const QString& needle : needles) {
            EXPECT_EQ(RestrictionEvaluator::Matches(Restriction::Content(PR_SUBJECT, needle), m),
                      haystack.contains(needle, Qt::CaseInsensitive))
                << haystack.toStdString() << " / " << needle.toStdString();
        }
    }
}

}  // namespace
}  // namespace mv::mapi

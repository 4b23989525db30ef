// Restriction semantics on one message. The tree shapes the engine builds
// run through every store in tests/conformance (the memory store answers
// with this evaluator); these are the edge cases.

#include "platform/mapi/MapiUtils.h"
#include "platform/mapi/RestrictionEvaluator.h"

#include <gtest/gtest.h>

#include <QTimeZone>

namespace mv::mapi {
namespace {

using R = Restriction;
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

struct Case {
    const char* name;
    Restriction restriction;
    bool expected;
};

TEST(Evaluator, MatchesSampleThroughBothPaths)
{
    constexpr std::uint32_t kCaseSensitive = FL_SUBSTRING;
    constexpr std::uint32_t kNoCase = FL_IGNORECASE;
    Restriction bothOnOneRow(RES_SUBRESTRICTION);
    bothOnOneRow.propTag = PR_MESSAGE_RECIPIENTS;
    bothOnOneRow.AddChild(R::Content(PR_DISPLAY_NAME, "dave"));
    bothOnOneRow.AddChild(R::Content(PR_EMAIL_ADDRESS, "erin"));
    const Case cases[] = {
        {"ContentCaseSensitiveMiss", R::Content(PR_SUBJECT, "budget", kCaseSensitive), false},
        {"ContentCaseSensitiveHit", R::Content(PR_SUBJECT, "Budget", kCaseSensitive), true},
        {"ContentEmptyTermNeedsTheProperty", R::Content(PR_BODY, ""), false},
        {"ContentFullStringExact", R::Content(PR_SENT_REPRESENTING_NAME, "alice smith", FL_FULLSTRING | kNoCase), true},
        {"ContentFullStringPartial", R::Content(PR_SENT_REPRESENTING_NAME, "alice", FL_FULLSTRING | kNoCase), false},
        {"ContentPrefixHit", R::Content(PR_SUBJECT, "budget r", FL_PREFIX | kNoCase), true},
        {"ContentPrefixMissInMiddle", R::Content(PR_SUBJECT, "review", FL_PREFIX | kNoCase), false},
        {"ContentIgnoreNonSpace", R::Content(PR_SUBJECT, "unicode", FL_SUBSTRING | kNoCase | FL_IGNORENONSPACE), true},
        {"ContentDiacriticsCountWithoutNonSpace", R::Content(PR_SUBJECT, "unicode"), false},
        {"ContentOnIntegerProperty", R::Content(PR_IMPORTANCE, "2"), false},
        {"ContentUnicodeTagFindsString8Value", R::Content(0x0037001F, "budget"), true},
        {"PropertyEqualOtherIntWidth", R::Property(RELOP_EQ, PR_IMPORTANCE, QVariant::fromValue<short>(2)), true},
        {"PropertyNotEqualMissingIsFalse", R::Property(RELOP_NE, PR_LAST_VERB_EXECUTED, 102), false},
        {"PropertyStringIgnoresCase", R::Property(RELOP_EQ, PR_SENT_REPRESENTING_NAME, "ALICE SMITH"), true},
        {"PropertyStringOrdering", R::Property(RELOP_LT, PR_SENT_REPRESENTING_NAME, "bob"), true},
        {"PropertyTypeMismatchIsFalse", R::Property(RELOP_NE, PR_IMPORTANCE, "2"), false},
        {"PropertyGreaterOrEqual", R::Property(RELOP_GE, PR_IMPORTANCE, 2), true},
        {"PropertyGreaterStrict", R::Property(RELOP_GT, PR_IMPORTANCE, 2), false},
        {"PropertyBinaryEqual", R::Property(RELOP_EQ, PR_ENTRYID, QByteArray("\x01\x02", 2)), true},
        {"DateSameInstantOtherZone",
         R::Property(RELOP_EQ, PR_MESSAGE_DELIVERY_TIME, kDelivered.toTimeZone(QTimeZone(3600 * 5))), true},
        {"BitmaskMissingProperty", R::Bitmask(BMR_EQZ, PR_LAST_VERB_EXECUTED, 1), false},
        {"SubChildrenMustHoldOnOneRow", bothOnOneRow, false},
        {"SubRowDoesNotSeeMessageProperties", R::Sub(PR_MESSAGE_RECIPIENTS, R::Exist(PR_SUBJECT)), false},
        {"SubOnUnknownSubObject", R::Sub(0x0E13000D, R::And({})), false},
        {"EmptyOrIsFalse", R::Or({}), false},
        {"NotWithoutChildIsFalse", Restriction(RES_NOT), false},
        {"UnsupportedKindsAreFalse", R::Or({Restriction(RES_COMPAREPROPS), Restriction(RES_SIZE)}), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(RestrictionEvaluator::Matches(c.restriction, Sample()), c.expected);
        EXPECT_EQ(RestrictionEvaluator::Matches(c.restriction, CopyingSource(Sample())), c.expected) << "through Get";
    }
    MessageRecord bare = Sample();
    bare.recipients.clear();
    EXPECT_FALSE(RestrictionEvaluator::Matches(R::Sub(PR_MESSAGE_RECIPIENTS, R::And({})), bare));
}

TEST(Evaluator, CheckSupportedRefusesWhatNoStoreCanAnswer)
{
    Restriction intContent = R::Content(PR_SUBJECT, "a");
    intContent.value = 5;
    Restriction twoChildNot(RES_NOT);
    twoChildNot.AddChild(R::And({}));
    twoChildNot.AddChild(R::And({}));
    Restriction badBitmask = R::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, 1);
    badBitmask.relop = 3;
    const Case cases[] = {
        {"RegexRelation", R::Property(RELOP_RE, PR_SUBJECT, "a.*"), false},
        {"UnknownFuzzyLevel", R::Content(PR_SUBJECT, "a", 7), false},
        {"ContentValueNotText", intContent, false},
        {"NotWithTwoChildren", twoChildNot, false},
        {"InvalidDate", R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, QDateTime()), false},
        {"MissingValue", R::Property(RELOP_EQ, PR_IMPORTANCE, QVariant()), false},
        {"UnknownBitmaskRelation", badBitmask, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Status s = RestrictionEvaluator::CheckSupported(c.restriction);
        ASSERT_FALSE(s.ok());
        EXPECT_EQ(s.error().kind, ErrorKind::Permanent);
        EXPECT_TRUE(s.error().message.contains(QStringLiteral("Unsupported restriction")));
    }
}

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
        for (const QString& needle : needles)
            EXPECT_EQ(RestrictionEvaluator::Matches(R::Content(PR_SUBJECT, needle), m),
                      haystack.contains(needle, Qt::CaseInsensitive))
                << haystack.toStdString() << " / " << needle.toStdString();
    }
}

TEST(Restriction, AddChildReferencesStayValid)
{
    Restriction root;
    Restriction& first = root.AddChild(RES_CONTENT);
    for (int i = 0; i < 100; ++i) root.AddChild(RES_EXIST);
    first.value = QStringLiteral("still here");
    EXPECT_EQ(root.children().front().value.toString(), QStringLiteral("still here"));
}

// Identifiers cross the scripting boundary as hex: text that is not strictly
// hex must name nothing (round trips run in tests/outlook).
TEST(MapiUtils, MalformedHexRefused)
{
    EXPECT_EQ(MapiUtils::HexToBinary(QStringLiteral("0aff")), QByteArray("\x0a\xff", 2));
    for (const char* bad : {"ABC", "0G", "0x12", "AB CD", "ÄB", "-1"})
        EXPECT_FALSE(MapiUtils::HexToBinary(QString::fromUtf8(bad)).has_value()) << bad;
}

}  // namespace
}  // namespace mv::mapi

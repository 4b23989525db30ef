#include "platform/mapi/MapiUtils.h"
#include "platform/mapi/Restriction.h"

#include <gtest/gtest.h>

#include <QTimeZone>

namespace mv::mapi {
namespace {

using R = Restriction;

// The engine builds trees node by node; the builders must give the same tree.
TEST(Restriction, NodeByNodeEqualsBuilders)
{
    Restriction root;
    root.Clear();
    Restriction& subject = root.AddChild(RES_CONTENT);
    subject.fuzzyLevel = FL_SUBSTRING | FL_IGNORECASE;
    subject.propTag = PR_SUBJECT;
    subject.value = QStringLiteral("budget");
    Restriction& to = root.AddChild(RES_SUBRESTRICTION);
    to.propTag = PR_MESSAGE_RECIPIENTS;
    Restriction& any = to.AddChild(RES_OR);
    for (const char* term : {"ann", "bob@example.com"}) {
        Restriction& c = any.AddChild(RES_CONTENT);
        c.fuzzyLevel = FL_SUBSTRING | FL_IGNORECASE;
        c.propTag = QString::fromLatin1(term).contains(QLatin1Char('@')) ? PR_EMAIL_ADDRESS : PR_DISPLAY_NAME;
        c.value = QString::fromLatin1(term);
    }
    Restriction& flag = root.AddChild(RES_AND);
    flag.AddChild(R::Property(RELOP_NE, PR_FLAG_STATUS, 1));
    flag.AddChild(R::Property(RELOP_NE, PR_FLAG_STATUS, 2));

    const Restriction built = R::And({
        R::Content(PR_SUBJECT, "budget"),
        R::Sub(PR_MESSAGE_RECIPIENTS,
               R::Or({R::Content(PR_DISPLAY_NAME, "ann"), R::Content(PR_EMAIL_ADDRESS, "bob@example.com")})),
        R::And({R::Property(RELOP_NE, PR_FLAG_STATUS, 1), R::Property(RELOP_NE, PR_FLAG_STATUS, 2)}),
    });
    EXPECT_EQ(root, built);
    EXPECT_EQ(root.ToString(), built.ToString());
}

struct Difference {
    const char* name;
    Restriction a;
    Restriction b;
};
void PrintTo(const Difference& c, std::ostream* os) { *os << c.name; }

class RestrictionDiffers : public ::testing::TestWithParam<Difference> {};

TEST_P(RestrictionDiffers, NotEqual)
{
    EXPECT_FALSE(GetParam().a == GetParam().b);
}

INSTANTIATE_TEST_SUITE_P(
    Trees, RestrictionDiffers,
    ::testing::Values(
        Difference{"Value", R::Content(PR_SUBJECT, "a"), R::Content(PR_SUBJECT, "b")},
        Difference{"Tag", R::Content(PR_SUBJECT, "a"), R::Content(PR_BODY, "a")},
        Difference{"Fuzzy", R::Content(PR_SUBJECT, "a"), R::Content(PR_SUBJECT, "a", FL_SUBSTRING)},
        Difference{"Relop", R::Property(RELOP_EQ, PR_IMPORTANCE, 1), R::Property(RELOP_NE, PR_IMPORTANCE, 1)},
        Difference{"Mask", R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, 1), R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, 2)},
        Difference{"Kind", R::And({}), R::Or({})},
        Difference{"ChildOrder", R::And({R::Exist(PR_SUBJECT), R::Exist(PR_BODY)}),
                   R::And({R::Exist(PR_BODY), R::Exist(PR_SUBJECT)})},
        Difference{"ChildCount", R::And({R::Exist(PR_SUBJECT)}), R::And({R::Exist(PR_SUBJECT), R::Exist(PR_SUBJECT)})}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Restriction, ToStringNamesTagsAndValues)
{
    const QDateTime cutOff(QDate(2026, 1, 2), QTime(3, 4, 5), QTimeZone::utc());
    const Restriction r = R::And({
        R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, cutOff),
        R::Content(PR_SUBJECT, "budget"),
        R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, 1),
        R::Not(R::Exist(0x12340003)),
        R::Sub(PR_MESSAGE_RECIPIENTS, R::Content(PR_EMAIL_ADDRESS, "x@y.z", FL_PREFIX)),
    });
    EXPECT_EQ(r.ToString(),
              QStringLiteral("AND(PROPERTY(PR_MESSAGE_DELIVERY_TIME < 2026-01-02T03:04:05Z), "
                             "CONTENT(PR_SUBJECT ~ \"budget\"), BITMASK(PR_MESSAGE_FLAGS & 0x1 == 0), "
                             "NOT(EXIST(0x12340003)), SUB(PR_MESSAGE_RECIPIENTS: CONTENT(PR_EMAIL_ADDRESS ^= (case) \"x@y.z\")))"));
}

TEST(Restriction, AddChildReferencesStayValid)
{
    Restriction root;
    Restriction& first = root.AddChild(RES_CONTENT);
    for (int i = 0; i < 100; ++i) root.AddChild(RES_EXIST);
    first.value = QStringLiteral("still here");
    EXPECT_EQ(root.children().front().value.toString(), QStringLiteral("still here"));
}

struct HexCase {
    const char* name;
    QByteArray binary;
    QString hex;
};
void PrintTo(const HexCase& c, std::ostream* os) { *os << c.name; }

class HexRoundTrip : public ::testing::TestWithParam<HexCase> {};

TEST_P(HexRoundTrip, BothWays)
{
    EXPECT_EQ(MapiUtils::HrGetHexFromBinary(GetParam().binary), GetParam().hex);
    EXPECT_EQ(MapiUtils::HexToBinary(GetParam().hex), GetParam().binary);
}

INSTANTIATE_TEST_SUITE_P(Identifiers, HexRoundTrip,
                         ::testing::Values(HexCase{"Empty", QByteArray(), QString()},
                                           HexCase{"UpperCaseDigits", QByteArray("\x0a\xff\x00\x1b", 4), "0AFF001B"},
                                           HexCase{"Magic", QByteArray("MVM1"), "4D564D31"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(MapiUtils, HexToBinaryAcceptsLowerCase)
{
    EXPECT_EQ(MapiUtils::HexToBinary(QStringLiteral("0aff")), QByteArray("\x0a\xff", 2));
}

TEST(MapiUtils, HexToBinaryRejectsMalformedText)
{
    for (const char* bad : {"ABC", "0G", "0x12", "AB CD", "ÄB", "-1"})
        EXPECT_FALSE(MapiUtils::HexToBinary(QString::fromUtf8(bad)).has_value()) << bad;
}

}  // namespace
}  // namespace mv::mapi

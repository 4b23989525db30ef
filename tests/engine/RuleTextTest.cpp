#include "engine/RuleText.h"

#include <gtest/gtest.h>

using namespace mv::engine;

struct SplitCase {
    const char* name;
    QString text;
    QStringList expected;
};

class SplitAroundQuotesTest : public ::testing::TestWithParam<SplitCase> {};

TEST_P(SplitAroundQuotesTest, SplitsAtSpacesOutsideQuotes)
{
    EXPECT_EQ(SplitAroundQuotes(GetParam().text, " ", true), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SplitAroundQuotesTest,
    ::testing::Values(
        SplitCase{"WordsAndPhrase", R"(budget "annual report" 2001)", {"budget", "annual report", "2001"}},
        SplitCase{"DoubledSpacesCollapseInsideQuotesToo", "\"annual  report\"  x", {"annual report", "x"}},
        SplitCase{"UnmatchedQuoteProtectsTheRest", "a \"b c d", {"a", "b c d"}},
        SplitCase{"LeadingAndTrailingDelimiterGiveEmptyTerms", " a b ", {"", "a", "b", ""}},
        SplitCase{"QuotesGlueToNeighbours", "x\"y z\"w v", {"xy zw", "v"}},
        SplitCase{"EmptyText", "", {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SplitAroundQuotes, WithoutCollapseKeepsEmptyTermsBetweenDoubledDelimiters)
{
    EXPECT_EQ(SplitAroundQuotes("a  b", " ", false), (QStringList{"a", "", "b"}));
}

struct AddressCase {
    const char* name;
    QString list;
    QStringList array;  // the whole array, trailing unread element included
    QStringList terms;
};

class SplitAddressListTest : public ::testing::TestWithParam<AddressCase> {};

TEST_P(SplitAddressListTest, KeepsPositions)
{
    EXPECT_EQ(SplitAddressList(GetParam().list), GetParam().array);
    EXPECT_EQ(AddressTerms(GetParam().list), GetParam().terms);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SplitAddressListTest,
    ::testing::Values(
        AddressCase{"OneEntryUntrimmed", " a@x.com ", {" a@x.com ", ""}, {" a@x.com "}},
        AddressCase{"TrailingSeparatorTrims", " a@x.com ;", {"a@x.com", ""}, {"a@x.com"}},
        AddressCase{"EmptyMiddleEntryKeepsItsPlace", "a@x.com;;b@y.org", {"a@x.com", "", "b@y.org", ""},
                    {"a@x.com", "", "b@y.org"}},
        AddressCase{"LeadingEmptyEntry", " ;a@x.com", {"", "a@x.com", ""}, {"", "a@x.com"}},
        AddressCase{"TwoEntries", "Ann; Bob", {"Ann", "Bob", ""}, {"Ann", "Bob"}},
        AddressCase{"NothingButSeparators", " ; ;", {}, {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(AddressKinds, SmtpAndExchangeLookalikes)
{
    EXPECT_TRUE(IsSmtpAddress("ann@example.org"));
    EXPECT_FALSE(IsSmtpAddress("ann@localhost"));
    EXPECT_FALSE(IsSmtpAddress("Ann Smith"));
    EXPECT_TRUE(IsExchangeAddress("/o=Org/ou=Site/cn=Recipients/cn=ann"));
    EXPECT_FALSE(IsExchangeAddress("cn=ann"));
    EXPECT_FALSE(IsExchangeAddress("/ou=Site/cn=ann"));
}

#include "engine/RuleText.h"

#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace mv::engine;

TEST(RuleText, SplitAroundQuotes)
{
    const struct {
        const char* name;
        QString text;
        bool collapse;
        QStringList expected;
    } cases[] = {
        {"WordsAndPhrase", R"(budget "annual report" 2001)", true, {"budget", "annual report", "2001"}},
        {"DoubledSpacesCollapseInsideQuotesToo", "\"annual  report\"  x", true, {"annual report", "x"}},
        {"UnmatchedQuoteProtectsTheRest", "a \"b c d", true, {"a", "b c d"}},
        {"LeadingAndTrailingDelimiterGiveEmptyTerms", " a b ", true, {"", "a", "b", ""}},
        {"QuotesGlueToNeighbours", "x\"y z\"w v", true, {"xy zw", "v"}},
        {"EmptyText", "", true, {}},
        {"WithoutCollapseDoubledDelimitersGiveEmptyTerms", "a  b", false, {"a", "", "b"}},
    };
    for (const auto& c : cases) EXPECT_EQ(SplitAroundQuotes(c.text, " ", c.collapse), c.expected) << c.name;
}

TEST(RuleText, AddressListsKeepPositions)
{
    const struct {
        const char* name;
        QString list;
        QStringList array;  // the whole array, trailing unread element included
        QStringList terms;
    } cases[] = {
        {"OneEntryUntrimmed", " a@x.com ", {" a@x.com ", ""}, {" a@x.com "}},
        {"TrailingSeparatorTrims", " a@x.com ;", {"a@x.com", ""}, {"a@x.com"}},
        {"EmptyMiddleEntryKeepsItsPlace", "a@x.com;;b@y.org", {"a@x.com", "", "b@y.org", ""}, {"a@x.com", "", "b@y.org"}},
        {"LeadingEmptyEntry", " ;a@x.com", {"", "a@x.com", ""}, {"", "a@x.com"}},
        {"TwoEntries", "Ann; Bob", {"Ann", "Bob", ""}, {"Ann", "Bob"}},
        {"NothingButSeparators", " ; ;", {}, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(SplitAddressList(c.list), c.array) << c.name;
        EXPECT_EQ(AddressTerms(c.list), c.terms) << c.name;
    }
}

TEST(RuleText, SmtpAndExchangeLookalikes)
{
    EXPECT_TRUE(IsSmtpAddress("ann@example.org"));
    EXPECT_FALSE(IsSmtpAddress("ann@localhost"));
    EXPECT_FALSE(IsSmtpAddress("Ann Smith"));
    EXPECT_TRUE(IsExchangeAddress("/o=Org/ou=Site/cn=Recipients/cn=ann"));
    EXPECT_FALSE(IsExchangeAddress("cn=ann"));
    EXPECT_FALSE(IsExchangeAddress("/ou=Site/cn=ann"));
}

#include "platform/stores/common/HtmlText.h"

#include <gtest/gtest.h>

#include "QtPrinters.h"

using mv::stores::HtmlText;

namespace {

struct HtmlCase {
    const char* name;
    QString html;
    QString text;
};

void PrintTo(const HtmlCase& c, std::ostream* os) { *os << c.name; }

class HtmlToText : public ::testing::TestWithParam<HtmlCase> {};

TEST_P(HtmlToText, Converts) { EXPECT_EQ(HtmlText::ToPlainText(GetParam().html), GetParam().text); }

INSTANTIATE_TEST_SUITE_P(
    Html, HtmlToText,
    ::testing::Values(
        HtmlCase{"WhitespaceCollapses", "  a \n\t b   c ", "a b c"},
        HtmlCase{"Paragraphs", "<p>one</p><p>two</p>", "one\n\ntwo"},
        HtmlCase{"Breaks", "a<br>b<BR/>c", "a\nb\nc"},
        HtmlCase{"AtMostOneBlankLine", "a<br><br><br><br>b", "a\n\nb"},
        HtmlCase{"ScriptAndStyleSkipped", "x<SCRIPT type=a>if (a<b) x()</SCRIPT>y<style>b{}</style>z", "xyz"},
        HtmlCase{"CommentSkipped", "a<!-- <p>hidden</p> -->b", "ab"},
        HtmlCase{"QuotedGreaterThanInAttribute", "<a title=\"x>y\">link</a>", "link"},
        HtmlCase{"Entities", "&lt;tag&gt; &amp; &quot;q&quot; &#65;&#x42; &euro;", "<tag> & \"q\" AB €"},
        HtmlCase{"UnknownEntityKept", "AT&T &bogus; &", "AT&T &bogus; &"},
        HtmlCase{"InvalidNumericEntityKept", "&#xD800; &#0; &#99999999;", "&#xD800; &#0; &#99999999;"},
        HtmlCase{"NbspIsNotCollapsed", "a&nbsp;&nbsp;b", "a  b"},
        HtmlCase{"LessThanAsText", "1 < 2 and 3 > 2", "1 < 2 and 3 > 2"},
        HtmlCase{"PreKeepsLines", "<pre>a  b\nc</pre>", "a  b\nc"},
        HtmlCase{"UnclosedScriptDropsRest", "a<script>never closed", "a"},
        HtmlCase{"UnclosedTag", "a<b", "a"},
        HtmlCase{"TableRows", "<table><tr><td>a</td><td>b</td></tr><tr><td>c</td></tr></table>", "a b\nc"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace

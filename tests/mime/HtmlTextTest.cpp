#include "platform/stores/common/HtmlText.h"

#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

namespace {

TEST(HtmlText, ToPlainText)
{
    const struct {
        const char* name;
        QString html;
        QString text;
    } cases[] = {
        {"WhitespaceCollapses", "  a \n\t b   c ", "a b c"},
        {"Paragraphs", "<p>one</p><p>two</p>", "one\n\ntwo"},
        {"Breaks", "a<br>b<BR/>c", "a\nb\nc"},
        {"AtMostOneBlankLine", "a<br><br><br><br>b", "a\n\nb"},
        {"ScriptAndStyleSkipped", "x<SCRIPT type=a>if (a<b) x()</SCRIPT>y<style>b{}</style>z", "xyz"},
        {"CommentSkipped", "a<!-- <p>hidden</p> -->b", "ab"},
        {"QuotedGreaterThanInAttribute", "<a title=\"x>y\">link</a>", "link"},
        {"Entities", "&lt;tag&gt; &amp; &quot;q&quot; &#65;&#x42; &euro;", "<tag> & \"q\" AB €"},
        {"UnknownEntityKept", "AT&T &bogus; &", "AT&T &bogus; &"},
        {"InvalidNumericEntityKept", "&#xD800; &#0; &#99999999;", "&#xD800; &#0; &#99999999;"},
        {"NbspIsNotCollapsed", "a&nbsp;&nbsp;b", "a  b"},
        {"LessThanAsText", "1 < 2 and 3 > 2", "1 < 2 and 3 > 2"},
        {"PreKeepsLines", "<pre>a  b\nc</pre>", "a  b\nc"},
        {"UnclosedScriptDropsRest", "a<script>never closed", "a"},
        {"UnclosedTag", "a<b", "a"},
        {"TableRows", "<table><tr><td>a</td><td>b</td></tr><tr><td>c</td></tr></table>", "a b\nc"},
    };
    for (const auto& c : cases) EXPECT_EQ(mv::stores::HtmlText::ToPlainText(c.html), c.text) << c.name;
}

}  // namespace

#pragma once
// HTML mail reduced to its display text for PR_BODY: tags dropped, scripts,
// styles and comments skipped, entities decoded, block elements turned into
// line breaks and HTML's whitespace collapsing applied. Not a renderer: the
// result is only ever matched against words or shown as plain text.

#include <QString>

namespace mv::stores {

class HtmlText {
public:
    static QString ToPlainText(const QString& html);
};

}  // namespace mv::stores

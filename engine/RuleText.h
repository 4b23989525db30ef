#pragma once
// The text syntax of rule criteria: address lists separated by ";" and word
// lists separated by spaces with double-quoted phrases. The splitting keeps
// the positions of empty entries on purpose: an empty term is passed on as
// an empty substring, which matches every message that has the property.

#include <QString>
#include <QStringList>

namespace mv::engine {

// Splits at `delimiter` except inside double quotes, then removes the quotes.
// With `collapseRepeats`, doubled delimiters are collapsed first (inside
// quotes too, since quotes are looked at afterwards). An empty text gives an
// empty list.
QStringList SplitAroundQuotes(const QString& text, const QString& delimiter, bool collapseRepeats);

// The address-list array: element 0 is the whole list (untrimmed) when it has
// no ";"; otherwise the trimmed pieces at their own positions, ending with
// one empty element that is never read. So the used elements are 0 to
// size - 2, and a size of 2 means exactly one entry. A list of nothing but
// separators gives an empty array.
QStringList SplitAddressList(const QString& list);

// The entries the engine matches: elements 0 .. upper index - 1 of
// SplitAddressList (with upper index 1 meaning the one entry at 0).
QStringList AddressTerms(const QString& list);

bool IsSmtpAddress(const QString& term);      // has "@" and "."
bool IsExchangeAddress(const QString& term);  // upper case holds "O=", "OU=" and "CN="

}  // namespace mv::engine

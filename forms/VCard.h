#pragma once
// A small reader for the contact files that CardDAV sync tools keep on disk
// (one or more vCards per *.vcf file, versions 3.0 and 4.0). Only what the
// address book shows is read: the formatted name (FN) and every EMAIL.
//
// Reading never changes the file. A card that is cut off (no END) is
// dropped; a file with no complete card at all gives an error for that file
// alone, and the caller goes on with the next one.

#include "platform/common/Error.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

namespace mv::forms {

struct VCardContact {
    QString name;        // FN, unescaped; empty when the card has none
    QStringList emails;  // in file order, without duplicates
};

class VCard {
public:
    // Every card of `text`, in order. Cards without an EMAIL are kept (the
    // caller decides); an error when no complete card is found.
    static Result<std::vector<VCardContact>> Parse(const QByteArray& text);
    static Result<std::vector<VCardContact>> ReadFile(const QString& path);

    // Content lines with folding undone: a line break followed by a space or
    // a tab continues the previous line (RFC 6350 3.2, RFC 2425 5.8.1).
    static QStringList Unfold(const QString& text);
    // "\n", "\,", "\;" and "\\" as the value escapes of RFC 6350 3.4.
    static QString Unescape(const QString& value);
};

}  // namespace mv::forms

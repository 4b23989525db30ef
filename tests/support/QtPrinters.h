#pragma once
// Readable Qt values in GoogleTest's failure messages.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <ostream>

QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }
inline void PrintTo(const QByteArray& b, std::ostream* os) { *os << '"' << b.toStdString() << '"'; }
inline void PrintTo(const QStringList& l, std::ostream* os) { *os << '{' << l.join(QStringLiteral(" | ")).toStdString() << '}'; }
QT_END_NAMESPACE

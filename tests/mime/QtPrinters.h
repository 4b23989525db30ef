#pragma once
// Readable gtest output for Qt strings.

#include <QByteArray>
#include <QString>

#include <ostream>

inline void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }
inline void PrintTo(const QByteArray& bytes, std::ostream* os) { *os << '"' << bytes.toStdString() << '"'; }

#pragma once
// Internal to the provider: binds a Command's Parameters to the "?" marks of
// a prepared statement, in order, each by its ADO type.

#include "Parameter.h"

#include <QString>

#include <vector>

struct sqlite3_stmt;

namespace mv::ado {

class ParameterBinder {
public:
    // Throws AdoError when the counts differ (kErrParameterCount) or a value
    // does not fit its parameter's type (kErrTypeMismatch).
    static void Bind(sqlite3_stmt* st, const std::vector<Parameter>& parameters, const QString& sql);
    // The text a date is stored as: local time, "yyyy-MM-dd HH:mm:ss".
    static QString DateText(const QVariant& value);
};

}  // namespace mv::ado

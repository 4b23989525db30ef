#pragma once
// Puts the tests of another tool's rule into one Rules row, and says which
// tests do not fit. The row can express: a word list per text field whose
// words must all occur (subject, body), an address list per address field
// of which any entry may match (from, to, cc), one code per state field,
// all of these together. So "all of" maps field by field, "any of" only
// where it stays on one address field, and the rest is reported.

#include "engine/RuleRecord.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace mv::importers {

enum class TextField { Subject, From, To, Cc, Body };

// "the field contains any of these keys" (case-insensitive substring).
struct TextTest {
    TextField field;
    QStringList keys;
    QString original;  // the test as the tool wrote it, for the report
    // The tool matches the address part only (Sieve's "address" test).
    bool addressOnly = false;
};

class CriteriaBuilder {
public:
    // Writes into `record`; appends a line to `unmapped` for every test that
    // does not fit. Both must outlive the builder.
    CriteriaBuilder(engine::RuleRecord& record, QStringList& unmapped)
        : m_record(record), m_unmapped(unmapped)
    {
    }

    // Each returns false (and reports) when the test was left out.
    bool AddAll(const TextTest& test);
    bool AddAny(const std::vector<TextTest>& tests, const QString& original);
    bool SetCode(std::optional<int> engine::RuleRecord::*field, int code, const QString& original);

private:
    bool Refuse(const QString& original, const QString& why);

    engine::RuleRecord& m_record;
    QStringList& m_unmapped;
};

}  // namespace mv::importers

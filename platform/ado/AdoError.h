#pragma once
// The one error type of the ado layer. Like ADO's COM errors it carries a
// number, a source and a description; callers in the rule store catch it at
// their boundary and turn it into their own result.

#include <QString>

#include <stdexcept>

namespace mv::ado {

class AdoError : public std::runtime_error {
public:
    AdoError(long number, QString source, QString description, bool temporary = false)
        : std::runtime_error(description.toStdString()),
          m_number(number), m_source(std::move(source)), m_description(std::move(description)),
          m_temporary(temporary) {}

    long Number() const { return m_number; }
    const QString& Source() const { return m_source; }
    const QString& Description() const { return m_description; }
    // True for conditions that may clear by themselves (database locked/busy).
    bool IsTemporary() const { return m_temporary; }

private:
    long m_number;
    QString m_source;
    QString m_description;
    bool m_temporary;
};

// Numbers the provider raises on its own account (ADO/Jet's values where one exists).
inline constexpr long kErrProviderGeneric = static_cast<long>(0x80004005);   // E_FAIL
inline constexpr long kErrNotADatabase = static_cast<long>(0x80004005);
inline constexpr long kErrItemNotFound = static_cast<long>(0x800A0CC1);      // adErrItemNotFound
inline constexpr long kErrNoCurrentRecord = static_cast<long>(0x800A0BCD);   // adErrNoCurrentRecord
inline constexpr long kErrObjectClosed = static_cast<long>(0x800A0E78);      // adErrObjectClosed
inline constexpr long kErrInvalidArgument = static_cast<long>(0x800A0BB9);   // adErrInvalidArgument

}  // namespace mv::ado

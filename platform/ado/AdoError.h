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
inline constexpr long kErrInvalidConnection = static_cast<long>(0x800A0E7D); // adErrInvalidConnection
inline constexpr long kErrObjectOpen = static_cast<long>(0x800A0E79);        // adErrObjectOpen
inline constexpr long kErrInvalidArgument = static_cast<long>(0x800A0BB9);   // adErrInvalidArgument
inline constexpr long kErrBookmarkInvalid = static_cast<long>(0x800A0BB9);
inline constexpr long kErrSyntax = static_cast<long>(0x80040E14);            // DB_E_ERRORSINCOMMAND
inline constexpr long kErrParameterCount = static_cast<long>(0x80040E10);    // DB_E_PARAMNOTOPTIONAL
inline constexpr long kErrTypeMismatch = static_cast<long>(0x80020005);      // DISP_E_TYPEMISMATCH
inline constexpr long kErrIntegrity = static_cast<long>(0x80040E2F);         // DB_E_INTEGRITYVIOLATION
inline constexpr long kErrReadOnly = static_cast<long>(0x80040E09);          // DB_SEC_E_PERMISSIONDENIED
inline constexpr long kErrFileNotFound = static_cast<long>(0x80004005);
inline constexpr long kErrLocked = static_cast<long>(0x80004005);            // temporary

// The source every provider error carries.
inline const QString kProviderSource = QStringLiteral("Mailvane SQLite provider");

}  // namespace mv::ado

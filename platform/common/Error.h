#pragma once
// The status type every platform interface returns at its boundary.
// Temporary failures (server unreachable, database locked) are worth a retry
// on the next run; permanent ones (bad file, bad rule) are not.

#include <QString>

#include <optional>
#include <utility>
#include <variant>

namespace mv {

enum class ErrorKind {
    Temporary,  // try again later: network down, lock held, connection dropped
    Permanent,  // retrying will not help: corrupt file, bad input, refused login
    NotFound,   // the folder, message or file named does not exist (any more)
};

struct Error {
    ErrorKind kind = ErrorKind::Permanent;
    QString message;
    int code = 0;  // backend-specific detail (errno, sqlite code, IMAP code); 0 when none

    static Error temporary(QString text, int c = 0) { return {ErrorKind::Temporary, std::move(text), c}; }
    static Error permanent(QString text, int c = 0) { return {ErrorKind::Permanent, std::move(text), c}; }
    static Error notFound(QString text, int c = 0) { return {ErrorKind::NotFound, std::move(text), c}; }
};

// A value or an error. Deliberately small: no monadic helpers, callers branch.
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_v(std::move(value)) {}           // NOLINT(google-explicit-constructor)
    Result(Error error) : m_v(std::move(error)) {}       // NOLINT(google-explicit-constructor)

    bool ok() const { return std::holds_alternative<T>(m_v); }
    explicit operator bool() const { return ok(); }

    const T& value() const& { return std::get<T>(m_v); }
    T& value() & { return std::get<T>(m_v); }
    T&& value() && { return std::get<T>(std::move(m_v)); }
    const T& operator*() const& { return value(); }
    T& operator*() & { return value(); }
    const T* operator->() const { return &value(); }
    T* operator->() { return &value(); }

    const Error& error() const { return std::get<Error>(m_v); }

private:
    std::variant<T, Error> m_v;
};

// Success or an error, for calls that return nothing.
class [[nodiscard]] Status {
public:
    Status() = default;
    Status(Error error) : m_error(std::move(error)) {}   // NOLINT(google-explicit-constructor)
    static Status success() { return {}; }

    bool ok() const { return !m_error.has_value(); }
    explicit operator bool() const { return ok(); }
    const Error& error() const { return *m_error; }

private:
    std::optional<Error> m_error;
};

}  // namespace mv

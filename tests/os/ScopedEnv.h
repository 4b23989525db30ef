#pragma once
// Sets environment variables for one test and puts them back afterwards.

#include <QByteArray>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <utility>
#include <vector>

class ScopedEnv {
public:
    ScopedEnv() = default;
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;
    ~ScopedEnv()
    {
        for (auto it = m_saved.rbegin(); it != m_saved.rend(); ++it) {
            if (it->second) ::setenv(it->first.constData(), it->second->constData(), 1);
            else ::unsetenv(it->first.constData());
        }
        ::tzset();
    }

    // A null value unsets the variable.
    void Set(const char* name, const char* value)
    {
        const char* old = std::getenv(name);
        m_saved.emplace_back(name, old ? std::optional<QByteArray>(old) : std::nullopt);
        if (value) ::setenv(name, value, 1);
        else ::unsetenv(name);
    }

private:
    std::vector<std::pair<QByteArray, std::optional<QByteArray>>> m_saved;
};

#pragma once
// A logger that keeps its lines, for tests of the layers that log.

#include "Logger.h"

#include <QStringList>

#include <vector>

namespace mv::logging {

class MemoryLogger : public Logger {
public:
    struct Line {
        int level;
        QString source;
        QString text;
        bool operator==(const Line&) const = default;
    };

    void Write(int level, const QString& source, const QString& text) noexcept override
    {
        try {
            m_lines.push_back({level, source, text});
        } catch (...) {
        }
    }

    const std::vector<Line>& lines() const { return m_lines; }
    QStringList texts() const
    {
        QStringList out;
        for (const auto& l : m_lines) out << l.text;
        return out;
    }
    void clear() { m_lines.clear(); }

private:
    std::vector<Line> m_lines;
};

}  // namespace mv::logging

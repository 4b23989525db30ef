#include "SieveParser.h"

#include <stdexcept>

namespace mv::importers {

namespace {

struct Token {
    enum class Kind { End, Identifier, Tag, Number, String, Punct };
    Kind kind = Kind::End;
    QString text;  // identifier/tag name, string value, or the punctuation character
    qint64 number = 0;
    int line = 1;
};

struct SyntaxError : std::runtime_error {
    SyntaxError(int l, const QString& what) : std::runtime_error("sieve"), line(l), message(what) {}
    int line;
    QString message;
};

class Lexer {
public:
    explicit Lexer(const QString& text) : m_s(text) {}

    Token Next()
    {
        SkipSpaceAndComments();
        Token t;
        t.line = m_line;
        if (m_i >= m_s.size()) return t;
        const QChar c = m_s.at(m_i);
        if (c == u'"') {
            t.kind = Token::Kind::String;
            t.text = QuotedString();
        } else if (c.isDigit()) {
            t.kind = Token::Kind::Number;
            t.number = Number();
        } else if (c == u':') {
            ++m_i;
            t.kind = Token::Kind::Tag;
            t.text = Identifier().toLower();
            if (t.text.isEmpty())
                throw SyntaxError(m_line, QStringLiteral("expected a tag name after \":\""));
        } else if (IsIdentStart(c)) {
            const QString word = Identifier();
            if (word.compare(QLatin1String("text"), Qt::CaseInsensitive) == 0 && m_i < m_s.size() &&
                m_s.at(m_i) == u':') {
                ++m_i;
                t.kind = Token::Kind::String;
                t.text = MultiLine();
            } else {
                t.kind = Token::Kind::Identifier;
                t.text = word.toLower();
            }
        } else if (QStringLiteral("[](){},;").contains(c)) {
            ++m_i;
            t.kind = Token::Kind::Punct;
            t.text = c;
        } else {
            throw SyntaxError(m_line, QStringLiteral("unexpected character \"%1\"").arg(c));
        }
        return t;
    }

private:
    static bool IsIdentStart(QChar c) { return c.isLetter() || c == u'_'; }

    void SkipSpaceAndComments()
    {
        while (m_i < m_s.size()) {
            const QChar c = m_s.at(m_i);
            if (c == u'\n') {
                ++m_line;
                ++m_i;
            } else if (c.isSpace()) {
                ++m_i;
            } else if (c == u'#') {
                while (m_i < m_s.size() && m_s.at(m_i) != u'\n') ++m_i;
            } else if (m_s.mid(m_i, 2) == QLatin1String("/*")) {
                const int start = m_line;
                const qsizetype end = m_s.indexOf(QLatin1String("*/"), m_i + 2);
                if (end < 0)
                    throw SyntaxError(start, QStringLiteral("a comment \"/*\" that is never closed"));
                m_line += static_cast<int>(m_s.mid(m_i, end - m_i).count(u'\n'));
                m_i = end + 2;
            } else {
                return;
            }
        }
    }

    QString Identifier()
    {
        const qsizetype start = m_i;
        while (m_i < m_s.size() && (IsIdentStart(m_s.at(m_i)) || m_s.at(m_i).isDigit())) ++m_i;
        return m_s.mid(start, m_i - start);
    }

    qint64 Number()
    {
        const qsizetype start = m_i;
        while (m_i < m_s.size() && m_s.at(m_i).isDigit()) ++m_i;
        bool ok = false;
        qint64 n = m_s.mid(start, m_i - start).toLongLong(&ok);
        if (!ok) throw SyntaxError(m_line, QStringLiteral("a number too large"));
        if (m_i < m_s.size()) {
            static const struct {
                char letter;
                int shift;
            } kUnits[] = {{'k', 10}, {'m', 20}, {'g', 30}};
            for (const auto& u : kUnits)
                if (m_s.at(m_i).toLower() == QLatin1Char(u.letter)) {
                    n <<= u.shift;
                    ++m_i;
                    break;
                }
        }
        return n;
    }

    // RFC 5228 2.4.2: "\\" and "\"" stand for themselves; any other escaped
    // character loses its backslash.
    QString QuotedString()
    {
        const int start = m_line;
        QString out;
        for (++m_i; m_i < m_s.size(); ++m_i) {
            QChar c = m_s.at(m_i);
            if (c == u'"') {
                ++m_i;
                return out;
            }
            if (c == u'\\' && m_i + 1 < m_s.size()) c = m_s.at(++m_i);
            if (c == u'\n') ++m_line;
            out += c;
        }
        throw SyntaxError(start, QStringLiteral("a string that is never closed"));
    }

    // "text:" then spaces and an optional comment to the end of the line;
    // lines up to one holding only "."; a leading ".." loses one dot.
    QString MultiLine()
    {
        const int start = m_line;
        while (m_i < m_s.size() && (m_s.at(m_i) == u' ' || m_s.at(m_i) == u'\t')) ++m_i;
        if (m_i < m_s.size() && m_s.at(m_i) == u'#')
            while (m_i < m_s.size() && m_s.at(m_i) != u'\n') ++m_i;
        if (m_i < m_s.size() && m_s.at(m_i) == u'\r') ++m_i;
        if (m_i >= m_s.size() || m_s.at(m_i) != u'\n')
            throw SyntaxError(m_line, QStringLiteral("expected a line break after \"text:\""));
        ++m_i;
        ++m_line;
        QString out;
        while (m_i < m_s.size()) {
            qsizetype eol = m_s.indexOf(u'\n', m_i);
            if (eol < 0) eol = m_s.size();
            QString line = m_s.mid(m_i, eol - m_i);
            if (line.endsWith(u'\r')) line.chop(1);
            m_i = eol + 1;
            ++m_line;
            if (line == QLatin1String(".")) return out;
            if (line.startsWith(QLatin1String(".."))) line.remove(0, 1);
            out += line + QLatin1String("\r\n");
        }
        throw SyntaxError(start, QStringLiteral("a \"text:\" string without its closing \".\" line"));
    }

    const QString& m_s;
    qsizetype m_i = 0;
    int m_line = 1;
};

class Parser {
public:
    explicit Parser(const QString& text) : m_lexer(text) { Advance(); }

    std::vector<SieveCommand> Commands(bool inBlock)
    {
        std::vector<SieveCommand> commands;
        while (true) {
            if (m_t.kind == Token::Kind::End) {
                if (inBlock)
                    throw SyntaxError(m_t.line,
                                      QStringLiteral("expected \"}\" before the end of the script"));
                return commands;
            }
            if (IsPunct(u'}')) {
                if (!inBlock) throw SyntaxError(m_t.line, QStringLiteral("a \"}\" without its \"{\""));
                return commands;
            }
            commands.push_back(Command());
        }
    }

private:
    void Advance() { m_t = m_lexer.Next(); }
    bool IsPunct(QChar c) const { return m_t.kind == Token::Kind::Punct && m_t.text.at(0) == c; }
    void Expect(QChar c, const char* where)
    {
        if (!IsPunct(c))
            throw SyntaxError(m_t.line,
                              QStringLiteral("expected \"%1\" %2").arg(c).arg(QLatin1String(where)));
        Advance();
    }
    QString Identifier(const char* what)
    {
        if (m_t.kind != Token::Kind::Identifier)
            throw SyntaxError(m_t.line, QStringLiteral("expected %1 name").arg(QLatin1String(what)));
        QString name = m_t.text;
        Advance();
        return name;
    }

    SieveCommand Command()
    {
        SieveCommand c;
        static_cast<SieveTest&>(c) = Test("a command");
        if (IsPunct(u'{')) {
            Advance();
            c.block = Commands(true);
            Expect(u'}', "to close the block");
        } else {
            Expect(u';', "or a block after the command");
        }
        return c;
    }

    // A name, its arguments, then a test list or one nested test.
    SieveTest Test(const char* what = "a test")
    {
        SieveTest t;
        t.line = m_t.line;
        t.name = Identifier(what);
        while (true) {
            SieveArgument a;
            if (m_t.kind == Token::Kind::String) {
                a.strings << m_t.text;
            } else if (m_t.kind == Token::Kind::Number) {
                a.kind = SieveArgument::Kind::Number;
                a.number = m_t.number;
            } else if (m_t.kind == Token::Kind::Tag) {
                a.kind = SieveArgument::Kind::Tag;
                a.tag = m_t.text;
            } else if (IsPunct(u'[')) {
                a.strings = StringList();
                t.arguments.push_back(a);
                continue;
            } else {
                break;
            }
            Advance();
            t.arguments.push_back(a);
        }
        if (IsPunct(u'(')) {
            Advance();
            t.tests.push_back(Test());
            while (IsPunct(u',')) {
                Advance();
                t.tests.push_back(Test());
            }
            Expect(u')', "to close the test list");
        } else if (m_t.kind == Token::Kind::Identifier) {
            t.tests.push_back(Test());
        }
        return t;
    }

    QStringList StringList()
    {
        Advance();  // "["
        QStringList items;
        while (true) {
            if (m_t.kind != Token::Kind::String)
                throw SyntaxError(m_t.line, QStringLiteral("expected a string in the string list"));
            items << m_t.text;
            Advance();
            if (IsPunct(u']')) break;
            Expect(u',', "or \"]\" in the string list");
        }
        Advance();
        return items;
    }

    Lexer m_lexer;
    Token m_t;
};

}  // namespace

Result<std::vector<SieveCommand>> SieveParser::Parse(const QString& script)
{
    try {
        Parser parser(script);
        return parser.Commands(false);
    } catch (const SyntaxError& e) {
        return Error::permanent(QStringLiteral("line %1: %2").arg(e.line).arg(e.message));
    }
}

}  // namespace mv::importers

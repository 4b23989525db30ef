#include "RuleText.h"

namespace mv::engine {

QStringList SplitAroundQuotes(const QString& text, const QString& delimiter, bool collapseRepeats)
{
    if (text.isEmpty()) return {};
    QString work = text;
    if (collapseRepeats && !delimiter.isEmpty()) {
        const QString doubled = delimiter + delimiter;
        while (work.contains(doubled)) work.replace(doubled, delimiter);
    }

    // Pieces at odd positions lie inside quotes: protect their delimiters.
    const QChar protectedMark(0);
    const QChar splitMark(1);
    QStringList pieces = work.split(QLatin1Char('"'));
    for (qsizetype i = 1; i < pieces.size(); i += 2) pieces[i].replace(delimiter, protectedMark);
    work = pieces.join(QLatin1Char('"'));
    work.replace(delimiter, splitMark);
    work.replace(protectedMark, delimiter);

    QStringList terms = work.split(splitMark);
    for (QString& term : terms) term.remove(QLatin1Char('"'));
    return terms;
}

QStringList SplitAddressList(const QString& list)
{
    if (!list.contains(QLatin1Char(';'))) return {list, QString()};

    const QStringList pieces = list.split(QLatin1Char(';'));
    QStringList result;
    for (qsizetype i = 0; i < pieces.size(); ++i) {
        const QString piece = pieces[i].trimmed();
        if (piece.isEmpty()) continue;
        while (result.size() < i + 2) result.append(QString());
        result[i] = piece;
    }
    return result;
}

QStringList AddressTerms(const QString& list)
{
    QStringList all = SplitAddressList(list);
    if (all.isEmpty()) return {};
    all.removeLast();
    return all;
}

bool IsSmtpAddress(const QString& term)
{
    return term.contains(QLatin1Char('@')) && term.contains(QLatin1Char('.'));
}

bool IsExchangeAddress(const QString& term)
{
    const QString upper = term.toUpper();
    return upper.contains(QLatin1String("O=")) && upper.contains(QLatin1String("OU=")) &&
           upper.contains(QLatin1String("CN="));
}

}  // namespace mv::engine

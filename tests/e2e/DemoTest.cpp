// The main job on a fresh data folder: the generated mail gives every active
// sample rule something to move, and a second run finds nothing new.

#include "E2eSupport.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

QStringList ActiveSampleRules()
{
    QFile file(QStringLiteral(MV_SOURCE_DIR "/resources/rules/sample-rules.xml"));
    if (!file.open(QIODevice::ReadOnly)) return {};
    static const QRegularExpression row(
        QStringLiteral(R"(<z:row [^>]*RuleName='([^']+)'[^>]*Active='(-?\d+)')"));
    QStringList names;
    for (auto it = row.globalMatch(QString::fromUtf8(file.readAll())); it.hasNext();)
        if (const auto m = it.next(); m.captured(2) != QLatin1String("0")) names << m.captured(1);
    return names;
}

// "NAME: N moved" per rule of the run report; -1 for a rule it does not list.
int Moved(const QString& out, const QString& rule)
{
    const QRegularExpression line(QStringLiteral("^%1: (\\d+) moved$").arg(QRegularExpression::escape(rule)),
                                  QRegularExpression::MultilineOption);
    const auto m = line.match(out);
    return m.hasMatch() ? m.captured(1).toInt() : -1;
}

TEST(Demo, EverySampleRuleMovesGeneratedMailOnce)
{
    World world({true, false, {}});
    ASSERT_EQ(world.Start(), QString());
    const QStringList rules = ActiveSampleRules();
    ASSERT_FALSE(rules.isEmpty());

    const Result first = world.Run({QStringLiteral("demo")}, 180000);
    ASSERT_EQ(first.code, 0) << first.err.toStdString();
    for (const QString& rule : rules)
        EXPECT_GT(Moved(first.out, rule), 0) << rule.toStdString() << "\n" << first.out.toStdString();

    const Result second = world.Run({QStringLiteral("demo")}, 180000);
    ASSERT_EQ(second.code, 0) << second.err.toStdString();
    for (const QString& rule : rules) EXPECT_EQ(Moved(second.out, rule), 0) << rule.toStdString();
}

}  // namespace
}  // namespace mv::e2e

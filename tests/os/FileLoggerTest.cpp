#include "platform/common/ProgIdRegistry.h"
#include "platform/logging/FileLogging.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>

using namespace mv::logging;
using mv::os::FakeClock;

namespace {

QByteArray ReadAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

class FileLoggerTest : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString path = tmp.filePath(QStringLiteral("mv.log"));
    std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>(QDateTime(QDate(2026, 11, 22), QTime(10, 0, 0, 123)));
};

TEST_F(FileLoggerTest, OneStampedLinePerWriteAppendedToWhatIsThere)
{
    QFile old(path);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write("earlier run\n");
    old.close();
    // Opened by ProgID, as start-up does.
    mv::ProgIdRegistry registry;
    RegisterLogging(registry, clock);
    auto log = registry.Create<cLogging>(QStringLiteral("sqlogging.clogging"))->OpenLog(path);
    log->Write(3, QStringLiteral("InitHandler"), QStringLiteral("Adding new Explorer to collection"));
    clock->AdvanceMSecs(1877);
    log->Write(4, QStringLiteral("btnHelp_Click"), QStringLiteral("Zürich: two\nlines\r\nhere"));

    EXPECT_EQ(ReadAll(path), QByteArray("earlier run\n"
                                        "2026-11-22 10:00:00.123 [3] InitHandler: Adding new Explorer to collection\n"
                                        "2026-11-22 10:00:02.000 [4] btnHelp_Click: Z\xc3\xbcrich: two\\nlines\\nhere\n"));
}

TEST_F(FileLoggerTest, RotatesToOneEarlierGeneration)
{
    const qint64 lineBytes = FileLogger::FormatLine(clock->Now(), 3, "S", "line 0").toUtf8().size() + 1;
    FileLogger log(path, clock, 2 * lineBytes - 1);  // the third line finds the file full
    for (int i = 0; i < 5; ++i) log.Write(3, QStringLiteral("S"), QStringLiteral("line %1").arg(i));

    const QByteArray current = ReadAll(path);
    const QByteArray previous = ReadAll(path + QStringLiteral(".1"));
    EXPECT_TRUE(current.endsWith("line 4\n") && current.count('\n') == 1) << current.constData();
    EXPECT_TRUE(previous.contains("line 2\n") && previous.contains("line 3\n") && previous.count('\n') == 2);
    EXPECT_FALSE(QFileInfo::exists(path + QStringLiteral(".2")));
}

TEST_F(FileLoggerTest, LoggersOnOnePathInterleaveWholeLines)
{
    constexpr int kLines = 400;
    const QString payload(80, QLatin1Char('x'));
    FileLogger a(path, clock), b(path, clock);
    auto writer = [&payload](FileLogger* log) {
        for (int i = 0; i < kLines; ++i) log->Write(3, QStringLiteral("src"), payload);
    };
    std::thread ta(writer, &a), tb(writer, &b);
    ta.join();
    tb.join();

    const QByteArray expected = FileLogger::FormatLine(clock->Now(), 3, "src", payload).toUtf8();
    const QList<QByteArray> lines = ReadAll(path).split('\n');
    ASSERT_EQ(lines.size(), 2 * kLines + 1);  // the last is the empty tail
    for (int i = 0; i < 2 * kLines; ++i) ASSERT_EQ(lines[i], expected) << "line " << i;
}

TEST_F(FileLoggerTest, UnwritablePathsLoseTheLineQuietly)
{
    QFile file(tmp.filePath(QStringLiteral("file")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    // Root writes through permissions, so these fail for every user.
    const QString paths[] = {file.fileName() + QStringLiteral("/mv.log"), tmp.path(),
                             tmp.filePath(QStringLiteral("gone/mv.log")), QString(), QStringLiteral("/dev/full")};
    for (const QString& path : paths) {
        FileLogger log(path, std::make_shared<FakeClock>());
        EXPECT_NO_THROW(log.Write(3, QStringLiteral("src"), QStringLiteral("text"))) << path.toStdString();
    }
    EXPECT_EQ(file.size(), 0);
    EXPECT_FALSE(QFileInfo::exists(tmp.filePath(QStringLiteral("gone"))));
}

}  // namespace

#include "platform/common/ProgIdRegistry.h"
#include "platform/logging/FileLogger.h"
#include "platform/logging/FileLogging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>
#include <unistd.h>

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
    std::shared_ptr<FakeClock> clock =
        std::make_shared<FakeClock>(QDateTime(QDate(2026, 11, 22), QTime(10, 0, 0, 123)));
};

TEST_F(FileLoggerTest, OneStampedLinePerWriteAppendedToWhatIsThere)
{
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("earlier run\n");
    }
    FileLogger log(path, clock);
    log.Write(3, QStringLiteral("InitHandler"), QStringLiteral("Adding new Explorer to collection"));
    clock->AdvanceMSecs(1877);
    log.Write(4, QStringLiteral("btnHelp_Click"), QStringLiteral("Zürich: two\nlines\r\nhere"));

    EXPECT_EQ(ReadAll(path), QByteArray("earlier run\n"
                                        "2026-11-22 10:00:00.123 [3] InitHandler: Adding new Explorer to collection\n"
                                        "2026-11-22 10:00:02.000 [4] btnHelp_Click: Z\xc3\xbcrich: two\\nlines\\nhere\n"));
}

TEST_F(FileLoggerTest, RotatesToOneEarlierGeneration)
{
    const QString line = FileLogger::FormatLine(clock->Now(), 3, QStringLiteral("S"), QStringLiteral("line 0"));
    const qint64 lineBytes = line.toUtf8().size() + 1;
    // Room for two lines: the third write finds the file full.
    FileLogger log(path, clock, 2 * lineBytes - 1);
    for (int i = 0; i < 5; ++i) log.Write(3, QStringLiteral("S"), QStringLiteral("line %1").arg(i));

    const QByteArray current = ReadAll(path);
    const QByteArray previous = ReadAll(path + QStringLiteral(".1"));
    EXPECT_TRUE(current.endsWith("line 4\n"));
    EXPECT_EQ(current.count('\n'), 1);
    EXPECT_TRUE(previous.contains("line 2\n") && previous.contains("line 3\n"));
    EXPECT_EQ(previous.count('\n'), 2);
    EXPECT_FALSE(QFileInfo::exists(path + QStringLiteral(".2")));
}

TEST_F(FileLoggerTest, LoggersOnOnePathInterleaveWholeLines)
{
    constexpr int kLines = 400;
    FileLogger a(path, clock);
    FileLogger b(path, clock);
    auto writer = [](FileLogger& log, const QString& source) {
        for (int i = 0; i < kLines; ++i) log.Write(3, source, QStringLiteral("entry %1 ").arg(i) + QString(80, 'x'));
    };
    std::thread ta(writer, std::ref(a), QStringLiteral("first"));
    std::thread tb(writer, std::ref(b), QStringLiteral("second"));
    ta.join();
    tb.join();

    const QList<QByteArray> lines = ReadAll(path).split('\n');
    ASSERT_EQ(lines.size(), 2 * kLines + 1);  // the last is the empty tail
    int first = 0, second = 0;
    for (int i = 0; i < 2 * kLines; ++i) {
        ASSERT_TRUE(lines[i].startsWith("2026-11-22 10:00:00.123 [3] ")) << lines[i].constData();
        ASSERT_TRUE(lines[i].endsWith(QByteArray(80, 'x'))) << lines[i].constData();
        first += lines[i].contains("] first: ");
        second += lines[i].contains("] second: ");
    }
    EXPECT_EQ(first, kLines);
    EXPECT_EQ(second, kLines);
}

struct BadPath {
    const char* name;
    QString (*make)(const QTemporaryDir&);
};

class UnwritableLog : public ::testing::TestWithParam<BadPath> {};

TEST_P(UnwritableLog, WriteDropsTheLineQuietly)
{
    QTemporaryDir tmp;
    const QString path = GetParam().make(tmp);
    if (path.isNull()) GTEST_SKIP() << "not meaningful for this user";
    FileLogger log(path, std::make_shared<FakeClock>());
    for (int i = 0; i < 3; ++i) EXPECT_NO_THROW(log.Write(3, QStringLiteral("src"), QStringLiteral("text")));
    if (!path.startsWith(QLatin1String("/dev/"))) {
        EXPECT_FALSE(QFileInfo(path).isFile());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Paths, UnwritableLog,
    ::testing::Values(
        BadPath{"ParentIsAFile",
                [](const QTemporaryDir& t) {
                    QFile f(t.filePath(QStringLiteral("file")));
                    (void)f.open(QIODevice::WriteOnly);
                    return t.filePath(QStringLiteral("file/mv.log"));
                }},
        BadPath{"PathIsAFolder", [](const QTemporaryDir& t) { return t.path(); }},
        BadPath{"MissingFolder", [](const QTemporaryDir& t) { return t.filePath(QStringLiteral("gone/mv.log")); }},
        BadPath{"EmptyPath", [](const QTemporaryDir&) { return QStringLiteral(""); }},
        BadPath{"DeviceWithNoSpace", [](const QTemporaryDir&) { return QStringLiteral("/dev/full"); }},
        BadPath{"ReadOnlyFolder",
                [](const QTemporaryDir& t) {
                    // Root writes through permissions; only other users can test this.
                    if (::geteuid() == 0) return QString();
                    QFile::setPermissions(t.path(), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
                    return t.filePath(QStringLiteral("mv.log"));
                }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(LoggingComponent, CreatedByProgIdWritesThroughTheGivenClock)
{
    QTemporaryDir tmp;
    mv::ProgIdRegistry registry;
    EXPECT_EQ(registry.Create<cLogging>(QStringLiteral("SQLOGGING.cLogging")), nullptr);

    auto clock = std::make_shared<FakeClock>(QDateTime(QDate(2026, 11, 22), QTime(23, 59, 59, 999)));
    RegisterLogging(registry, clock);
    auto component = registry.Create<cLogging>(QStringLiteral("sqlogging.clogging"));
    ASSERT_NE(component, nullptr);
    const QString path = tmp.filePath(QStringLiteral("mv.log"));
    auto log = component->OpenLog(path);
    ASSERT_NE(log, nullptr);
    log->Write(3, QStringLiteral("RunImmediateRules"), QStringLiteral("Top Entry point"));
    EXPECT_EQ(ReadAll(path), QByteArray("2026-11-22 23:59:59.999 [3] RunImmediateRules: Top Entry point\n"));

    // A log that cannot be opened still gives a logger.
    EXPECT_NE(component->OpenLog(tmp.filePath(QStringLiteral("no/such/dir/mv.log"))), nullptr);
}

}  // namespace

#include "platform/os/Shell.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using mv::ErrorKind;
using mv::os::Shell;

namespace {

TEST(ShellOpen, ChecksWhatItIsGivenBeforeStartingTheOpener)
{
    QTemporaryDir tmp;
    const Shell shell(QStringLiteral("true"));
    EXPECT_TRUE(shell.Open(tmp.path()).ok());
    EXPECT_TRUE(shell.Open(QStringLiteral("https://example.invalid/manual/index.html#rules")).ok());
    EXPECT_TRUE(shell.Open(QStringLiteral("mailto:support@example.invalid")).ok());

    const auto missing = shell.Open(tmp.filePath(QStringLiteral("Mailvane.html")));
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().kind, ErrorKind::NotFound);
    EXPECT_FALSE(shell.Open(QStringLiteral("  ")).ok());
}

TEST(ShellOpen, OpenerThatCannotStartGivesTheReason)
{
    QTemporaryDir tmp;
    const Shell shell(tmp.filePath(QStringLiteral("no-such-opener")));
    const auto st = shell.Open(tmp.path());
    ASSERT_FALSE(st.ok());
    EXPECT_EQ(st.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(st.error().message.contains(QStringLiteral("no-such-opener")));
}

TEST(ShellRun, ExitCodeOutputAndFailures)
{
    const Shell shell;
    auto done = shell.Run(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("echo out; echo err >&2; exit 3")});
    ASSERT_TRUE(done.ok()) << done.error().message.toStdString();
    EXPECT_EQ(done->exitCode, 3);
    EXPECT_FALSE(done->crashed);
    EXPECT_EQ(done->out, "out\n");
    EXPECT_EQ(done->err, "err\n");

    auto missing = shell.Run(QStringLiteral("/nonexistent/update"));
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().kind, ErrorKind::Permanent);

    // A program that outlives the timeout is killed, and that may be worth a retry.
    auto hung = shell.Run(QStringLiteral("sleep"), {QStringLiteral("30")}, 200);
    ASSERT_FALSE(hung.ok());
    EXPECT_EQ(hung.error().kind, ErrorKind::Temporary);
}

}  // namespace

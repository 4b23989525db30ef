#include "platform/os/Shell.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using mv::ErrorKind;
using mv::os::Shell;

namespace {

TEST(Shell, OpenChecksPathsButPassesUrlsOn)
{
    QTemporaryDir tmp;
    const Shell shell(QStringLiteral("true"));
    EXPECT_TRUE(shell.Open(tmp.path()).ok());
    EXPECT_TRUE(shell.Open(QStringLiteral("https://example.invalid/manual/index.html#rules")).ok());
    EXPECT_EQ(shell.Open(tmp.filePath(QStringLiteral("Mailvane.html"))).error().kind, ErrorKind::NotFound);
    EXPECT_FALSE(shell.Open(QStringLiteral("  ")).ok());

    const auto st = Shell(tmp.filePath(QStringLiteral("no-such-opener"))).Open(tmp.path());
    ASSERT_FALSE(st.ok());
    EXPECT_TRUE(st.error().message.contains(QStringLiteral("no-such-opener")));
}

TEST(Shell, RunGivesExitCodeAndOutputOrTheFailure)
{
    const Shell shell;
    auto done = shell.Run(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("echo out; echo err >&2; exit 3")});
    ASSERT_TRUE(done.ok()) << done.error().message.toStdString();
    EXPECT_EQ(done->exitCode, 3);
    EXPECT_EQ(done->out, "out\n");
    EXPECT_EQ(done->err, "err\n");
    EXPECT_EQ(shell.Run(QStringLiteral("/nonexistent/update")).error().kind, ErrorKind::Permanent);
    // Killed after the timeout; worth trying again later.
    EXPECT_EQ(shell.Run(QStringLiteral("sleep"), {QStringLiteral("30")}, 200).error().kind, ErrorKind::Temporary);
}

}  // namespace

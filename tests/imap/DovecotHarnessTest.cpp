#include "tests/support/dovecot/DovecotServer.h"

#include <QTcpSocket>

#include <gtest/gtest.h>

using mv::test::DovecotOptions;
using mv::test::DovecotServer;

namespace {

QByteArray Greeting(quint16 port)
{
    QTcpSocket s;
    s.connectToHost(QStringLiteral("127.0.0.1"), port);
    if (!s.waitForConnected(3000) || !s.waitForReadyRead(3000)) return {};
    return s.readLine();
}

}  // namespace

TEST(DovecotHarness, StartsGreetsAndStops)
{
    if (!DovecotServer::Available()) GTEST_SKIP() << DovecotServer::BinaryPath().toStdString() << " is missing";
    quint16 port = 0;
    {
        DovecotServer server;
        QString error;
        ASSERT_TRUE(server.Start(&error)) << error.toStdString();
        port = server.Port();
        EXPECT_TRUE(Greeting(port).startsWith("* OK")) << server.LogText().toStdString();
    }
    QTcpSocket s;
    s.connectToHost(QStringLiteral("127.0.0.1"), port);
    EXPECT_FALSE(s.waitForConnected(500)) << "the server outlived its harness";
}

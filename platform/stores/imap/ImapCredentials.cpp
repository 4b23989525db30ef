#include "ImapCredentials.h"

#include "ImapConnection.h"

#include <QProcess>

namespace mv::stores {

ImapCredentials::ImapCredentials(ImapSettings settings)
    : m_settings(std::move(settings)),
      m_account(QStringLiteral("%1@%2").arg(m_settings.user, m_settings.host))
{
}

Result<QString> ImapCredentials::Run() const
{
    const QString& command = IsToken() ? m_settings.tokenCommand : m_settings.passwordCommand;
    const QString what = IsToken() ? QStringLiteral("token command") : QStringLiteral("password command");
    if (command.isEmpty()) {
        if (IsToken())
            return Error::permanent(QStringLiteral("no token command is set for %1").arg(m_account));
        return m_settings.password;
    }
    QProcess process;
    process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
    if (!process.waitForFinished(m_settings.timeoutSeconds * 1000) ||
        process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        process.kill();
        process.waitForFinished(1000);
        // The command's output may hold the secret: never part of the message.
        return Error::permanent(QStringLiteral("the %1 for %2 failed (exit code %3)")
                                    .arg(what, m_account)
                                    .arg(process.exitCode()));
    }
    const QByteArray out = process.readAllStandardOutput();
    const qsizetype nl = out.indexOf('\n');
    const QString secret = QString::fromUtf8(nl < 0 ? out : out.left(nl)).remove(QLatin1Char('\r'));
    // An empty password may be meant; an empty token never is.
    if (IsToken() && secret.trimmed().isEmpty())
        return Error::permanent(
            QStringLiteral("the %1 for %2 printed no token on its first line").arg(what, m_account));
    return IsToken() ? secret.trimmed() : secret;
}

Result<QString> ImapCredentials::Secret()
{
    std::lock_guard lock(m_mutex);
    if (m_secret) return *m_secret;
    auto secret = Run();
    if (secret) m_secret = *secret;
    return secret;
}

Result<QString> ImapCredentials::Renew(const QString& rejected)
{
    std::lock_guard lock(m_mutex);
    if (m_secret && *m_secret != rejected) return *m_secret;
    m_secret.reset();
    auto fresh = Run();
    if (fresh) m_secret = *fresh;
    return fresh;
}

Result<std::unique_ptr<ImapConnection>> ImapCredentials::Open(const Opener& open)
{
    auto secret = Secret();
    if (!secret) return secret.error();
    auto opened = open(*secret);
    if (opened || !IsToken() || !ImapConnection::IsTokenRejected(opened.error())) return opened;
    auto fresh = Renew(*secret);
    if (!fresh) return fresh.error();
    opened = open(*fresh);
    if (opened || !ImapConnection::IsTokenRejected(opened.error())) return opened;
    return Error::permanent(QStringLiteral("%1; a fresh token from the token command was refused too")
                                .arg(opened.error().message),
                            ImapConnection::kLoginRefused);
}

}  // namespace mv::stores

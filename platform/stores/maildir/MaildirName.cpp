#include "MaildirName.h"

#include <atomic>
#include <unistd.h>

namespace mv::stores::maildir {

MaildirName MaildirName::Parse(const QString& fileName)
{
    MaildirName n;
    const qsizetype colon = fileName.indexOf(QLatin1Char(':'));
    if (colon < 0) {
        n.unique = fileName;
        return n;
    }
    n.unique = fileName.left(colon);
    if (fileName.mid(colon, 3) == QLatin1String(":2,")) {
        n.hasInfo = true;
        n.info = fileName.mid(colon + 3);
    }
    return n;
}

QString MaildirName::FileName() const
{
    return unique + QLatin1String(":2,") + info;
}

QDateTime MaildirName::DeliveryTime(const QString& unique)
{
    qsizetype digits = 0;
    while (digits < unique.size() && digits < 12 && unique.at(digits).isDigit()) ++digits;
    // Seconds are only meaningful when a separator follows them.
    if (digits == 0 || (digits < unique.size() && unique.at(digits) != QLatin1Char('.'))) return {};
    return QDateTime::fromSecsSinceEpoch(unique.left(digits).toLongLong(), Qt::UTC);
}

QString MaildirName::NewUnique(const QDateTime& delivered)
{
    static std::atomic<unsigned> counter{0};
    char buf[256] = {};
    ::gethostname(buf, sizeof buf - 1);
    QString host = QString::fromLocal8Bit(buf);
    // '/' and ':' would break the name; Maildir writers escape them as octal.
    host.replace(QLatin1Char('/'), QLatin1String("\\057")).replace(QLatin1Char(':'), QLatin1String("\\072"));
    if (host.isEmpty()) host = QStringLiteral("localhost");
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QDateTime at = delivered.isValid() ? delivered : now;
    return QStringLiteral("%1.M%2P%3Q%4.%5")
        .arg(at.toSecsSinceEpoch())
        .arg(now.time().msec() * 1000)
        .arg(::getpid())
        .arg(++counter)
        .arg(host);
}

}  // namespace mv::stores::maildir

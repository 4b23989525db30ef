#include "MaildirKeywords.h"

#include <QFile>
#include <QSaveFile>

namespace mv::stores::maildir {

namespace {
QString FileOf(const QString& folderDir)
{
    return folderDir + QLatin1String("/dovecot-keywords");
}
}  // namespace

Result<QStringList> MaildirKeywords::Load(const QString& folderDir)
{
    QFile file(FileOf(folderDir));
    if (!file.exists()) return QStringList();
    if (!file.open(QIODevice::ReadOnly))
        return Error::temporary(QStringLiteral("Cannot read %1: %2").arg(file.fileName(), file.errorString()));
    QStringList list;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        const qsizetype space = line.indexOf(QLatin1Char(' '));
        if (space <= 0) continue;
        bool ok = false;
        const int index = line.left(space).toInt(&ok);
        if (!ok || index < 0 || index >= kMaxKeywords) continue;
        while (list.size() <= index) list.append(QString());
        list[index] = line.mid(space + 1);
    }
    return list;
}

Status MaildirKeywords::Save(const QString& folderDir, const QStringList& keywords)
{
    QSaveFile file(FileOf(folderDir));
    if (!file.open(QIODevice::WriteOnly))
        return Error::permanent(QStringLiteral("Cannot write %1: %2").arg(file.fileName(), file.errorString()));
    for (int i = 0; i < keywords.size() && i < kMaxKeywords; ++i) {
        if (keywords.at(i).isEmpty()) continue;
        file.write(QByteArray::number(i) + ' ' + keywords.at(i).toUtf8() + '\n');
    }
    if (!file.commit())
        return Error::permanent(QStringLiteral("Cannot write %1: %2").arg(file.fileName(), file.errorString()));
    return Status::success();
}

}  // namespace mv::stores::maildir

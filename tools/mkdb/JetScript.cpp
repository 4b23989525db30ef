#include "JetScript.h"

#include "platform/ado/AdoError.h"
#include "platform/ado/Connection.h"
#include "platform/ado/Recordset.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <sqlite3.h>

#include <cstdio>

namespace mv::tools {

QStringList SplitJetScript(const QString& script)
{
    QStringList statements;
    QString current;
    const auto lines = script.split(u'\n');
    for (QString line : lines) {
        line.remove(u'\r');
        const QString trimmed = line.trimmed();
        if (trimmed.isEmpty() || trimmed.startsWith(QLatin1String("--"))) continue;
        if (!current.isEmpty()) current += u'\n';
        if (trimmed.endsWith(u';')) {
            current += trimmed.chopped(1);
            statements << current.trimmed();
            current.clear();
        } else {
            current += trimmed;
        }
    }
    if (!current.trimmed().isEmpty()) statements << current.trimmed();
    return statements;
}

namespace {

// The provider never creates a file; SQLite makes an empty one here and the
// application id is written so the file has a header page.
QString CreateEmptyDatabase(const QString& path)
{
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &db,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_exec(db, "PRAGMA application_id = 1297500738", nullptr, nullptr, nullptr);
    QString error;
    if (rc != SQLITE_OK) error = QString::fromUtf8(db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
    sqlite3_close(db);
    return error;
}

}  // namespace

QString BuildDatabase(const QString& scriptPath, const QString& outputPath)
{
    QFile script(scriptPath);
    if (!script.open(QIODevice::ReadOnly | QIODevice::Text))
        return QStringLiteral("cannot read %1: %2").arg(scriptPath, script.errorString());
    const QStringList statements = SplitJetScript(QString::fromUtf8(script.readAll()));

    QTemporaryFile temp(QFileInfo(outputPath).absolutePath() + QStringLiteral("/.mkdb-XXXXXX"));
    if (!temp.open()) return QStringLiteral("cannot create a file beside %1: %2").arg(outputPath, temp.errorString());
    temp.close();
    if (QString e = CreateEmptyDatabase(temp.fileName()); !e.isEmpty())
        return QStringLiteral("cannot create %1: %2").arg(temp.fileName(), e);

    int index = 0;
    try {
        ado::Connection conn;
        conn.Open(QStringLiteral("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1;").arg(temp.fileName()));
        for (const QString& sql : statements) {
            ++index;
            conn.Execute(sql, ado::adExecuteNoRecords);
        }
        conn.Close();
    } catch (const ado::AdoError& e) {
        return QStringLiteral("%1: statement %2 failed: %3\n%4")
            .arg(scriptPath)
            .arg(index)
            .arg(e.Description(), index > 0 ? statements.at(index - 1) : QString());
    }
    // rename(2) replaces the output atomically; QFile::rename would refuse.
    if (std::rename(QFile::encodeName(temp.fileName()).constData(), QFile::encodeName(outputPath).constData()) != 0)
        return QStringLiteral("cannot rename %1 to %2").arg(temp.fileName(), outputPath);
    temp.setAutoRemove(false);
    // A temporary file is private to its owner; a shipped template is not.
    QFile::setPermissions(outputPath, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    return {};
}

}  // namespace mv::tools

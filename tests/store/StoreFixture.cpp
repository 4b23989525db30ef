#include "StoreFixture.h"

#include <QDir>
#include <QFile>

#include <sqlite3.h>

namespace mv::test {

QString Query(const QString& path, const QString& sql)
{
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return QStringLiteral("<cannot open>");
    }
    sqlite3_busy_timeout(db, 2000);
    sqlite3_stmt* stmt = nullptr;
    QStringList rows;
    if (sqlite3_prepare_v2(db, sql.toUtf8().constData(), -1, &stmt, nullptr) != SQLITE_OK) {
        rows << QStringLiteral("<error: %1>").arg(QString::fromUtf8(sqlite3_errmsg(db)));
    } else {
        while (sqlite3_step(stmt) == SQLITE_ROW) {
            QStringList cols;
            for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
                if (sqlite3_column_type(stmt, i) == SQLITE_NULL)
                    cols << QStringLiteral("NULL");
                else
                    cols << QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(stmt, i)));
            }
            rows << cols.join(u'|');
        }
    }
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return rows.join(u'\n');
}

QString Columns(const QString& path, const QString& table)
{
    QString rows = Query(path, QStringLiteral("SELECT name, type FROM pragma_table_info('%1')").arg(table));
    return rows.replace(u'|', u' ').replace(u'\n', QStringLiteral(", "));
}

QByteArray FileBytes(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return {};
    return f.readAll();
}

void WriteBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    EXPECT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size()) << path.toStdString();
}

StoreTest::StoreTest()
{
    store::RegisterAdoProgIds(m_progIds);
}

QString StoreTest::CopyDatabase(const QString& name, const QString& fileName)
{
    const QString target = m_dir.filePath(fileName);
    const QString source = BuiltDatabase(name);
    EXPECT_TRUE(QFile::copy(source, target)) << "copy " << source.toStdString();
    QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner);
    return target;
}

std::unique_ptr<store::cDB> StoreTest::Open(const QString& path)
{
    auto db = std::make_unique<store::cDB>(m_progIds, m_report, m_dir.path());
    EXPECT_TRUE(db->InitDB(path, QStringLiteral("admin"), QString(), QString(), store::kConnectJet))
        << db->LastErrorDescription().toStdString();
    return db;
}

std::unique_ptr<ado::Command> Prepared(const QString& sql, const std::vector<QVariant>& values)
{
    auto cmd = std::make_unique<ado::Command>();
    cmd->SetCommandType(ado::adCmdText);
    cmd->SetCommandText(sql);
    int n = 0;
    for (const QVariant& v : values) {
        const QString name = QStringLiteral("p%1").arg(++n);
        if (v.typeId() == QMetaType::Int)
            cmd->AppendParameter(cmd->CreateParameter(name, ado::adInteger, ado::adParamInput, 10, v));
        else if (v.isNull())
            cmd->AppendParameter(cmd->CreateParameter(name, ado::adVarWChar, ado::adParamInput, 1, v));
        else
            cmd->AppendParameter(cmd->CreateParameter(name, ado::adVarWChar, ado::adParamInput,
                                                      static_cast<long>(v.toString().size()) + 1, v));
    }
    return cmd;
}

}  // namespace mv::test

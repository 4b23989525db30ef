#include "RulePropsFixture.h"

#include "platform/outlook/OutlookConstants.h"
#include "store/AdoProgIds.h"

#include <QFile>

#include <sqlite3.h>

namespace mv::test {

void RulePropsFixture::SetUp()
{
    ASSERT_TRUE(m_tmp.isValid());
    m_dbPath = m_tmp.filePath(QStringLiteral("mv.mdb"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(MV_BINARY_DIR "/Database/_mvblank.mdb"), m_dbPath));
    QFile::setPermissions(m_dbPath, QFile::ReadOwner | QFile::WriteOwner);
    store::RegisterAdoProgIds(m_progIds);
    m_report = std::make_unique<os::ErrorReport>(m_answerer);
    m_db = std::make_unique<store::cDB>(m_progIds, *m_report, m_tmp.path());
    ASSERT_TRUE(m_db->InitDB(m_dbPath, {}, {}, m_tmp.path(), store::kConnectJet));

    m_store = std::make_unique<stores::MemoryStore>();
    m_ns = std::make_unique<outlook::StoreNameSpace>(std::vector<mapi::MessageStore*>{m_store.get()});
    m_inbox = m_ns->GetDefaultFolder(outlook::olFolderInbox);
    ASSERT_TRUE(m_inbox);
    for (auto& f : m_ns->Folders()) {
        if (f->Name() == QLatin1String("Archive")) m_archive = std::move(f);
    }
    if (!m_archive) {
        for (auto& f : m_inbox->Folders())
            if (f->Name() == QLatin1String("Archive")) m_archive = std::move(f);
    }
    ASSERT_TRUE(m_archive);
}

void RulePropsFixture::TearDown()
{
    int reports = 0;
    for (const auto& shown : m_answerer.shown())
        if (shown.title == os::ErrorReport::Title()) ++reports;
    EXPECT_EQ(reports, m_expectedReports) << m_answerer.texts().join(QStringLiteral(" | ")).toStdString();
    if (m_db) m_db->KillDB();
}

std::unique_ptr<forms::frmRuleProps> RulePropsFixture::Open(const QString& action, int ruleId,
                                                             const QString& hostVersion, bool load)
{
    forms::RulePropsContext ctx{*m_db, *m_ns, m_picker, m_contacts, m_answerer, *m_report,
                                hostVersion, QStringLiteral("Mailvane"), m_tmp.path(), nullptr};
    auto form = std::make_unique<forms::frmRuleProps>(ctx);
    form->Action = action;
    form->RuleID = static_cast<std::int16_t>(ruleId);
    if (load) form->Form_Load();
    return form;
}

void RulePropsFixture::FillRequired(forms::frmRuleProps& form)
{
    SetText(form, "txtRuleName", QStringLiteral("A rule"));
    m_picker.answers.push_back(m_ns->GetFolderFromID(m_inbox->EntryID(), m_inbox->StoreID()));
    m_picker.answers.push_back(m_ns->GetFolderFromID(m_archive->EntryID(), m_archive->StoreID()));
    Click(form, "btnSrcFolderBrowse");
    Click(form, "btnDstFolderBrowse");
}

void RulePropsFixture::Choose(forms::frmRuleProps& form, const char* list, const QString& label)
{
    QComboBox* box = Find<QComboBox>(form, list);
    const int index = box->findText(label);
    ASSERT_GE(index, 0) << list << " has no " << label.toStdString();
    box->setCurrentIndex(index);
}

void RulePropsFixture::Sql(const QString& statement)
{
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(m_dbPath.toUtf8().constData(), &db), SQLITE_OK);
    char* error = nullptr;
    const int rc = sqlite3_exec(db, statement.toUtf8().constData(), nullptr, nullptr, &error);
    const std::string message = error ? error : "";
    sqlite3_free(error);
    sqlite3_close(db);
    ASSERT_EQ(rc, SQLITE_OK) << message;
}

QList<QVariantMap> RulePropsFixture::Rows(const QString& sql)
{
    QList<QVariantMap> rows;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(m_dbPath.toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        ADD_FAILURE() << "cannot open " << m_dbPath.toStdString();
        return rows;
    }
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql.toUtf8().constData(), -1, &stmt, nullptr) != SQLITE_OK) {
        ADD_FAILURE() << sqlite3_errmsg(db);
        sqlite3_close(db);
        return rows;
    }
    while (sqlite3_step(stmt) == SQLITE_ROW) {
        QVariantMap row;
        for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
            const QString name = QString::fromUtf8(sqlite3_column_name(stmt, i));
            switch (sqlite3_column_type(stmt, i)) {
            case SQLITE_NULL: row.insert(name, QVariant()); break;
            case SQLITE_INTEGER: row.insert(name, sqlite3_column_int64(stmt, i)); break;
            default:
                row.insert(name, QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(stmt, i))));
            }
        }
        rows.push_back(row);
    }
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return rows;
}

int RulePropsFixture::AddRule(const QString& name, const QString& extraColumns, const QString& extraValues)
{
    const QString columns = QStringLiteral("RuleName, SrcEntryID, SrcStoreID, DstEntryID, DstStoreID, SortID") +
                            (extraColumns.isEmpty() ? QString() : QStringLiteral(", ") + extraColumns);
    const QString values = QStringLiteral("'%1', '%2', '%3', '%4', '%5', %6")
                               .arg(name, m_inbox->EntryID(), m_inbox->StoreID(), m_archive->EntryID(),
                                    m_archive->StoreID())
                               .arg(RuleCount() + 1) +
                           (extraValues.isEmpty() ? QString() : QStringLiteral(", ") + extraValues);
    Sql(QStringLiteral("INSERT INTO Rules (%1) VALUES (%2)").arg(columns, values));
    const auto rows = Rows(QStringLiteral("SELECT MAX(RuleID) AS id FROM Rules"));
    return rows.isEmpty() ? 0 : rows.front().value(QStringLiteral("id")).toInt();
}

}  // namespace mv::test

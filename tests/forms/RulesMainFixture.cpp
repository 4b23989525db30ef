#include "RulesMainFixture.h"

#include "platform/ado/AdoConstants.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/mapi/PropTags.h"
#include "platform/outlook/SafeLib.h"
#include "store/AdoProgIds.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sqlite3.h>

namespace mv::test {

namespace {

class SilentStatusForm final : public engine::StatusForm {
public:
    void Show() override {}
    void SetRuleName(const QString&) override {}
    void SetProgress(int, int) override {}
    void Hide() override {}
};

}  // namespace

void RulesMainFixture::SetUp()
{
    ASSERT_TRUE(m_tmp.isValid());
    store::RegisterAdoProgIds(m_progIds);
    outlook::RegisterSafeLib(m_progIds);
    m_p = MakeProfile(QStringLiteral("first"));
    ASSERT_TRUE(m_p && m_p->addIn->DB1());
}

void RulesMainFixture::TearDown()
{
    int reports = 0;
    for (const auto& shown : m_answerer.shown())
        if (shown.title == os::ErrorReport::Title()) ++reports;
    EXPECT_EQ(reports, m_expectedReports) << m_answerer.texts().join(QStringLiteral(" | ")).toStdString();
    for (const auto& box : m_answerer.unanswered()) ADD_FAILURE() << "unanswered: " << box.text.toStdString();
    if (m_p) m_p->addIn->CloseDatabases();
}

std::unique_ptr<Profile> RulesMainFixture::MakeProfile(const QString& name)
{
    auto p = std::make_unique<Profile>();
    p->dir = m_tmp.filePath(name);
    QDir().mkpath(p->dir + QStringLiteral("/install"));
    p->dbPath = p->dir + QStringLiteral("/mv.mdb");
    EXPECT_TRUE(QFile::copy(QStringLiteral(MV_BINARY_DIR "/Database/_mvblank.mdb"), p->dbPath));
    QFile::setPermissions(p->dbPath, QFile::ReadOwner | QFile::WriteOwner);

    const QString root = p->dir + QStringLiteral("/Mail");
    for (const char* sub : {"cur", "new", "tmp"}) QDir().mkpath(root + QLatin1Char('/') + QLatin1String(sub));
    stores::maildir::MaildirStoreOptions options;
    options.indexPath = p->dir + QStringLiteral("/cache/index.sqlite");
    options.watch = false;
    p->store = std::make_unique<stores::maildir::MaildirStore>(root, options);
    EXPECT_TRUE(p->store->CreateFolder({}, QStringLiteral("Archive")).ok());
    p->ns = std::make_unique<outlook::StoreNameSpace>(std::vector<mapi::MessageStore*>{p->store.get()});

    p->addIn = std::make_unique<addin::OutAddIn>(m_report, nullptr, m_progIds, m_clock,
                                                 p->dir + QStringLiteral("/install"));
    EXPECT_TRUE(p->addIn->OpenDatabases(p->dbPath));
    p->exec = std::make_unique<engine::RuleExecutor>(*p->ns, m_progIds, m_report, m_clock, m_zone);
    engine::RunnerHooks hooks;
    Profile* raw = p.get();
    hooks.database = [raw] { return raw->addIn->DB1(); };
    hooks.createStatusForm = [] { return std::make_unique<SilentStatusForm>(); };
    hooks.mainFormExists = [] { return true; };
    hooks.processEvents = [] {};
    p->runner = std::make_unique<engine::RuleRunner>(*p->exec, m_report, nullptr, hooks, m_cancel);
    p->addIn->SetRunner(p->runner.get());
    return p;
}

std::unique_ptr<forms::frmRulesMain> RulesMainFixture::Open(Profile* profile)
{
    Profile& p = profile ? *profile : *m_p;
    forms::RulesMainContext ctx{*p.addIn, p.ns.get(), m_picker, m_contacts, m_answerer, m_report, m_files};
    ctx.shell = m_shell;
    ctx.runModal = [this](QDialog& dialog) {
        if (onModal)
            onModal(dialog);
        else
            ADD_FAILURE() << "modal dialog nobody expected: " << dialog.objectName().toStdString();
    };
    auto form = std::make_unique<forms::frmRulesMain>(ctx);
    form->Form_Load();
    form->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(form.get()));
    return form;
}

int RulesMainFixture::AddRule(const QString& name, int sortId, bool active, const QString& subject,
                              Profile* profile)
{
    Profile& p = profile ? *profile : *m_p;
    const QString storeHex = mapi::MapiUtils::HrGetHexFromBinary(p.store->StoreId());
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(p.dbPath.toUtf8().constData(), &db), SQLITE_OK);
    sqlite3_stmt* stmt = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(
                  db,
                  "INSERT INTO Rules (RuleName, FromAddress, ToAddress, CcAddress, Subject, Importance, "
                  "Status, FlagStatus, MsgAgeID, SrcEntryID, SrcStoreID, DstEntryID, DstStoreID, "
                  "Active, SortID, LastVerb, Message) VALUES (?, '', '', '', ?, 3, 2, 0, 13, "
                  "?, ?, ?, ?, ?, ?, 0, '')",
                  -1, &stmt, nullptr),
              SQLITE_OK);
    const QByteArray values[] = {name.toUtf8(),
                                 subject.toUtf8(),
                                 FolderHex(QStringLiteral("Inbox"), &p).toUtf8(),
                                 storeHex.toUtf8(),
                                 FolderHex(QStringLiteral("Archive"), &p).toUtf8(),
                                 storeHex.toUtf8()};
    int i = 1;
    for (const QByteArray& v : values)
        sqlite3_bind_text(stmt, i++, v.constData(), int(v.size()), SQLITE_TRANSIENT);
    sqlite3_bind_int(stmt, i++, active ? -1 : 0);
    sqlite3_bind_int(stmt, i++, sortId);
    EXPECT_EQ(sqlite3_step(stmt), SQLITE_DONE);
    sqlite3_finalize(stmt);
    const int id = int(sqlite3_last_insert_rowid(db));
    sqlite3_close(db);
    return id;
}

QString RulesMainFixture::FolderHex(const QString& folder, Profile* profile)
{
    Profile& p = profile ? *profile : *m_p;
    auto folders = p.store->Folders();
    if (folders)
        for (const auto& f : *folders)
            if (f.path.compare(folder, Qt::CaseInsensitive) == 0)
                return mapi::MapiUtils::HrGetHexFromBinary(f.entryId);
    ADD_FAILURE() << "no folder " << folder.toStdString();
    return {};
}

QString RulesMainFixture::StoreHex(Profile* profile)
{
    Profile& p = profile ? *profile : *m_p;
    return mapi::MapiUtils::HrGetHexFromBinary(p.store->StoreId());
}

void RulesMainFixture::AddMail(const QString& folder, const QString& subject, Profile* profile)
{
    Profile& p = profile ? *profile : *m_p;
    mapi::NewMessage m;
    m.rfc822 =
        "From: Alice <alice@example.com>\r\nTo: Bob <bob@example.org>\r\nSubject: " + subject.toUtf8() +
        "\r\nDate: Fri, 13 Nov 2026 10:00:00 +0000\r\nMessage-ID: <" + subject.toUtf8().toHex() +
        "@example.com>\r\nContent-Type: text/plain\r\n\r\nHello.\r\n";
    m.internalDate = m_clock.Now().addSecs(-3600);
    QByteArray folderId = QByteArray::fromHex(FolderHex(folder, &p).toLatin1());
    EXPECT_TRUE(p.store->Append(folderId, m).ok());
}

QStringList RulesMainFixture::Subjects(const QString& folder, Profile* profile)
{
    Profile& p = profile ? *profile : *m_p;
    auto rows =
        p.store->Query(QByteArray::fromHex(FolderHex(folder, &p).toLatin1()), nullptr, {mapi::PR_SUBJECT});
    QStringList out;
    if (rows)
        for (const auto& row : *rows) out << row[0].toString();
    out.sort();
    return out;
}

void RulesMainFixture::Sql(const QString& statement, Profile* profile)
{
    Profile& p = profile ? *profile : *m_p;
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(p.dbPath.toUtf8().constData(), &db), SQLITE_OK);
    char* error = nullptr;
    const int rc = sqlite3_exec(db, statement.toUtf8().constData(), nullptr, nullptr, &error);
    const std::string message = error ? error : "";
    sqlite3_free(error);
    sqlite3_close(db);
    ASSERT_EQ(rc, SQLITE_OK) << message;
}

QList<QVariantMap> RulesMainFixture::Rows(const QString& sql, Profile* profile)
{
    Profile& p = profile ? *profile : *m_p;
    QList<QVariantMap> rows;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(p.dbPath.toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        ADD_FAILURE() << "cannot open " << p.dbPath.toStdString();
        return rows;
    }
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, sql.toUtf8().constData(), -1, &stmt, nullptr) == SQLITE_OK) {
        while (sqlite3_step(stmt) == SQLITE_ROW) {
            QVariantMap row;
            for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
                const QString name = QString::fromUtf8(sqlite3_column_name(stmt, i));
                switch (sqlite3_column_type(stmt, i)) {
                    case SQLITE_NULL:
                        row.insert(name, QVariant());
                        break;
                    case SQLITE_INTEGER:
                        row.insert(name, sqlite3_column_int64(stmt, i));
                        break;
                    default:
                        row.insert(name, QString::fromUtf8(
                                             reinterpret_cast<const char*>(sqlite3_column_text(stmt, i))));
                }
            }
            rows.push_back(row);
        }
    } else {
        ADD_FAILURE() << sqlite3_errmsg(db);
    }
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return rows;
}

QStringList RulesMainFixture::StoredOrder(Profile* profile)
{
    QStringList names;
    for (const auto& row :
         Rows(QStringLiteral("SELECT RuleName FROM Rules ORDER BY SortID, RuleID"), profile))
        names << row.value(QStringLiteral("RuleName")).toString();
    return names;
}

QTreeWidget* RulesMainFixture::List(forms::frmRulesMain& form)
{
    return form.findChild<QTreeWidget*>(QStringLiteral("ListView1"));
}

QAbstractButton* RulesMainFixture::Button(forms::frmRulesMain& form, const char* name)
{
    auto* b = form.findChild<QAbstractButton*>(QString::fromLatin1(name));
    EXPECT_NE(b, nullptr) << name;
    return b;
}

QStringList RulesMainFixture::ListNames(forms::frmRulesMain& form)
{
    QStringList names;
    QTreeWidget* list = List(form);
    for (int i = 0; i < list->topLevelItemCount(); ++i) names << list->topLevelItem(i)->text(0);
    return names;
}

void RulesMainFixture::Select(forms::frmRulesMain& form, std::initializer_list<int> rows)
{
    QTreeWidget* list = List(form);
    list->clearSelection();
    for (int row : rows) {
        list->setCurrentItem(list->topLevelItem(row), 0, QItemSelectionModel::Select);
    }
}

QString RulesMainFixture::Enabled(forms::frmRulesMain& form, std::initializer_list<const char*> names)
{
    QStringList on;
    for (const char* name : names)
        if (Button(form, name)->isEnabled()) on << QString::fromLatin1(name);
    return on.join(QLatin1Char(' '));
}

}  // namespace mv::test

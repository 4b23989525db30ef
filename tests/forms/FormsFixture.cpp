#include "FormsFixture.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/mapi/PropTags.h"
#include "platform/outlook/SafeLib.h"
#include "store/AdoProgIds.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sqlite3.h>

namespace mv::test {

using namespace Qt::StringLiterals;

namespace {

class SilentStatusForm final : public engine::StatusForm {
public:
    void Show() override {}
    void SetRuleName(const QString&) override {}
    void SetProgress(int, int) override {}
    void Hide() override {}
};

std::unique_ptr<stores::maildir::MaildirStore> MakeStore(const QString& root, const QString& name,
                                                         const QStringList& folders)
{
    for (const QString& f : QStringList{QString()} + folders)
        for (const char* sub : {"/cur", "/new", "/tmp"}) QDir().mkpath(root + f + QLatin1String(sub));
    stores::maildir::MaildirStoreOptions options;
    options.indexPath = root + u".index.sqlite"_s;
    options.displayName = name;
    options.watch = false;
    return std::make_unique<stores::maildir::MaildirStore>(root, options);
}

QString Hex(const QByteArray& id)
{
    return mapi::MapiUtils::HrGetHexFromBinary(id);
}

}  // namespace

std::vector<std::unique_ptr<outlook::Item>> SelectionExplorer::Selection()
{
    std::vector<std::unique_ptr<outlook::Item>> items;
    if (auto item = itemEntry.isEmpty() ? nullptr : m_ns.GetItemFromID(itemEntry, itemStore))
        items.push_back(std::move(item));
    return items;
}

void FormsTest::SetUp()
{
    ASSERT_TRUE(m_tmp.isValid());
    store::RegisterAdoProgIds(m_progIds);
    outlook::RegisterSafeLib(m_progIds);
    m_p = MakeProfile(u"first"_s);
    ASSERT_TRUE(m_p && m_p->addIn->DB1());
}

void FormsTest::TearDown()
{
    int reports = 0;
    for (const auto& shown : m_answerer.shown())
        if (shown.title == os::ErrorReport::Title()) ++reports;
    EXPECT_EQ(reports, m_expectedReports) << m_answerer.texts().join(u" | "_s).toStdString();
    for (const auto& box : m_answerer.unanswered()) ADD_FAILURE() << "unanswered: " << box.text.toStdString();
    if (m_p) m_p->addIn->CloseDatabases();
}

std::unique_ptr<Profile> FormsTest::MakeProfile(const QString& name)
{
    auto p = std::make_unique<Profile>();
    p->dir = m_tmp.filePath(name);
    QDir().mkpath(p->dir + u"/install"_s);
    p->dbPath = p->dir + u"/mv.mdb"_s;
    EXPECT_TRUE(QFile::copy(QStringLiteral(MV_BINARY_DIR "/Database/_mvblank.mdb"), p->dbPath));
    QFile::setPermissions(p->dbPath, QFile::ReadOwner | QFile::WriteOwner);

    p->home = MakeStore(p->dir + u"/home"_s, u"Home"_s, {u"/.Sent"_s, u"/.Archive"_s, u"/.Archive.2026"_s});
    p->work = MakeStore(p->dir + u"/work"_s, u"Work"_s, {u"/.Projects"_s});
    p->ns = std::make_unique<outlook::StoreNameSpace>(
        std::vector<mapi::MessageStore*>{p->home.get(), p->work.get()});

    p->addIn =
        std::make_unique<addin::OutAddIn>(m_report, nullptr, m_progIds, m_clock, p->dir + u"/install"_s);
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

forms::RulePropsContext FormsTest::Context(const QString& hostVersion)
{
    return forms::RulePropsContext{*m_p->addIn->DB1(),
                                   *m_p->ns,
                                   m_picker,
                                   m_contacts,
                                   m_answerer,
                                   m_report,
                                   hostVersion,
                                   u"Mailvane"_s,
                                   m_p->dir + u"/install"_s,
                                   nullptr};
}

std::unique_ptr<forms::frmRuleProps> FormsTest::OpenEditor(const QString& action, int ruleId,
                                                           const QString& hostVersion, bool load)
{
    auto form = std::make_unique<forms::frmRuleProps>(Context(hostVersion));
    form->Action = action;
    form->RuleID = static_cast<std::int16_t>(ruleId);
    if (load) form->Form_Load();
    return form;
}

std::unique_ptr<forms::frmRulesMain> FormsTest::OpenManager(Profile* profile)
{
    Profile& p = P(profile);
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

void FormsTest::FillRequired(forms::frmRuleProps& editor, Profile* profile)
{
    SetText(editor, "txtRuleName", u"A rule"_s);
    m_picker.answers.push_back(Folder(u"Inbox"_s, nullptr, profile));
    m_picker.answers.push_back(Folder(u"Archive"_s, nullptr, profile));
    Click(editor, "btnSrcFolderBrowse");
    Click(editor, "btnDstFolderBrowse");
}

std::unique_ptr<outlook::Folder> FormsTest::Folder(const QString& path, stores::maildir::MaildirStore* store,
                                                   Profile* profile)
{
    Profile& p = P(profile);
    if (!store) store = p.home.get();
    auto folders = store->Folders();
    if (folders)
        for (const mapi::FolderInfo& f : *folders)
            if (f.path == path) return p.ns->GetFolderFromID(Hex(f.entryId), Hex(store->StoreId()));
    ADD_FAILURE() << "no folder " << path.toStdString();
    return nullptr;
}

QString FormsTest::Deliver(const QString& folder, const QByteArray& rfc822,
                           stores::maildir::MaildirStore* store)
{
    mapi::NewMessage m;
    m.rfc822 = rfc822;
    auto target = Folder(folder, store);
    auto id = (store ? store : m_p->home.get())->Append(target ? target->BinaryEntryID() : QByteArray(), m);
    EXPECT_TRUE(id.ok()) << (id ? "" : id.error().message.toStdString());
    return id ? Hex(id.value()) : QString();
}

void FormsTest::AddMail(const QString& folder, const QString& subject, Profile* profile)
{
    Profile& p = P(profile);
    mapi::NewMessage m;
    m.rfc822 =
        "From: Alice <alice@example.com>\r\nTo: Bob <bob@example.org>\r\nSubject: " + subject.toUtf8() +
        "\r\nDate: Fri, 13 Nov 2026 10:00:00 +0000\r\nMessage-ID: <" + subject.toUtf8().toHex() +
        "@example.com>\r\nContent-Type: text/plain\r\n\r\nHello.\r\n";
    m.internalDate = m_clock.Now().addSecs(-3600);
    auto target = Folder(folder, nullptr, &p);
    ASSERT_TRUE(target);
    EXPECT_TRUE(p.home->Append(target->BinaryEntryID(), m).ok());
}

QStringList FormsTest::Subjects(const QString& folder, Profile* profile)
{
    Profile& p = P(profile);
    QStringList out;
    auto target = Folder(folder, nullptr, &p);
    if (!target) return out;
    auto rows = p.home->Query(target->BinaryEntryID(), nullptr, {mapi::PR_SUBJECT});
    if (rows)
        for (const auto& row : *rows) out << row[0].toString();
    out.sort();
    return out;
}

std::unique_ptr<SelectionExplorer> FormsTest::ExplorerOn(const QString& folder, const QString& entryHex)
{
    auto explorer = std::make_unique<SelectionExplorer>(*m_p->ns);
    auto f = Folder(folder);
    explorer->itemEntry = entryHex;
    explorer->itemStore = explorer->folderStore = f ? f->StoreID() : QString();
    explorer->folderEntry = f ? f->EntryID() : QString();
    return explorer;
}

QList<QVariantMap> FormsTest::Rows(const QString& sql, Profile* profile)
{
    QList<QVariantMap> rows;
    sqlite3* db = nullptr;
    sqlite3_stmt* stmt = nullptr;
    int rc = sqlite3_open(P(profile).dbPath.toUtf8().constData(), &db);
    if (rc == SQLITE_OK) rc = sqlite3_prepare_v2(db, sql.toUtf8().constData(), -1, &stmt, nullptr);
    while (rc == SQLITE_OK && (rc = sqlite3_step(stmt)) == SQLITE_ROW) {
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
                    row.insert(
                        name, QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(stmt, i))));
            }
        }
        rows.push_back(row);
        rc = SQLITE_OK;
    }
    if (rc != SQLITE_DONE) ADD_FAILURE() << sqlite3_errmsg(db) << " in " << sql.toStdString();
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return rows;
}

QStringList FormsTest::StoredOrder(Profile* profile)
{
    QStringList names;
    for (const auto& row : Rows(u"SELECT RuleName FROM Rules ORDER BY SortID, RuleID"_s, profile))
        names << row.value(u"RuleName"_s).toString();
    return names;
}

int FormsTest::AddRule(const QString& name, const QString& set, Profile* profile)
{
    Profile& p = P(profile);
    auto inbox = Folder(u"Inbox"_s, nullptr, &p);
    auto archive = Folder(u"Archive"_s, nullptr, &p);
    if (!inbox || !archive) return 0;
    Sql(u"INSERT INTO Rules (RuleName, FromAddress, ToAddress, CcAddress, Subject, Importance, Status, "
        "FlagStatus, MsgAgeID, SrcEntryID, SrcStoreID, DstEntryID, DstStoreID, Active, SortID, "
        "LastVerb, Message) SELECT '%1', '', '', '', '', 3, 2, 0, 13, '%2', '%3', '%4', '%5', -1, "
        "COALESCE(MAX(SortID), 0) + 1, 0, '' FROM Rules"_s.arg(name, inbox->EntryID(), inbox->StoreID(),
                                                               archive->EntryID(), archive->StoreID()),
        &p);
    const int id = Rows(u"SELECT MAX(RuleID) AS id FROM Rules"_s, &p).value(0).value(u"id"_s).toInt();
    if (!set.isEmpty()) Sql(u"UPDATE Rules SET %1 WHERE RuleID = %2"_s.arg(set).arg(id), &p);
    return id;
}

void FormsTest::Choose(const QObject& parent, const char* list, const QString& label)
{
    QComboBox* box = Child<QComboBox>(parent, list);
    const int index = box ? box->findText(label) : -1;
    ASSERT_GE(index, 0) << list << " has no " << label.toStdString();
    box->setCurrentIndex(index);
}

QStringList FormsTest::ListNames(const QObject& form)
{
    QStringList names;
    QTreeWidget* list = List(form);
    for (int i = 0; i < list->topLevelItemCount(); ++i) names << list->topLevelItem(i)->text(0);
    return names;
}

void FormsTest::Select(const QObject& form, std::initializer_list<int> rows)
{
    QTreeWidget* list = List(form);
    list->clearSelection();
    for (int row : rows) list->setCurrentItem(list->topLevelItem(row), 0, QItemSelectionModel::Select);
}

QString FormsTest::Enabled(const QObject& form, std::initializer_list<const char*> names)
{
    QStringList on;
    for (const char* name : names)
        if (Child<QAbstractButton>(form, name)->isEnabled()) on << QString::fromLatin1(name);
    return on.join(QLatin1Char(' '));
}

}  // namespace mv::test

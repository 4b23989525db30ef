#include "EngineFixture.h"

#include "store/AdoProgIds.h"

#include "platform/ado/AdoConstants.h"
#include "platform/ado/Command.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/SafeLib.h"
#include "platform/stores/common/FlagMapping.h"

#include <QFile>

#include <algorithm>

namespace mv::engine::test {

namespace {

// The rule store's own statement for a complete rule row (as an import
// writes it), so the engine reads rows exactly as the store leaves them.
const char* const kInsertRule =
    "INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
    "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [Active], "
    "[SortID], [LastVerb], [Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ";

class RecordingStatusForm : public StatusForm {
public:
    explicit RecordingStatusForm(QStringList& calls) : m_calls(calls) {}
    void Show() override { m_calls << QStringLiteral("show"); }
    void SetRuleName(const QString& name) override { m_calls << QStringLiteral("rule:") + name; }
    void SetProgress(int done, int total) override { m_calls << QStringLiteral("progress:%1/%2").arg(done).arg(total); }
    void Hide() override { m_calls << QStringLiteral("hide"); }

private:
    QStringList& m_calls;
};

QString Hex(const QByteArray& id) { return mapi::MapiUtils::HrGetHexFromBinary(id); }

QByteArray Rfc822(const Msg& m)
{
    return "From: " + m.from.toUtf8() + "\r\nTo: Bob <bob@example.org>\r\nSubject: " + m.subject.toUtf8() +
           "\r\nDate: Fri, 13 Nov 2026 10:00:00 +0000\r\nMessage-ID: <" + m.subject.toUtf8().toHex() +
           "@example.com>\r\nMIME-Version: 1.0\r\nContent-Type: " +
           (m.contentType.isEmpty() ? QByteArray("text/plain; charset=utf-8\r\n\r\nHello.\r\n") : m.contentType + "\r\n\r\n" + m.rawBody);
}

}  // namespace

QStringList Sorted(QStringList l)
{
    l.sort();
    return l;
}

void EngineTest::SetUp()
{
    ASSERT_TRUE(m_tmp.isValid());
    store::RegisterAdoProgIds(m_progIds);
    outlook::RegisterSafeLib(m_progIds);

    const QString dbPath = m_tmp.filePath(QStringLiteral("mv.mdb"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(MV_BINARY_DIR "/Database/_mvblank.mdb"), dbPath))
        << "the blank template is built with the mv_template_db target";
    m_db = std::make_unique<store::cDB>(m_progIds, m_report, m_tmp.path());
    ASSERT_TRUE(m_db->InitDB(dbPath, {}, {}, m_tmp.path(), store::kConnectJet));

    stores::MemoryStoreOptions options;
    options.clock = [this]() { return m_clock.Now().addSecs(-3600); };
    m_memory = std::make_unique<stores::MemoryStore>(options);
    options.name = QStringLiteral("Other");
    m_other = std::make_unique<stores::MemoryStore>(options);
    m_ns = std::make_unique<outlook::StoreNameSpace>(std::vector<mapi::MessageStore*>{&Store(), m_other.get()});

    auto journal = journal::MoveJournal::Open(m_tmp.filePath(QStringLiteral("moves.db")));
    ASSERT_TRUE(journal.ok()) << journal.error().message.toStdString();
    m_journal = std::move(*journal);
    m_mover = std::make_unique<journal::StoreMover>(
        *m_journal,
        [this](const QByteArray& id) -> mapi::MessageStore* {
            for (mapi::MessageStore* s : m_ns->Stores())
                if (s->StoreId() == id) return s;
            return nullptr;
        },
        &m_log);

    m_exec = std::make_unique<RuleExecutor>(*m_ns, m_progIds, m_report, m_clock, m_zone);
    m_exec->SetMover(m_mover.get());
    m_exec->SetSettingsSource([this]() { return m_settings; });
    m_exec->SetOpenItemTest([this](const QString& id) { return m_open.contains(id); });

    RunnerHooks hooks;
    hooks.database = [this]() { return m_dbMissing ? nullptr : m_db.get(); };
    hooks.createStatusForm = [this]() -> std::unique_ptr<StatusForm> {
        if (m_statusFormMissing) return nullptr;
        return std::make_unique<RecordingStatusForm>(m_statusCalls);
    };
    hooks.mainFormExists = [this]() { return m_mainFormExists; };
    hooks.processEvents = [this]() {
        if (m_onPump) m_onPump();
    };
    hooks.setMousePointer = [this](int p) { m_statusCalls << QStringLiteral("pointer:%1").arg(p); };
    m_runner = std::make_unique<RuleRunner>(*m_exec, m_report, &m_log, hooks, m_cancel);
}

void EngineTest::TearDown()
{
    for (const auto& box : m_answerer.unanswered())
        ADD_FAILURE() << "unanswered question: " << box.text.toStdString();
    for (const QString& text : m_answerer.texts())
        ADD_FAILURE() << "message box nobody expected: " << text.toStdString();
    m_runner.reset();
    m_exec.reset();
    m_mover.reset();
    m_journal.reset();
    m_ns.reset();
    if (m_db) m_db->KillDB();
}

QByteArray EngineTest::Add(const QString& folder, const Msg& m)
{
    mapi::NewMessage nm;
    nm.rfc822 = Rfc822(m);
    nm.flags = m.flags;
    nm.internalDate = m.delivered.isValid() ? m.delivered : m_clock.Now().addSecs(-3600);
    auto id = Store().Append(Store().FolderIdByPath(folder), nm);
    EXPECT_TRUE(id.ok()) << (id.ok() ? "" : id.error().message.toStdString());
    return id.ok() ? *id : QByteArray();
}

QByteArray EngineTest::Mail(const QString& subject, bool completed, const QString& folder)
{
    Msg m;
    m.subject = subject;
    if (completed) m.flags.keywords << QStringLiteral("$Completed");
    return Add(folder, m);
}

QStringList EngineTest::Subjects(const QString& folder) { return Subjects(Store(), folder); }

QStringList EngineTest::Subjects(stores::MemoryStore& store, const QString& folder)
{
    QStringList out = store.SubjectsIn(store.FolderIdByPath(folder));
    std::replace(out.begin(), out.end(), QString(), QStringLiteral("[none]"));
    return Sorted(out);
}

bool EngineTest::Completed(stores::MemoryStore& store, const QString& folder, const QString& subject)
{
    auto rows = store.Query(store.FolderIdByPath(folder), nullptr, {mapi::PR_ENTRYID, mapi::PR_SUBJECT});
    for (const auto& row : *rows)
        if (row[1].toString() == subject)
            return stores::FlagMapping::HasKeyword(*store.Flags(row[0].toByteArray()), QStringLiteral("$Completed"));
    ADD_FAILURE() << "no " << subject.toStdString() << " in " << folder.toStdString();
    return false;
}

int EngineTest::InsertRule(const RuleDef& def)
{
    const QString noFolder = QStringLiteral("4D564D3146FFFFFFFF");
    const auto folder = [&](stores::MemoryStore& store, const QString& path) {
        return path.isEmpty() ? noFolder : Hex(store.FolderIdByPath(path));
    };
    stores::MemoryStore& dst = def.dstOther ? Other() : Store();
    const QVariant params[] = {def.name,     def.from,       def.to,          def.cc,     def.subject,
                               def.importance, def.status,   def.flagStatus,  def.msgAge, folder(Store(), def.src),
                               Hex(Store().StoreId()), folder(dst, def.dst), Hex(dst.StoreId()), def.active,
                               m_nextSort++,   def.lastVerb, def.message};
    ado::Command cmd;
    cmd.SetCommandType(ado::adCmdText);
    cmd.SetCommandText(QString::fromLatin1(kInsertRule));
    for (const QVariant& v : params) {
        const bool number = v.typeId() == QMetaType::Int;
        cmd.AppendParameter(cmd.CreateParameter({}, number ? ado::adInteger : ado::adVarWChar, ado::adParamInput,
                                                number ? 10 : static_cast<long>(v.toString().size()) + 1, v));
    }
    EXPECT_TRUE(m_db->ExecuteSQL(QString(), &cmd));
    return m_db->NewID();
}

std::unique_ptr<ado::Recordset> EngineTest::RuleRow(int ruleId)
{
    std::unique_ptr<ado::Recordset> rs;
    EXPECT_TRUE(m_db->CreateRS(rs, QString::fromLatin1(kSqlPreviewRule) + QString::number(ruleId)));
    return rs;
}

RuleOutcome EngineTest::Execute(int ruleId, bool preview, ExecuteOptions options)
{
    auto rs = RuleRow(ruleId);
    if (!rs) return {};
    return m_exec->Execute(*rs, preview, options);
}

QStringList EngineTest::TakeReports()
{
    QStringList texts = m_answerer.texts();
    m_answerer.clear();
    return texts;
}

}  // namespace mv::engine::test

#pragma once
// A rule engine on real parts: the blank rule database copied from the
// build into a temporary folder (rules inserted with the store's own INSERT
// statement), a message store (memory or a real Maildir) and a second
// memory store ("Other", for moves across stores), the namespace over
// them, a move journal file with its mover, a fake clock at 2026-11-14 10:00, a UTC zone, and a scripted
// message box that fails the test on any question nobody answered.

#include "engine/RuleExecutor.h"
#include "engine/RuleRunner.h"

#include "store/cDB.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/journal/MoveJournal.h"
#include "platform/journal/StoreMover.h"
#include "platform/logging/MemoryLogger.h"
#include "platform/mapi/MessageStore.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/store/StoreNameSpace.h"

#include <QSet>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>

QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }
inline void PrintTo(const QStringList& l, std::ostream* os)
{
    *os << '{' << l.join(QStringLiteral(" | ")).toStdString() << '}';
}
QT_END_NAMESPACE

namespace mv::engine::test {

// One message as the tests write it.
struct Msg {
    QString subject;
    QString from = QStringLiteral("Alice <alice@example.com>");
    QString to = QStringLiteral("Bob <bob@example.org>");
    QString cc;
    QString body = QStringLiteral("Hello.");
    QString importance;          // Importance: header, empty for none
    QDateTime delivered;         // UTC; invalid: the fixture's "now" minus one hour
    mapi::MessageFlags flags;
    QByteArray contentType;      // empty: text/plain; else the whole MIME body below follows as is
    QByteArray rawBody;          // with contentType
};
QByteArray Rfc822(const Msg& m);

// A rule row; folders by path ("Inbox", "Archive", ...). An empty folder
// name writes identifiers of a folder that does not exist.
struct RuleDef {
    QString name = QStringLiteral("Rule");
    QString from, to, cc, subject, message;
    int importance = 3, status = 2, flagStatus = 0, lastVerb = 0, msgAge = 13;
    QString src = QStringLiteral("Inbox"), dst = QStringLiteral("Archive");
    int active = -1;
    int sortId = 0;  // 0: after the rules inserted before
    bool dstOther = false;  // `dst` is a folder of the second store
};

// Status form calls, in order: "show", "rule:<name>", "progress:<i>/<n>", "hide".
class RecordingStatusForm : public StatusForm {
public:
    explicit RecordingStatusForm(QStringList& calls) : m_calls(calls) {}
    void Show() override { m_calls << QStringLiteral("show"); }
    void SetRuleName(const QString& name) override { m_calls << QStringLiteral("rule:") + name; }
    void SetProgress(int done, int total) override
    {
        m_calls << QStringLiteral("progress:%1/%2").arg(done).arg(total);
    }
    void Hide() override { m_calls << QStringLiteral("hide"); }

private:
    QStringList& m_calls;
};

class EngineTest : public ::testing::Test {
protected:
    EngineTest();
    ~EngineTest() override;
    void SetUp() override;
    void TearDown() override;

    // The store under test; the memory store unless a test replaces it.
    virtual mapi::MessageStore& Store();

    QByteArray FolderId(const QString& path);
    QString FolderHex(const QString& path);
    QString StoreHex();
    QByteArray Add(const QString& folder, const Msg& m);
    // Subjects in a folder, sorted ("[none]" for an empty subject).
    QStringList Subjects(const QString& folder);
    QStringList Subjects(mapi::MessageStore& store, const QString& folder);
    mapi::MessageStore& Other() { return *m_other; }
    int InsertRule(RuleDef def);
    // A recordset on one rule row joined with its MsgAge row.
    std::unique_ptr<ado::Recordset> RuleRow(int ruleId);

    RuleOutcome Execute(int ruleId, bool preview, ExecuteOptions options = {});
    // Reports shown so far, and forgets them.
    QStringList TakeReports();

    QTemporaryDir m_tmp;
    ProgIdRegistry m_progIds;
    os::ScriptedAnswerer m_answerer;
    logging::MemoryLogger m_log;
    os::ErrorReport m_report{m_answerer, &m_log};
    std::unique_ptr<store::cDB> m_db;
    os::FakeClock m_clock{QDateTime(QDate(2026, 11, 14), QTime(10, 0), Qt::UTC)};
    os::FixedTimeZone m_zone;
    std::unique_ptr<mapi::MessageStore> m_memory;
    // Set before SetUp: a real Maildir (Inbox, Archive, Trash, Drafts) in
    // the temporary folder stands in for the memory store.
    bool m_useMaildir = false;
    std::unique_ptr<mapi::MessageStore> m_maildir;
    std::unique_ptr<mapi::MessageStore> m_other;
    std::unique_ptr<outlook::StoreNameSpace> m_ns;
    std::unique_ptr<journal::MoveJournal> m_journal;
    std::unique_ptr<journal::StoreMover> m_mover;
    EngineSettings m_settings;
    QSet<QString> m_open;  // entry ids "open in an Inspector"
    std::unique_ptr<RuleExecutor> m_exec;
    bool m_cancel = false;
    bool m_dbMissing = false;
    bool m_statusFormMissing = false;
    bool m_mainFormExists = true;
    QStringList m_statusCalls;
    std::function<void()> m_onPump;
    RunnerHooks Hooks();
    std::unique_ptr<RuleRunner> m_runner;
    int m_nextSort = 1;
};

QStringList Sorted(QStringList l);

}  // namespace mv::engine::test

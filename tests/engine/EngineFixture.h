#pragma once
// A rule engine on real parts: the blank rule database copied from the
// build into a temporary folder, a memory message store and a second one
// ("Other", for moves across stores), the
// namespace over them, a move journal file with its mover, a fake clock at
// 2026-11-14 10:00, a UTC zone, and a scripted message box that fails the
// test on any question nobody answered.

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
#include "platform/stores/memory/MemoryStore.h"

#include "tests/support/QtPrinters.h"

#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

namespace mv::engine::test {

// One message as the tests write it.
struct Msg {
    QString subject{};
    QString from = QStringLiteral("Alice <alice@example.com>");
    QDateTime delivered{};     // UTC; invalid: the fixture's "now" minus one hour
    mapi::MessageFlags flags{};
    QByteArray contentType{};  // empty: text/plain; else rawBody follows as is
    QByteArray rawBody{};
};

// A rule row; folders by path ("Inbox", "Archive", ...). An empty folder
// name writes identifiers of a folder that does not exist.
struct RuleDef {
    QString name = QStringLiteral("Rule");
    QString from{}, to{}, cc{}, subject{}, message{};
    int importance = 3, status = 2, flagStatus = 0, lastVerb = 0, msgAge = 13;
    QString src = QStringLiteral("Inbox"), dst = QStringLiteral("Archive");
    int active = -1;
    bool dstOther = false;  // `dst` is a folder of the second store
};

class EngineTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    stores::MemoryStore& Store() { return *m_memory; }
    stores::MemoryStore& Other() { return *m_other; }

    QByteArray Add(const QString& folder, const Msg& m);
    // A plain message in `folder`, carrying the completed flag when asked.
    QByteArray Mail(const QString& subject, bool completed = false, const QString& folder = QStringLiteral("Inbox"));
    // Subjects in a folder, sorted ("[none]" for an empty subject).
    QStringList Subjects(const QString& folder);
    QStringList Subjects(stores::MemoryStore& store, const QString& folder);
    // Whether the message with `subject` in `folder` still has its completed flag.
    bool Completed(stores::MemoryStore& store, const QString& folder, const QString& subject);
    int InsertRule(const RuleDef& def);
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
    std::unique_ptr<stores::MemoryStore> m_memory, m_other;
    std::unique_ptr<outlook::StoreNameSpace> m_ns;
    std::unique_ptr<journal::MoveJournal> m_journal;
    std::unique_ptr<journal::StoreMover> m_mover;
    EngineSettings m_settings;
    QSet<QString> m_open;  // entry ids "open in an Inspector"
    std::unique_ptr<RuleExecutor> m_exec;
    // The runner's hooks: database, status form (its calls recorded as
    // "show", "rule:<name>", "progress:<i>/<n>", "hide", "pointer:<p>"),
    // main form and the event pump.
    bool m_cancel = false, m_dbMissing = false, m_statusFormMissing = false, m_mainFormExists = true;
    QStringList m_statusCalls;
    std::function<void()> m_onPump;
    std::unique_ptr<RuleRunner> m_runner;
    int m_nextSort = 1;
};

QStringList Sorted(QStringList l);

}  // namespace mv::engine::test

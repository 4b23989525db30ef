#pragma once
// ExecuteRule: runs one rule against its source folder. The folder's
// contents table gets one restriction built from the rule (the store does
// the matching), the five columns of every matching row are read, and each
// row of a movable class (meeting, report, mail) has its item opened and is
// moved to the destination, or, in preview, has its subject listed.
//
// Every move of a real run goes through the move journal's StoreMover, in
// batches of one source folder and one destination, within a store or
// across stores (see RuleExecutor.cpp for why batching gives the result of
// moving one by one).
//
// Error policy: nothing throws out of ExecuteRule. A failure (the four
// set-up errors, a bad rule row, any platform call in the row loop) is
// reported through the ErrorReport as "Error N (desc) in procedure
// ExecuteRule" and ends the call with result 0, so the caller stops; what
// was moved before it stays moved.
//
// Seams come in through the constructor and must outlive the executor.

#include "AgeWindow.h"
#include "RuleRecord.h"

#include "platform/common/Error.h"
#include "platform/mapi/Restriction.h"

#include <QSet>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace mv {
class ProgIdRegistry;
}
namespace mv::ado {
class Recordset;
}
namespace mv::journal {
class MoveJournal;
class StoreMover;
}  // namespace mv::journal
namespace mv::logging {
class Logger;
}
namespace mv::os {
class Clock;
class ErrorReport;
class TimeZoneSource;
}  // namespace mv::os
namespace mv::outlook {
class MapiTable;
class NameSpace;
}

namespace mv::engine {

// The application error base of the object-error range, and the numbers the
// engine raises.
inline constexpr long kErrBase = static_cast<long>(0x80040000);
inline constexpr long kErr1000 = kErrBase + 1000;
inline constexpr long kErr1001 = kErrBase + 1001;
inline constexpr long kErr1002 = kErrBase + 1002;
inline constexpr long kErr1003 = kErrBase + 1003;
// What a failed store call is reported as: the store's own text under the
// generic failure number, or "not found" for an item that is gone.
inline constexpr long kErrPlatformFailure = static_cast<long>(0x80004005);
inline constexpr long kErrItemNotFound = static_cast<long>(0x8004010F);
// An age window whose interval letter date arithmetic does not know.
inline constexpr long kErrInvalidCall = 5;

// Run result codes: the answers of a Yes/No box.
inline constexpr std::int16_t kResultGoOn = 6;
inline constexpr std::int16_t kResultStop = 7;

inline constexpr const char* kEmptySubject = "[EMPTY SUBJECT]";

// The settings the engine reads, as the add-in holds them.
struct EngineSettings {
    int alignTime = 1;   // 1: align age windows to calendar boundaries
    int weekStart = 2;   // 1 = Sunday ... 7 = Saturday
    int statusPops = 1;  // 1: the drivers show the status form
};

// What one ExecuteRule call did.
struct RuleOutcome {
    std::optional<int> ruleId;
    QString ruleName;
    std::int16_t result = 0;  // 6 on a normal end, 0 after an error
    int moved = 0;            // items moved (preview: 0)
    int skippedOpen = 0;      // left because they are open in an Inspector
    int skippedNoDestination = 0;
    int flagsCleared = 0;     // completed flags cleared before the move
    // Matched, but gone from the source (another program moved or deleted
    // them) by the time the batch was moved: nothing to move, not an error.
    int vanished = 0;
    // The run's cancel flag stopped the rule between two batches; what the
    // batches before moved stays moved. Not an error.
    bool cancelled = false;
    // Subjects ("[EMPTY SUBJECT]" for none): preview: every listed item;
    // a real run: every moved item.
    QStringList subjects;
    // Upper-case hex entry ids of the items listed (preview) or as they were
    // before their move (real run).
    QStringList entryIds;
    QString error;  // the reported text; empty when none
};

struct ExecuteOptions {
    // Preview: leave out items open in an Inspector, as a real run does.
    // The Rules Manager's preview lists them; the whole-run preview does not.
    bool previewSkipsOpenItems = false;
    // Preview: entry ids (hex) to leave out, because an earlier rule of the
    // same run would already have moved them.
    const QSet<QString>* excludedIds = nullptr;
    // Real run: move the matched items of a destination in batches (one
    // UID MOVE on IMAP for a batch) instead of one message per batch. See
    // RuleExecutor.cpp.
    bool batchMoves = true;
    // The most messages of one batch, within a store and across stores (a
    // batch across stores carries whole messages). Between two batches
    // `betweenBatches` runs; when it returns true the rule stops there.
    int batchLimit = 500;
    int crossStoreBatchLimit = 50;
    std::function<bool()> betweenBatches;
    // The journal's run the moves belong to (0: none).
    qint64 run = 0;
    // Open each row's item from the values the table read with the row
    // instead of fetching the message again (one round trip per row on
    // IMAP). A message gone meanwhile is then noticed at its move.
    bool itemsFromRows = true;
};

class RuleExecutor {
public:
    RuleExecutor(outlook::NameSpace& nameSpace, const ProgIdRegistry& progIds, os::ErrorReport& report,
                 const os::Clock& clock, const os::TimeZoneSource& timeZone);
    ~RuleExecutor();
    RuleExecutor(const RuleExecutor&) = delete;
    RuleExecutor& operator=(const RuleExecutor&) = delete;

    // The add-in's settings are read at every call; default: EngineSettings{}.
    void SetSettingsSource(std::function<EngineSettings()> settings) { m_settings = std::move(settings); }
    // True when an item (upper-case hex entry id) is open in an Inspector.
    void SetOpenItemTest(std::function<bool(const QString&)> isOpen) { m_isOpen = std::move(isOpen); }
    void SetLogger(logging::Logger* log) { m_log = log; }
    // The mover every move of a real run goes through; it must outlive the
    // executor. Unset: the executor makes its own over a journal in memory
    // (tools and tests that keep no history).
    void SetMover(journal::StoreMover* mover) { m_mover = mover; }
    // The journal could not be opened: real runs move nothing and report
    // `error` (naming the file) at their first move.
    void SetMoverError(Error error) { m_moverError = std::move(error); }
    Result<journal::StoreMover*> Mover();

    // The add-in's member: `rs` positioned on the rule's row.
    void ExecuteRule(ado::Recordset& rs, bool& preview, std::int16_t& result);
    // The same, with what happened.
    RuleOutcome Execute(ado::Recordset& rs, bool preview, const ExecuteOptions& options = {});
    RuleOutcome Execute(const RuleRecord& rule, bool preview, const ExecuteOptions& options = {});

    // Tells the source folder's store what the query of `rule` will be, so
    // that it may start on it while the rule before it runs. Changes nothing
    // the rule then does; any failure here is left for the rule to meet.
    void Anticipate(const RuleRecord& rule);

    // The restriction ExecuteRule gives the store for `rule` at this moment
    // (cut-off from the clock, the zone and the settings). Errors as
    // RuleError.
    mapi::Restriction BuildRestriction(const RuleRecord& rule) const;
    // The age cut-off for `rule` now; nullopt when it has no age window.
    std::optional<QDateTime> CutOffFor(const RuleRecord& rule) const;

    outlook::NameSpace& nameSpace() const { return m_ns; }
    bool IsOpen(const QString& entryIdHex) const { return m_isOpen && m_isOpen(entryIdHex); }
    EngineSettings Settings() const { return m_settings ? m_settings() : EngineSettings{}; }

private:
    // The rule's restriction into the table's filter, and the columns.
    void DefineQuery(const RuleRecord& rule, outlook::MapiTable& table, mapi::Restriction& filter) const;

    outlook::NameSpace& m_ns;
    const ProgIdRegistry& m_progIds;
    os::ErrorReport& m_report;
    const os::Clock& m_clock;
    const os::TimeZoneSource& m_timeZone;
    std::function<EngineSettings()> m_settings;
    std::function<bool(const QString&)> m_isOpen;
    logging::Logger* m_log = nullptr;
    journal::StoreMover* m_mover = nullptr;
    std::optional<Error> m_moverError;
    std::unique_ptr<journal::MoveJournal> m_ownJournal;
    std::unique_ptr<journal::StoreMover> m_ownMover;
};

// An error raised by the engine, caught by the handler of the procedure
// that raised it.
struct RuleError {
    long number;
    QString source;
    QString description;
};

}  // namespace mv::engine

#include "RuleExecutor.h"

#include "RuleRestriction.h"

#include "platform/ado/AdoError.h"
#include "platform/journal/MoveJournal.h"
#include "platform/journal/StoreMover.h"
#include "platform/ado/Recordset.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/mapi/MessageStore.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/MapiTable.h"
#include "platform/outlook/NameSpace.h"
#include "platform/outlook/SafeLib.h"

#include <memory>
#include <vector>

namespace mv::engine {
namespace {

using namespace mv::mapi;

const QString kSource = QStringLiteral("ExecuteRule");

[[noreturn]] void Raise(long number, const QString& description)
{
    throw RuleError{number, kSource, description};
}

[[noreturn]] void RaiseStore(const Error& error)
{
    Raise(error.kind == ErrorKind::NotFound ? kErrItemNotFound : kErrPlatformFailure, error.message);
}

QString Hex(const QVariant& v)
{
    return MapiUtils::HrGetHexFromBinary(v.toByteArray());
}

// A missing or empty subject both show as the placeholder: the stores keep
// an absent Subject header as an empty PR_SUBJECT, and a blank line in a
// preview list says nothing.
QString SubjectText(const QVariant& v)
{
    if (v.isValid() && !v.isNull() && v.canConvert<QString>()) {
        const QString s = v.toString();
        if (!s.isEmpty()) return s;
    }
    return QString::fromLatin1(kEmptySubject);
}

// The sender is read for the move journal's history.
const std::vector<PropTag> kColumns = {PR_ENTRYID,  PR_STORE_ENTRYID,         PR_MESSAGE_CLASS,
                                       PR_SUBJECT, PR_MESSAGE_DELIVERY_TIME, PR_SENT_REPRESENTING_EMAIL_ADDRESS};

// Items waiting to be moved to one destination in one batch of the mover.
//
// Why the result equals moving each item as its row is read: every check of
// the row loop (class, destination lookup, open in an Inspector) still runs
// per row, in row order, before the item joins the batch; the table's rows
// were fetched before the first move, so moving later does not change which
// rows are read; and any error in the loop first moves what is pending, so
// the items before the failing row end up moved exactly as they would have
// been. The completed flag of an item that joins the batch is cleared by the
// mover just before the move, so it is cleared only on a message that moves:
// after a failed batch (or a killed process, once recovered) the items it did
// not move keep their flag, where moving one by one would have stopped with
// only the failing item's flag cleared. Items opened from their rows are not
// fetched again, so a message that another program took away after the
// query shows only at the move; it is counted as vanished and the rest of
// the batch still moves.
class MoveBatch {
public:
    MoveBatch(journal::StoreMover::Context context, const outlook::Folder* source)
        : m_context(std::move(context)), m_source(source)
    {
    }

    bool Accepts(const outlook::Folder& dst) const
    {
        return !m_dst || (m_dst->EntryID() == dst.EntryID() && m_dst->StoreID() == dst.StoreID());
    }
    void Add(std::unique_ptr<outlook::Folder> dst, journal::StoreMover::Entry entry, QString hex)
    {
        if (!m_dst) m_dst = std::move(dst);
        m_entries.push_back(std::move(entry));
        m_hex.push_back(std::move(hex));
    }
    size_t Size() const { return m_entries.size(); }
    bool CrossStore() const { return m_dst && m_dst->Store() != m_source->Store(); }

    // Moves what is pending through `mover`; counts into `outcome`. Raises
    // on failure, after counting what the batch did move.
    void Flush(Result<journal::StoreMover*> mover, RuleOutcome& outcome)
    {
        if (m_entries.empty()) return;
        std::vector<journal::StoreMover::Entry> entries = std::move(m_entries);
        std::vector<QString> hex = std::move(m_hex);
        std::unique_ptr<outlook::Folder> dst = std::move(m_dst);
        m_entries.clear();
        m_hex.clear();
        if (!mover) RaiseStore(mover.error());
        const journal::StoreMover::Outcome moved =
            (*mover)->Move(m_context, *m_source->Store(), m_source->BinaryEntryID(), *dst->Store(),
                           dst->BinaryEntryID(), entries);
        for (size_t i = 0; i < entries.size(); ++i) {
            if (moved.states[i] == journal::MoveState::Vanished) {
                ++outcome.vanished;
            } else if (moved.states[i] == journal::MoveState::Moved) {
                ++outcome.moved;
                outcome.subjects << entries[i].subject;
                outcome.entryIds << hex[i];
            }
        }
        if (!moved.status) RaiseStore(moved.status.error());
    }

private:
    journal::StoreMover::Context m_context;
    const outlook::Folder* m_source;
    std::unique_ptr<outlook::Folder> m_dst;
    std::vector<journal::StoreMover::Entry> m_entries;
    std::vector<QString> m_hex;
};

}  // namespace

RuleExecutor::RuleExecutor(outlook::NameSpace& nameSpace, const ProgIdRegistry& progIds, os::ErrorReport& report,
                           const os::Clock& clock, const os::TimeZoneSource& timeZone)
    : m_ns(nameSpace), m_progIds(progIds), m_report(report), m_clock(clock), m_timeZone(timeZone)
{
}

RuleExecutor::~RuleExecutor() = default;

Result<journal::StoreMover*> RuleExecutor::Mover()
{
    if (m_moverError) return *m_moverError;
    if (m_mover) return m_mover;
    if (!m_ownMover) {
        auto opened = journal::MoveJournal::Open(QStringLiteral(":memory:"));
        if (!opened) return opened.error();
        m_ownJournal = std::move(*opened);
        m_ownMover = std::make_unique<journal::StoreMover>(
            *m_ownJournal,
            [this](const QByteArray& storeId) { return FindStore(m_ns.Stores(), storeId); },
            m_log);
    }
    return m_ownMover.get();
}

std::optional<QDateTime> RuleExecutor::CutOffFor(const RuleRecord& rule) const
{
    if (!rule.HasAgeCriterion()) return std::nullopt;
    const EngineSettings s = Settings();
    const QDateTime now = m_clock.Now();
    AgeSettings age;
    age.alignTime = s.alignTime == 1;
    age.weekStart = s.weekStart;
    if (auto tz = m_timeZone.Information(now)) age.offsetSeconds = os::UtcOffsetSeconds(*tz);
    auto cutOff = CutOff(now, *rule.timeField, *rule.timeDiff, age);
    if (!cutOff) Raise(kErrInvalidCall, QStringLiteral("Invalid procedure call or argument"));
    return cutOff;
}

Restriction RuleExecutor::BuildRestriction(const RuleRecord& rule) const
{
    Restriction root(RES_AND);
    AddRuleCriteria(rule, CutOffFor(rule), root);
    return root;
}

void RuleExecutor::DefineQuery(const RuleRecord& rule, outlook::MapiTable& table, Restriction& filter) const
{
    filter.Clear();
    filter.kind = RES_AND;
    AddRuleCriteria(rule, CutOffFor(rule), filter);
    table.SetColumns(kColumns);
}

void RuleExecutor::Anticipate(const RuleRecord& rule)
{
    try {
        std::unique_ptr<outlook::Folder> source = m_ns.GetFolderFromID(rule.srcEntryId, rule.srcStoreId);
        if (!source) return;
        std::unique_ptr<outlook::MapiTable> table =
            m_progIds.Create<outlook::MapiTable>(QString::fromLatin1(outlook::kMapiTableProgId));
        if (!table || !table->SetItems(*source)) return;
        Restriction* filter = table->Filter();
        if (!filter) return;
        DefineQuery(rule, *table, *filter);  // as Execute does: the store must see the same query
        table->Anticipate();
    } catch (const RuleError&) {
    }
}

void RuleExecutor::ExecuteRule(ado::Recordset& rs, bool& preview, std::int16_t& result)
{
    result = Execute(rs, preview).result;
}

RuleOutcome RuleExecutor::Execute(ado::Recordset& rs, bool preview, const ExecuteOptions& options)
{
    RuleRecord rule;
    try {
        rule = RuleRecord::FromRecordset(rs);
    } catch (const ado::AdoError& e) {
        RuleOutcome outcome;
        outcome.error = os::ErrorReport::ProcedureErrorText(e.Number(), e.Description(), kSource);
        m_report.ShowProcedureError(e.Number(), e.Description(), kSource);
        return outcome;
    }
    return Execute(rule, preview, options);
}

RuleOutcome RuleExecutor::Execute(const RuleRecord& rule, bool preview, const ExecuteOptions& options)
{
    RuleOutcome outcome;
    outcome.ruleId = rule.ruleId;
    outcome.ruleName = rule.ruleName;
    // Declared before the batch: the catch below still moves what is pending.
    std::unique_ptr<outlook::Folder> source;
    std::unique_ptr<MoveBatch> batch;
    auto flush = [&] {
        if (batch) batch->Flush(Mover(), outcome);
    };
    // Source and destination are looked up once for the rule, not per row.
    struct Hold {
        outlook::NameSpace& ns;
        explicit Hold(outlook::NameSpace& n) : ns(n) { ns.HoldFolderLookups(true); }
        ~Hold() { ns.HoldFolderLookups(false); }
    } hold(m_ns);
    try {
        // Step 1: folder, table, filter.
        source = m_ns.GetFolderFromID(rule.srcEntryId, rule.srcStoreId);
        if (!source) Raise(kErr1000, QStringLiteral("Failed to create Folder object. Contact Sorquin Support."));
        std::unique_ptr<outlook::MapiTable> table =
            m_progIds.Create<outlook::MapiTable>(QString::fromLatin1(outlook::kMapiTableProgId));
        if (!table) Raise(kErr1001, QStringLiteral("Failed to create Table object. Contact Sorquin Support."));
        table->SetItems(*source);
        Restriction* filter = table->Filter();
        if (!filter) Raise(kErr1002, QStringLiteral("Failed to create Filter object. Contact Sorquin Support."));
        // Step 2: criteria, one child of the root AND each; the columns.
        DefineQuery(rule, *table, *filter);
        batch = std::make_unique<MoveBatch>(
            journal::StoreMover::Context{options.run, rule.ruleId.value_or(0), rule.ruleName}, source.get());

        // Step 3: rows.
        table->GoToFirstRow();
        for (;;) {
            auto next = table->GetNextRow();
            if (!next) RaiseStore(next.error());
            const Row& row = *next;
            if (row.empty()) break;

            const QString subject = SubjectText(row[3]);
            const QString entryId = Hex(row[0]);
            const QString storeId = Hex(row[1]);
            const outlook::ItemKind kind = outlook::KindOfMessageClass(row[2].toString().toUpper());
            if (kind == outlook::ItemKind::Other) continue;
            if (preview && options.excludedIds && options.excludedIds->contains(entryId)) continue;

            // The row already holds what the loop needs of the item.
            std::unique_ptr<outlook::Item> item = options.itemsFromRows ? table->RowItem() : nullptr;
            if (!item) item = m_ns.GetItemFromID(entryId, storeId);
            if (!item) Raise(kErrItemNotFound, QStringLiteral("The message \"%1\" could not be opened.").arg(subject));

            std::unique_ptr<outlook::Folder> destination =
                m_ns.GetFolderFromID(rule.dstEntryId, rule.dstStoreId);
            const bool open = !preview && IsOpen(item->EntryID());
            // Folders with stores behind them move through the journal, in
            // one store or across two; a stand-in folder with no store
            // behind it (tests of the row loop) moves the item itself.
            const bool batchable = !preview && !open && destination && destination->Store() && source->Store() &&
                                   item->StoreID() == source->StoreID() &&
                                   MapiUtils::HexToBinary(item->EntryID()).has_value();

            // A completed flag is cleared whether or not the item then moves;
            // for an item joining the batch the mover clears it, with the
            // others, just before moving them.
            bool flagCleared = false;
            if (kind == outlook::ItemKind::Mail && !preview && item->FlagStatus() == outlook::olFlagComplete) {
                if (!batchable) {
                    item->SetFlagStatus(outlook::olNoFlag);
                    if (Status s = item->Save(); !s) RaiseStore(s.error());
                }
                flagCleared = true;
                ++outcome.flagsCleared;
            }

            if (!destination) {
                ++outcome.skippedNoDestination;
                continue;
            }

            if (preview) {
                if (options.previewSkipsOpenItems && IsOpen(item->EntryID())) {
                    ++outcome.skippedOpen;
                    continue;
                }
                outcome.subjects << subject;
                outcome.entryIds << entryId;
                continue;
            }
            if (open) {
                ++outcome.skippedOpen;
                continue;
            }
            if (batchable) {
                if (!batch->Accepts(*destination)) flush();
                const QString hex = item->EntryID();
                journal::StoreMover::Entry entry{*MapiUtils::HexToBinary(hex), flagCleared, subject,
                                                 row.size() > 5 ? row[5].toString() : QString()};
                batch->Add(std::move(destination), std::move(entry), hex);
                const int limit = !options.batchMoves ? 1
                                  : batch->CrossStore() ? options.crossStoreBatchLimit
                                                        : options.batchLimit;
                if (static_cast<int>(batch->Size()) >= std::max(1, limit)) {
                    flush();
                    // Between batches: window events (the status form's
                    // Cancel, a stop signal) and the run's cancel flag.
                    if (options.betweenBatches && options.betweenBatches()) {
                        outcome.cancelled = true;
                        break;
                    }
                }
                continue;
            }
            flush();
            if (Status s = item->Move(*destination); !s) RaiseStore(s.error());
            ++outcome.moved;
            outcome.subjects << subject;
            outcome.entryIds << entryId;
        }
        flush();

        // Step 4: end.
        outcome.result = kResultGoOn;
    } catch (const RuleError& e) {
        // Rows before the failing one are moved, as they would have been
        // one by one; a second failure there changes nothing reported.
        try {
            flush();
        } catch (const RuleError&) {
        }
        outcome.result = 0;
        outcome.error = os::ErrorReport::ProcedureErrorText(e.number, e.description, kSource);
        m_report.ShowProcedureError(e.number, e.description, kSource);
    }
    return outcome;
}

}  // namespace mv::engine

#pragma once
// Runs the queries a rule run is about to ask on a connection and thread of
// its own, a few rules ahead, so that the server searches for the next
// rules while the current one moves its mail.
//
// An answer is taken only for the same folder, restriction, search text
// and columns.
// Each job reads the folder's HIGHESTMODSEQ (STATUS) just before its
// search: whatever changed after that moment (flags set by someone else,
// mail that arrived or was moved in) has a higher mod-sequence, so the
// taker asks for what changed since (CHANGEDSINCE) and checks those
// messages again. A job that fails only means the taker queries as usual.
//
// One connection: two searching at once took the server a quarter more
// work for no shorter run on a two-processor machine, and the server is
// usually someone else's.

#include "ImapSettings.h"
#include "SearchWriter.h"
#include "platform/common/Error.h"
#include "platform/mapi/MessageStore.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace mv::stores {

class ImapConnection;

struct LookaheadJob {
    QByteArray mailbox;
    quint32 uidValidity = 0;
    SearchKeys keys;  // as the query would send them
    mapi::Restriction restriction;
    std::vector<mapi::PropTag> columns;
};

// What a query gathered: its rows in UID order, each row's UID, and what a
// later move needs of each fetched message.
struct GatheredRows {
    std::vector<mapi::Row> rows;
    std::vector<quint32> rowUids;
    struct Fetched {
        QByteArray messageId;  // the Message-ID field, unfolded and trimmed
        mapi::MessageFlags flags;
        quint32 size = 0;         // RFC822.SIZE
        QDateTime internalDate;   // UTC
    };
    QHash<quint32, Fetched> fetched;
};

struct LookaheadAnswer {
    quint64 modSeq = 0;  // the folder's HIGHESTMODSEQ before the search
    GatheredRows gathered;
};

class ImapLookahead {
public:
    using Opener = std::function<Result<std::unique_ptr<ImapConnection>>()>;
    // Runs the job's query on `conn`, which has the folder selected.
    using Gatherer = std::function<Result<GatheredRows>(ImapConnection& conn, const LookaheadJob& job)>;

    ImapLookahead(Opener opener, Gatherer gatherer);
    ~ImapLookahead();
    ImapLookahead(const ImapLookahead&) = delete;
    ImapLookahead& operator=(const ImapLookahead&) = delete;

    void Enqueue(LookaheadJob job);
    // The answer of the queued job with this folder, query and columns,
    // waiting for it if it is running; jobs queued before it are dropped.
    // Nothing when no such job was queued, it had not begun, or it failed.
    std::optional<LookaheadAnswer> Take(const LookaheadJob& asked);
    // Drops the folder's jobs (its queries are answered another way).
    void Forget(const QByteArray& mailbox, quint32 uidValidity);
    // No job queued.
    bool Empty() const;
    // Commands sent on the lookahead's connections so far.
    int CommandsSent() const;

private:
    static constexpr size_t kMostQueued = 16;

    struct Slot {
        LookaheadJob job;
        bool started = false;  // the thread has it (it stays queued until taken)
        bool done = false;
        std::optional<LookaheadAnswer> answer;
    };
    void Run();  // the thread, with its own connection
    std::optional<LookaheadAnswer> Answer(ImapConnection& conn, const LookaheadJob& job);

    Opener m_opener;
    Gatherer m_gatherer;
    mutable std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::deque<std::shared_ptr<Slot>> m_slots;
    bool m_stop = false;
    int m_commands = 0;
    std::thread m_thread;  // last: it starts once the rest is made
};

}  // namespace mv::stores

#include "ImapLookahead.h"

#include "ImapConnection.h"

#include <libetpan/libetpan.h>

#include <algorithm>

namespace mv::stores {

namespace {

bool SameQuery(const LookaheadJob& a, const LookaheadJob& b)
{
    // The same search text may be checked against different terms here.
    return a.mailbox == b.mailbox && a.uidValidity == b.uidValidity && a.columns == b.columns &&
           a.restriction == b.restriction && SearchWriter::Command(a.keys) == SearchWriter::Command(b.keys);
}

}  // namespace

ImapLookahead::ImapLookahead(Opener opener, Gatherer gatherer)
    : m_opener(std::move(opener)), m_gatherer(std::move(gatherer)), m_thread([this] { Run(); })
{
}

ImapLookahead::~ImapLookahead()
{
    {
        std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void ImapLookahead::Enqueue(LookaheadJob job)
{
    {
        std::lock_guard lock(m_mutex);
        auto slot = std::make_shared<Slot>();
        slot->job = std::move(job);
        m_slots.push_back(std::move(slot));
        // Jobs nobody took (a rule that stopped the run, an age rule whose
        // search text moved on with the clock) go once there are enough.
        while (m_slots.size() > kMostQueued) m_slots.pop_front();
    }
    m_changed.notify_all();
}

void ImapLookahead::Forget(const QByteArray& mailbox, quint32 uidValidity)
{
    std::lock_guard lock(m_mutex);
    // A job already running finishes into a slot nobody holds any more.
    std::erase_if(m_slots, [&](const std::shared_ptr<Slot>& s) {
        return s->job.mailbox == mailbox && s->job.uidValidity == uidValidity;
    });
}

std::optional<LookaheadAnswer> ImapLookahead::Take(const LookaheadJob& asked)
{
    std::unique_lock lock(m_mutex);
    auto match = std::find_if(m_slots.begin(), m_slots.end(),
                              [&](const std::shared_ptr<Slot>& s) { return SameQuery(s->job, asked); });
    if (match == m_slots.end()) return std::nullopt;
    std::shared_ptr<Slot> slot = *match;
    m_slots.erase(m_slots.begin(), match + 1);
    // Not begun yet: the thread will never see it now, and the query is
    // as quick done by the asker.
    if (!slot->started) return std::nullopt;
    m_changed.wait(lock, [&] { return slot->done; });
    return std::move(slot->answer);
}

bool ImapLookahead::Empty() const
{
    std::lock_guard lock(m_mutex);
    return m_slots.empty();
}

int ImapLookahead::CommandsSent() const
{
    std::lock_guard lock(m_mutex);
    return m_commands;
}

void ImapLookahead::Run()
{
    std::unique_ptr<ImapConnection> conn;
    int counted = 0;                       // of its commands, already in m_commands
    for (;;) {
        std::shared_ptr<Slot> slot;
        {
            std::unique_lock lock(m_mutex);
            auto waiting = [&] {
                return std::find_if(m_slots.begin(), m_slots.end(),
                                    [](const std::shared_ptr<Slot>& s) { return !s->started; });
            };
            m_changed.wait(lock, [&] { return m_stop || waiting() != m_slots.end(); });
            if (m_stop) return;
            slot = *waiting();
            slot->started = true;
        }
        // The slot may be dropped from the queue meanwhile; it is still ours to fill.
        if (conn && conn->broken()) {
            std::lock_guard lock(m_mutex);
            m_commands += conn->commandsSent() - counted;
            conn.reset();
            counted = 0;
        }
        if (!conn)
            if (auto opened = m_opener()) conn = std::move(*opened);
        std::optional<LookaheadAnswer> answer = conn ? Answer(*conn, slot->job) : std::nullopt;
        {
            std::lock_guard lock(m_mutex);
            if (conn) {
                m_commands += conn->commandsSent() - counted;
                counted = conn->commandsSent();
            }
            slot->answer = std::move(answer);
            slot->done = true;
        }
        m_changed.notify_all();
    }
}

std::optional<LookaheadAnswer> ImapLookahead::Answer(ImapConnection& conn, const LookaheadJob& job)
{
    auto uidValidity = conn.Select(job.mailbox);
    if (!uidValidity || *uidValidity != job.uidValidity) return std::nullopt;
    // Asked just before the search: whatever the search does not see
    // changes after this and so has a higher mod-sequence.
    const auto state = conn.ReadModState(job.mailbox);
    if (!state || state->highestModSeq == 0) return std::nullopt;
    auto gathered = m_gatherer(conn, job);
    if (!gathered) return std::nullopt;
    return LookaheadAnswer{state->highestModSeq, std::move(*gathered)};
}

}  // namespace mv::stores

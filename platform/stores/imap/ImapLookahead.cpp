#include "ImapLookahead.h"

#include "ImapConnection.h"

#include <libetpan/libetpan.h>

#include <algorithm>

namespace mv::stores {

namespace {

bool SameQuery(const LookaheadJob& a, const LookaheadJob& b)
{
    return a.mailbox == b.mailbox && a.uidValidity == b.uidValidity && a.columns == b.columns &&
           SearchWriter::Command(a.keys) == SearchWriter::Command(b.keys);
}

// STATUS (HIGHESTMODSEQ): cheap, and read from the folder as it is now.
std::optional<quint64> HighestModSeq(ImapConnection& conn, const QByteArray& mailbox)
{
    mailimap_status_att_list* atts = mailimap_status_att_list_new_empty();
    mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_HIGHESTMODSEQ);
    mailimap_mailbox_data_status* status = nullptr;
    conn.CountCommand();
    const int r = mailimap_status(conn.session(), mailbox.constData(), atts, &status);
    mailimap_status_att_list_free(atts);
    if (!conn.Check(r, "STATUS")) return std::nullopt;
    std::optional<quint64> value;
    for (clistiter* it = clist_begin(status->st_info_list); it; it = clist_next(it)) {
        auto* info = static_cast<mailimap_status_info*>(clist_content(it));
        const mailimap_extension_data* ext = info->st_ext_data;
        if (ext && ext->ext_extension == &mailimap_extension_condstore &&
            ext->ext_type == MAILIMAP_CONDSTORE_TYPE_STATUS_INFO && ext->ext_data)
            value = static_cast<mailimap_condstore_status_info*>(ext->ext_data)->cs_highestmodseq_value;
        else if (info->st_att == MAILIMAP_STATUS_ATT_HIGHESTMODSEQ)
            value = info->st_value;
    }
    mailimap_mailbox_data_status_free(status);
    return value;
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

std::optional<LookaheadAnswer> ImapLookahead::Take(const LookaheadJob& asked)
{
    std::unique_lock lock(m_mutex);
    auto match = std::find_if(m_slots.begin(), m_slots.end(),
                              [&](const std::shared_ptr<Slot>& s) { return SameQuery(s->job, asked); });
    if (match == m_slots.end()) return std::nullopt;
    std::shared_ptr<Slot> slot = *match;
    m_slots.erase(m_slots.begin(), match + 1);
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
    const std::optional<quint64> modSeq = HighestModSeq(conn, job.mailbox);
    if (!modSeq || *modSeq == 0) return std::nullopt;
    auto gathered = m_gatherer(conn, job);
    if (!gathered) return std::nullopt;
    return LookaheadAnswer{*modSeq, std::move(*gathered)};
}

}  // namespace mv::stores

#pragma once
// One logged-in libetpan IMAP session (RAII: the session and its stream are
// freed with the object). Not thread-safe: one thread drives a connection.
//
// Errors: a failure of the stream (timeout, reset, unparseable data) is
// Temporary and marks the connection broken, so its owner opens a new one;
// a NO or BAD from the server is Permanent and leaves the connection usable.

#include "ImapSettings.h"
#include "platform/common/Error.h"

#include <QByteArray>

#include <memory>
#include <vector>

struct mailimap;
struct _mailstream;

namespace mv::stores {

class ImapConnection {
public:
    ~ImapConnection();
    ImapConnection(const ImapConnection&) = delete;
    ImapConnection& operator=(const ImapConnection&) = delete;

    // Connects as the settings say (TLS verified before the password is
    // sent), logs in and reads the capabilities. `password` is the access
    // token when settings.auth is an OAuth2 mechanism.
    static Result<std::unique_ptr<ImapConnection>> Open(const ImapSettings& settings, const QString& password);
    // The same over a stream the caller made (tests run a scripted server
    // on a socketpair). Takes the stream.
    static Result<std::unique_ptr<ImapConnection>> OpenOnStream(_mailstream* stream, const ImapSettings& settings,
                                                                const QString& password);

    // Error::code of a refused login (LOGIN or AUTHENTICATE answered NO).
    static constexpr int kLoginRefused = -1001;
    static bool IsLoginRefused(const Error& error) { return error.code == kLoginRefused; }
    // Error::code (Permanent) of an OAuth2 login whose access token the
    // server called expired or invalid: a fresh token may be let in, so the
    // owner asks for one (ImapCredentials::Open) before calling it refused.
    static constexpr int kTokenRejected = -1002;
    static bool IsTokenRejected(const Error& error) { return error.code == kTokenRejected; }

    mailimap* session() const { return m_session; }
    bool Has(const char* capability) const;
    bool broken() const { return m_broken; }

    // Turns a libetpan result into a Status; `what` names the command.
    Status Check(int r, const char* what);

    // SELECTs the mailbox unless it is already selected; its UIDVALIDITY.
    Result<quint32> Select(const QByteArray& mailbox);
    void ForgetSelection() { m_selected.clear(); }
    // Brings the session's view of the selected folder up to date (NOOP)
    // unless the last command was its SELECT. A server answers a command
    // from the view as of the end of the one before, so without this a
    // query after a quiet spell would miss what others did meanwhile.
    Status Sync();
    // Messages in the selected folder as the server last reported them
    // (EXISTS, less each EXPUNGE since).
    quint32 Exists() const;
    const QByteArray& selected() const { return m_selected; }

    struct ModState {
        quint32 messages = 0;
        quint64 highestModSeq = 0;  // 0: the server keeps none for the folder
    };
    // STATUS (MESSAGES HIGHESTMODSEQ): cheap, and the folder as it is now.
    Result<ModState> ReadModState(const QByteArray& mailbox);

    // ENABLE QRESYNC once per connection, when the server offers it: from
    // then on expunges are told as VANISHED UID sets (and libetpan's count
    // of EXISTS no longer drops with them). False when not offered or
    // refused; an error only when the connection failed.
    Result<bool> EnableQresync();
    bool qresync() const { return m_qresync; }
    // UID SEARCH ALL: every UID of the selected mailbox, sorted.
    Result<std::vector<quint32>> AllUids();
    // The UIDs of the VANISHED answers of the last command.
    std::vector<quint32> Vanished() const;

    // A command libetpan has no call for, sent as text; the untagged data
    // is left in the session's response info for the caller to read.
    Status Custom(const QByteArray& command);
    // The UIDs of the last (UID) SEARCH response.
    std::vector<quint32> SearchResult() const;
    // Number of commands sent on this connection (for benchmarks).
    int commandsSent() const { return m_commands; }
    void CountCommand() { ++m_commands; }

private:
    explicit ImapConnection(mailimap* session) : m_session(session) {}
    Status Login(const ImapSettings& settings, const QString& password);
    Status LoginWithPassword(const ImapSettings& settings, const QString& password);
    // AUTHENTICATE XOAUTH2 / OAUTHBEARER, written by hand: libetpan's own
    // XOAUTH2 call knows neither OAUTHBEARER nor the continuation form, and
    // drops the server's reason for a refusal.
    Status AuthenticateOAuth(const ImapSettings& settings, const QString& token);
    Status Write(const QByteArray& data);
    Result<QByteArray> ReadLine();

    mailimap* m_session = nullptr;
    bool m_broken = false;
    QByteArray m_selected;
    int m_commands = 0;
    int m_selectedAt = -1;  // m_commands just after the SELECT
    bool m_qresync = false;
    bool m_qresyncRefused = false;
};

}  // namespace mv::stores

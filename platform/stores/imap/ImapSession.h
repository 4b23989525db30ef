#pragma once
// An IMAP account's credentials and the one connection that serves the
// store's thread: opened on the first call, reopened on the next call after
// it drops, and left alone for a while after a failed connect (ImapReconnect).
//
// Retrying runs a read-only call again once on a fresh connection when the
// first attempt lost the connection; moves and appends never go through it
// (after a drop the move journal's recovery settles what the server did).
//
// Not thread-safe; owned by the store's thread.

#include "ImapConnection.h"
#include "ImapCredentials.h"
#include "ImapIds.h"
#include "ImapReconnect.h"
#include "ImapSettings.h"

#include <QDateTime>

#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>

namespace mv::logging {
class Logger;
}

namespace mv::stores {

class ImapSession {
public:
    using Connector = std::function<Result<std::unique_ptr<ImapConnection>>(const ImapSettings&, const QString& password)>;

    ImapSession(ImapSettings settings, Connector connector);

    const ImapSettings& settings() const { return m_settings; }
    const Connector& connector() const { return m_connector; }
    // Borrowed; may be null.
    void SetLogger(logging::Logger* log);
    logging::Logger* logger() const { return m_log; }

    QString DisplayName() const;
    // The address "me" stands for in rules.
    QString OwnAddress() const;
    QDateTime Now() const;

    // The password or token, shared with the lookahead and the watcher so a
    // token renewed by one serves them all.
    const std::shared_ptr<ImapCredentials>& credentials() const { return m_credentials; }
    // The open connection, or a new one (Temporary while the server is
    // left alone, Permanent after a refused login).
    Result<ImapConnection*> Connection();
    // The open connection if there is one, without connecting.
    ImapConnection* current() const { return m_conn.get(); }
    // Changes with every new connection: what was read per connection
    // (the mailbox list) is read again.
    int generation() const { return m_generation; }
    // Commands sent on this session's connections, closed ones included.
    int CommandsSent() const { return m_commandsDone + (m_conn ? m_conn->commandsSent() : 0); }

    template <class T>
    Result<T> Retrying(const std::function<Result<T>(ImapConnection&)>& call)
    {
        for (int attempt = 0;; ++attempt) {
            auto conn = Connection();
            if (!conn) return conn.error();
            Result<T> result = call(**conn);
            // Only a dropped connection is worth a second try, and only once.
            if (result || attempt > 0 || !(*conn)->broken()) return result;
        }
    }

    // SELECT, NotFound when the folder was recreated under another UIDVALIDITY.
    static Result<quint32> SelectChecked(ImapConnection& conn, const ImapFolderRef& folder);
    // STATUS with these items (MAILIMAP_STATUS_ATT_*): each item's value,
    // 0 for one the server left out; NotFound when the mailbox is missing.
    static Result<std::map<int, quint32>> StatusOf(ImapConnection& conn, const QByteArray& mailbox,
                                                   std::initializer_list<int> items);
    // STATUS (UIDVALIDITY); NotFound when the mailbox is missing.
    static Result<quint32> UidValidity(ImapConnection& conn, const QByteArray& mailbox);
    // STATUS (UIDVALIDITY UIDNEXT): the UIDNEXT; NotFound when the folder
    // is missing or was recreated under another UIDVALIDITY.
    static Result<quint32> UidNextChecked(ImapConnection& conn, const ImapFolderRef& folder);

private:
    ImapSettings m_settings;
    logging::Logger* m_log = nullptr;
    // Failed connects: pause, and stop after a refused login.
    ImapReconnect m_reconnect;
    Connector m_connector;
    std::unique_ptr<ImapConnection> m_conn;
    std::shared_ptr<ImapCredentials> m_credentials;
    int m_commandsDone = 0;  // of connections already closed
    int m_generation = 0;
};

}  // namespace mv::stores

#pragma once
// What an IMAP login presents: the profile's password, or the first line a
// command prints (password_command, or token_command for an OAuth2 access
// token). A command runs once and its answer is kept; a token the server
// calls expired is replaced by running the command once more.
//
// Thread-safe: the store, its look-ahead connection and its new-mail watcher
// share one (std::shared_ptr), so a token renewed by one serves them all.
// Secrets never appear in error messages.

#include "ImapSettings.h"
#include "platform/common/Error.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace mv::stores {

class ImapConnection;

class ImapCredentials {
public:
    using Opener = std::function<Result<std::unique_ptr<ImapConnection>>(const QString& secret)>;

    explicit ImapCredentials(ImapSettings settings);

    // The password or token. A command that fails, times out or (for a
    // token) prints nothing is a Permanent error naming the account; it is
    // run again on the next call.
    Result<QString> Secret();
    // Opens through `open` with Secret(). When the server rejects the token
    // (ImapConnection::kTokenRejected), asks the command for a fresh one
    // and tries once more; a second rejection becomes a refused login
    // (ImapConnection::kLoginRefused), which stops further tries.
    Result<std::unique_ptr<ImapConnection>> Open(const Opener& open);

private:
    bool IsToken() const { return m_settings.auth != ImapAuth::Password; }
    Result<QString> Run() const;  // the command; call with m_mutex held
    // A token other than `rejected`: the one another connection renewed
    // meanwhile, or the command's new answer.
    Result<QString> Renew(const QString& rejected);

    const ImapSettings m_settings;
    const QString m_account;  // user@host, for messages
    std::mutex m_mutex;
    std::optional<QString> m_secret;
};

}  // namespace mv::stores

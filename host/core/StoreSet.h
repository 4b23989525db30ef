#pragma once
// Owns the message stores of a profile for the host's lifetime.

#include "Profile.h"

#include "platform/mapi/MessageStore.h"

#include <memory>
#include <vector>

namespace mv::logging {
class Logger;
}

namespace mv::host {

class StoreSet {
public:
    StoreSet() = default;
    StoreSet(const StoreSet&) = delete;
    StoreSet& operator=(const StoreSet&) = delete;

    // Makes one store per profile section. Opening does not connect: an IMAP
    // server is reached at the first call, so an unreachable one does not
    // stop the others. A Maildir path that is not a folder is an error.
    // `log` (may be nullptr, must outlive the stores) hears of failed
    // connections; it is written from the stores' own threads too.
    static Result<std::unique_ptr<StoreSet>> Open(const Profile& profile, logging::Logger* log = nullptr);

    void Add(std::unique_ptr<mapi::MessageStore> store);
    std::vector<mapi::MessageStore*> Stores() const;
    bool IsEmpty() const { return m_stores.empty(); }

private:
    std::vector<std::unique_ptr<mapi::MessageStore>> m_stores;
};

}  // namespace mv::host

#pragma once
// The backends the conformance suite runs against. Each backend adds one
// source file to this folder that registers itself with a static
// BackendRegistrar; the suite then runs every case against every backend.
//
// make() returns a fresh Fixture: a new, empty store of that backend (with
// an INBOX and the empty folders "Archive" and "Dest") that it owns and
// removes again when destroyed. It returns nullptr when the backend cannot
// run here (no server available); its tests are then skipped, not failed.

#include "platform/mapi/MessageStore.h"

#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace mv::conformance {

class Fixture {
public:
    virtual ~Fixture() = default;
    virtual mapi::MessageStore& Store() = 0;
    // Puts the messages into the INBOX, in order. The default appends them
    // through the store; a backend may write them in its own way instead.
    virtual Status Seed(const std::vector<mapi::NewMessage>& messages);

    QByteArray inbox;
    QByteArray archive;
    QByteArray dest;
};

struct ConformanceBackend {
    QString name;  // letters and digits only: it becomes part of test names
    std::function<std::unique_ptr<Fixture>()> make;
};

std::vector<ConformanceBackend>& Backends();

struct BackendRegistrar {
    explicit BackendRegistrar(ConformanceBackend backend) { Backends().push_back(std::move(backend)); }
};

}  // namespace mv::conformance

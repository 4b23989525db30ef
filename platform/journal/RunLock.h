#pragma once
// The lock that serialises runs of different processes (the service and a
// `mailvane run`), so the rows a recovery finds Intended are never those of
// another live process.
//
// An flock(2) on a file beside the journal: the kernel lets go when the
// holder dies, so a killed process never leaves the lock behind. Two locks
// taken in one process also exclude each other (flock is per open file),
// which is what a run started from inside another's event pumping needs.
//
// Errors: Temporary when another holder kept it for the whole wait;
// Permanent when the lock file cannot be opened.

#include "platform/common/Error.h"

#include <QString>

#include <chrono>
#include <memory>

namespace mv::journal {

class RunLock {
public:
    ~RunLock();
    RunLock(const RunLock&) = delete;
    RunLock& operator=(const RunLock&) = delete;

    // Takes the lock on `path` (created 0600), trying again for up to
    // `wait` while another holder has it.
    static Result<std::unique_ptr<RunLock>> Acquire(const QString& path, std::chrono::milliseconds wait);
    // A lock that holds nothing: for a journal that lives in memory only.
    static std::unique_ptr<RunLock> None();

private:
    explicit RunLock(int fd) : m_fd(fd) {}
    int m_fd = -1;
};

}  // namespace mv::journal

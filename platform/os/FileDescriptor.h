#pragma once
// An owned POSIX file descriptor, closed when it goes, and a write that
// goes on after short writes and EINTR.

#include <cerrno>
#include <cstddef>
#include <unistd.h>

namespace mv::os {

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor()
    {
        if (m_fd >= 0) ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }
    // Closes now; false when close(2) reports an error (a write lost on NFS).
    bool Close()
    {
        const int fd = m_fd;
        m_fd = -1;
        return ::close(fd) == 0;
    }

private:
    int m_fd;
};

// False when a write fails; what was written before stays.
inline bool WriteAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace mv::os

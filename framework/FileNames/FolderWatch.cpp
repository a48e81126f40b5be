#include "framework/FileNames/FolderWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

std::unique_ptr<FolderWatch> FolderWatch::Open(const std::string& folder) {
    int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) return nullptr;
    const uint32_t mask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    if (::inotify_add_watch(fd, folder.c_str(), mask) < 0) {
        ::close(fd);
        return nullptr;
    }
    return std::unique_ptr<FolderWatch>(new FolderWatch(fd));
}

FolderWatch::~FolderWatch() { ::close(m_Fd); }

void FolderWatch::Read(Changes& changes) {
    // Aligned as the kernel's records require.
    alignas(struct inotify_event) char buffer[16384];
    for (;;) {
        ssize_t length = ::read(m_Fd, buffer, sizeof buffer);
        if (length < 0 && errno == EINTR) continue;
        if (length <= 0) return;  // EAGAIN: nothing more pending
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) changes.lost = true;
            if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) changes.gone = true;
            if ((event->mask & (IN_CLOSE_WRITE | IN_MOVED_TO)) && !(event->mask & IN_ISDIR) && event->len > 0)
                changes.complete.emplace_back(event->name, ::strnlen(event->name, event->len));
        }
    }
}

// The kernel's file notification (inotify) on one folder, reporting the
// files that became complete in it: closed after writing, or moved in.
#pragma once

#include <memory>
#include <string>
#include <vector>

class FolderWatch {
public:
    /// What Read found.
    struct Changes {
        std::vector<std::string> complete;  // file names, in the order the kernel reported them
        bool lost = false;                  // the kernel's queue overflowed: events were dropped
        bool gone = false;                  // the folder was removed or moved away
    };

    /// A watch on `folder`, or null when notification is not available
    /// there (no inotify, or the watch could not be added).
    static std::unique_ptr<FolderWatch> Open(const std::string& folder);

    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// Becomes readable when events are pending.
    int Descriptor() const { return m_Fd; }
    /// Reads every pending event without waiting.
    void Read(Changes& changes);

private:
    explicit FolderWatch(int fd) : m_Fd(fd) {}
    int m_Fd;
};

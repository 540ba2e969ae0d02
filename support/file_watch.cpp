// FileWatch: inotify watches on the folders of the files read, and the
// events that name those files.
#include "support/file_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr uint32_t FOLDER_EVENTS =
    IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_ATTRIB;

// The folder and the last part of a file name ("." for a bare name).
void split_name(const std::string& file, std::string* folder, std::string* base) {
    const size_t slash = file.rfind('/');
    if (slash == std::string::npos) {
        *folder = ".";
        *base = file;
    } else {
        *folder = slash == 0 ? "/" : file.substr(0, slash);
        *base = file.substr(slash + 1);
    }
}

}  // namespace

FileWatch::FileWatch() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

FileWatch::~FileWatch() {
    if (fd_ >= 0) close(fd_);
}

// Watches are never taken off: an edit made while the files were read
// again is queued on them, and must still count. Adding a folder watched
// already gives its watch back.
void FileWatch::watch(const std::vector<std::string>& files) {
    if (fd_ < 0) return;
    names_.clear();
    for (const std::string& file : files) {
        std::string folder, base;
        split_name(file, &folder, &base);
        if (base.empty()) continue;
        const int wd = inotify_add_watch(fd_, folder.c_str(), FOLDER_EVENTS);
        if (wd >= 0) names_[wd].insert(base);
    }
}

bool FileWatch::take_events() {
    if (fd_ < 0) return false;
    bool changed = false;
    alignas(inotify_event) char buffer[16384];
    for (;;) {
        const ssize_t got = read(fd_, buffer, sizeof buffer);
        if (got <= 0) {
            if (got < 0 && errno == EINTR) continue;
            break;
        }
        for (ssize_t at = 0; at + ssize_t(sizeof(inotify_event)) <= got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            at += ssize_t(sizeof(inotify_event) + event->len);
            if (event->len == 0 || at > got) continue;
            auto names = names_.find(event->wd);
            if (names != names_.end() && names->second.count(event->name) != 0) changed = true;
        }
    }
    return changed;
}

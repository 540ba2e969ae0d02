// Watching files for edits with inotify. Editors save in two ways: writing
// the file in place, or writing a new file under another name and renaming
// it over the old one (which leaves a watch on the old file watching nothing).
// So the folders that hold the files are watched, and an event counts when it
// names one of the files: a write closed, a change, a file moved or made
// under that name, or the file removed.
#ifndef TRACERY_SUPPORT_FILE_WATCH_H
#define TRACERY_SUPPORT_FILE_WATCH_H

#include <map>
#include <set>
#include <string>
#include <vector>

class FileWatch {
  public:
    FileWatch();
    ~FileWatch();
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

    // Watches these files (names as given to open them) instead of those
    // watched before. Folders that cannot be watched are left out.
    void watch(const std::vector<std::string>& files);
    // The descriptor to poll for reading (-1 when inotify is not available).
    int descriptor() const { return fd_; }
    // Reads the events waiting; true when one concerns a watched file.
    bool take_events();

  private:
    int fd_;
    std::map<std::string, int> folders_;          // folder -> watch descriptor
    std::map<int, std::set<std::string>> names_;  // watch -> file names in it
};

#endif  // TRACERY_SUPPORT_FILE_WATCH_H

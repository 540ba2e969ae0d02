// Opening the files the reader is asked to read, with the refusal of
// directories and devices.
#include "rib/rib_files.h"

#include <sys/stat.h>

#include <unordered_set>

#include "ri/ri.h"
#include "support/error.h"

namespace {

std::vector<std::string> opened_files;
std::unordered_set<std::string> opened_names;

void note_opened(const char* filename) {
    if (opened_names.insert(filename).second) opened_files.push_back(filename);
}

// Outside any file (line 0, as for the files named on the command line) each
// report is about another file, so none is dropped as a repeat of the last.
void announce_report() {
    if (RIB_lineno <= 0) forget_reported_line();
}

// What kind of file a mode names, when it is one the reader must not read:
// a directory opens but gives no data, and a device may give data without
// end (/dev/zero, /dev/urandom) or block on a terminal or tape. Null for
// everything else: regular files, named pipes and sockets.
const char* refused_kind(mode_t mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    return nullptr;
}

// Reported as a bad file: the name exists (so it is not "file not found")
// and nothing failed in the system; what is wrong is the kind of file. The
// message names the file and says what it is, e.g.
// "/dev/zero: a character device, not a RIB file".
bool refuse(const char* filename, const char* kind, bool report) {
    if (kind == nullptr) return false;
    if (report) announce_report();
    if (report) QuillError(RIE_BADFILE, RIE_ERROR, "%s: %s, not a RIB file", filename, kind);
    return true;
}

}  // namespace

// The kind is checked by name before opening, because opening a device can
// itself block or act (a terminal, a tape), and again on the opened stream,
// in case the name was replaced in between. A named pipe passes both checks
// and the open waits for its writer, as reading a pipe should.
FILE* open_rib_file(const char* filename, bool report) {
    struct stat info;
    if (stat(filename, &info) == 0 && refuse(filename, refused_kind(info.st_mode), report)) {
        return nullptr;
    }
    FILE* f = std::fopen(filename, "r");
    if (f == nullptr) {
        if (report) {
            announce_report();
            RMError(RIE_NOFILE, RIE_ERROR, filename);
        }
        return nullptr;
    }
    if (fstat(fileno(f), &info) == 0 && refuse(filename, refused_kind(info.st_mode), report)) {
        std::fclose(f);
        return nullptr;
    }
    note_opened(filename);
    return f;
}

const std::vector<std::string>& opened_rib_files() {
    return opened_files;
}

void clear_opened_rib_files() {
    opened_files.clear();
    opened_names.clear();
}

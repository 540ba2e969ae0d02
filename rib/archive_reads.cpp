// ReadArchive: the archive found through the include path, or the inline
// archive recorded under its name, is read in the middle of the current
// stream, with two bounds: the depth of archives read inside archives, and
// the total work of archive reads for each file the program is given.
#include "rib/archive_reads.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ri/options.h"
#include "ri/renderer.h"
#include "rib/compressed_input.h"
#include "rib/inline_archives.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/report_output.h"

// The depth bound alone leaves the work exponential: fifteen archives that
// each read the previous one twice make one ReadArchive of the last cost
// 32,767 reads, and every further ReadArchive line or delayed archive of
// the file as much again. So the work is bounded for the whole file, not
// for each read.
//
// How the bounds were chosen: we counted the archive reads and their bytes
// for every RIB file we are given (read with -dumprib, which reads every
// delayed archive whatever the camera sees, and with CR line ends read as
// white space). The heaviest by far is a scene of 10,000 delayed archives
// of one teapot (an archive of 121,389 bytes of triangles): 10,000 reads,
// 1,213,890,000 bytes; the next heaviest makes 49 reads. The bounds are
// about twice the teapots: 20,000 reads, 2.5e9 bytes. A file of small
// archives that read each other stops at 20,000 reads: a fraction of a
// second in the window.
long long archive_reads_max = 20000;
long long archive_bytes_max = 2500000000LL;

namespace {

int archive_depth = 0;

// The work of archive reads for the file being read.
struct ArchiveBudget {
    std::string file;           // the file the budget is for
    long long reads = 0;        // archive reads begun
    long long bytes = 0;        // bytes read by outermost archive reads that have ended
    long long outer_start = 0;  // bytes delivered when the outermost read under way began
    bool spent = false;         // reported; every later archive read is skipped
};
ArchiveBudget budget;

// Every byte the reader is given while an archive is read belongs to
// archives: the outer streams are not read on until it ends.
long long bytes_read_by_archives() {
    long long bytes = budget.bytes;
    if (archive_depth > 0) bytes += compressed_bytes_delivered() - budget.outer_start;
    return bytes;
}

// What a read of the archive will read: a recorded archive's text, or the
// size of the file (a gzip file's inflated bytes count as they are read).
long long expected_bytes(const char* name, bool recorded, const char* path) {
    if (recorded) return inline_archive_size(name);
    struct stat info;
    return stat(path, &info) == 0 && S_ISREG(info.st_mode) ? static_cast<long long>(info.st_size)
                                                           : 0;
}

// Reports that a bound is reached: this read and every later archive read
// of the file are skipped.
void spend_budget(const char* format, ...) {
    budget.spent = true;
    char message[512];
    va_list ap;
    va_start(ap, format);
    vsnprintf(message, sizeof message, format, ap);
    va_end(ap);
    RMError(RIE_LIMIT, RIE_ERROR, message);
}

// Counts one archive read against the file's bounds; false when it would
// pass one. Archives nested as deep as the depth bound are taken for
// archives that read each other without end (an archive that reads itself,
// three files that load each other): that ends the file's archive reads
// too, with one report, instead of running every other branch of the loop
// into the bound again.
bool within_bounds(const char* name, bool recorded, const char* path) {
    if (budget.spent) return false;
    if (archive_depth >= RIB_ARCHIVE_DEPTH_MAX) {
        spend_budget("ReadArchive nested too deeply: %s; every later archive read of %s skipped",
                     name, budget.file.c_str());
        return false;
    }
    const long long bytes = bytes_read_by_archives() + expected_bytes(name, recorded, path);
    if (budget.reads >= archive_reads_max || bytes > archive_bytes_max) {
        spend_budget(
            "ReadArchive: the archives read for %s would pass %lld reads or %lld bytes; %s and "
            "every later archive read of the file skipped",
            budget.file.c_str(), archive_reads_max, archive_bytes_max, name);
        return false;
    }
    budget.reads++;
    return true;
}

// The reader state is saved, the archive read by a nested ParseRIB (with
// frame counting of its own) or replayed, and the state restored so that
// the outer stream goes on after the request.
//
// Reports made inside the archive carry, beside their own position, the
// name and line of the request that read it: the line of its keyword
// (ReadArchive, or Procedural/Procedural2 for a delayed archive) in the
// stream being read, as reports name that stream (an inline archive being
// replayed is named by its file and archive name, with its file's lines).
// A call made outside any stream adds no level.
void read_archive(const char* name, bool recorded, const char* path) {
    if (archive_depth == 0) {
        budget.outer_start = compressed_bytes_delivered();
    }
    const bool chained = RIB_lineno > 0;
    if (chained) enter_archive_read(RIB_filename, rib_request_line);
    RibStreamState saved;
    int echo = RIB_echo;
    RIBparse_save_state(&saved);
    ++archive_depth;
    if (recorded) {
        replay_inline_archive(name, RIBparse_searchpath(), echo);
    } else {
        ParseRIB(path, RIBparse_searchpath(), echo, 1);
    }
    --archive_depth;
    RIBparse_restore_state(&saved);
    RIB_echo = echo;
    if (chained) leave_archive_read();
    if (archive_depth == 0) budget.bytes += compressed_bytes_delivered() - budget.outer_start;
}

}  // namespace

void archive_budget_file_begins() {
    budget = ArchiveBudget();
    budget.file = RIB_filename != nullptr ? RIB_filename : "";
}

RtVoid RiReadArchive(RtToken name, RtArchiveCallback callback, ...) {
    va_list ap;
    va_start(ap, callback);
    int n = _v_to_array(ap);
    va_end(ap);
    RiReadArchiveV(name, callback, n, _V_names, _V_params);
}

// An inline archive recorded under the name is replayed before a file of
// that name is looked for. The callback and the parameters are not used.
RtVoid RiReadArchiveV(RtToken name, RtArchiveCallback, RtInt, RtToken[], RtPointer[]) {
    const char* path = block_level != 0 && renderer ? renderer->include_path : nullptr;
    const bool recorded = inline_archive_defined(name);
    std::vector<char> found(SEARCH_PATH_MAX + (name ? strlen(name) : 0) + 2);
    if (!recorded &&
        (!name || !find_path(name, path, found.data(), static_cast<int>(found.size())))) {
        RMError(RIE_NOFILE, RIE_WARNING, name);
        return;
    }
    if (drawing_on == 0 || RIBparse_reading_stopped()) return;
    if (!within_bounds(name, recorded, found.data())) return;
    read_archive(name, recorded, found.data());
}

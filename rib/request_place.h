// Where the request being carried out was read: its keyword, the file and the
// line it stands on (counted as an editor counts lines), and the requests it
// is read inside of (ReadArchive, delayed archives, the replay of an inline
// archive), so that what a request draws or reports can be traced back
// through every archive level to the file the user named.
#ifndef TRACERY_RIB_REQUEST_PLACE_H
#define TRACERY_RIB_REQUEST_PLACE_H

#include <cstdint>
#include <vector>

struct RequestPlace {
    const char* keyword;  // the request's name, from the request table
    const char* file;     // the file it was read from (valid while it runs)
    int line;             // its line in that file, from 1
    uint64_t serial;      // counts the requests of the process: tells apart
                          // two readings of one line (an archive read twice)
};

// The requests under way, outermost first: the last is the one being carried
// out, each one before it the request that read the archive holding the next
// (its "from" chain). Empty outside the reader.
const std::vector<RequestPlace>& requests_under_way();

// Kept by the dispatcher for the time a request is carried out.
class RequestScope {
  public:
    explicit RequestScope(const char* keyword);
    ~RequestScope();
    RequestScope(const RequestScope&) = delete;
    RequestScope& operator=(const RequestScope&) = delete;
};

// Where the requests of the stream about to be read are placed: an inline
// archive's replay places them in the file it was recorded from, its lines
// moved by line_shift; a file read (file null) in itself. The placement in
// force before is restored at the end of the scope.
class SourcePlacement {
  public:
    SourcePlacement(const char* file, int line_shift);
    ~SourcePlacement();
    SourcePlacement(const SourcePlacement&) = delete;
    SourcePlacement& operator=(const SourcePlacement&) = delete;

  private:
    const char* saved_file_;
    int saved_shift_;
};

// The file and line, as placed, at which the reader stands now.
const char* current_source_file();
int current_source_line();

#endif  // TRACERY_RIB_REQUEST_PLACE_H

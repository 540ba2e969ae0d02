// How reports reach standard error: the format they are written in (the
// program's classic text, the same text with the chain of archive reads, or
// one JSON object per line), the limit on how many are printed, the counts
// of reports by severity, and the chain of archive reads the reader is
// inside. The printing handler (support/error.cpp) hands each report that
// passes its duplicate suppression to write_report.
//
// Contract of the chain: the reader calls enter_archive_read before it reads
// an archive (a ReadArchive file, an inline archive replayed, a delayed
// archive of a procedural) with the file and line of the request that reads
// it, and leave_archive_read when that read is over; reports made in between
// carry the chain, outermost first.
#ifndef TRACERY_SUPPORT_REPORT_OUTPUT_H
#define TRACERY_SUPPORT_REPORT_OUTPUT_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

enum class ReportFormat {
    Classic,  // the program's own text; the default
    Text,     // the classic text with a "(read from FILE:LINE)" line per archive level
    Json      // one JSON object per line
};
extern ReportFormat report_format;

// Most reports and notes printed; later ones are counted and not printed,
// except a report that ends the program. Negative: no limit.
extern long report_limit;

struct ReportCounts {
    long by_severity[4];  // reports that passed the duplicate suppression
    long notes;           // notes of the reader (write_note)
    long not_shown;       // reports and notes held back by the limit
};
const ReportCounts& report_counts();
// Counts from zero again and forgets that the not-shown line was written.
void reset_report_counts();

// Counts a report without printing it (for handlers that print nothing).
void count_report(int severity);

// Counts and, within the limit, prints one report; ends_program says that
// the handler ends the program after it, which shows it even past the limit.
void write_report(int code, int severity, const char* message, bool ends_program);

// A line the reader writes beside the reports about what it skipped ("read
// character ..."): the text as it stands in the classic formats, an INFO
// object with code 0 in JSON. Counted against the limit like a report.
void write_note(const char* text, size_t length);

// A line of the program itself: "tracery: " and the text, or in JSON an INFO
// object whose message is the text, with the numbers as further fields.
void write_program_line(const std::string& text,
                        const std::vector<std::pair<const char*, long>>& numbers);

// Writes, once, how many reports the limit held back (nothing when none).
void write_reports_not_shown();

void enter_archive_read(const char* file, int line);
void leave_archive_read();
size_t archive_read_depth();

// Appends text as a JSON string (quotes included). Bytes that are not valid
// UTF-8 are written as the escapes \udc80 to \udcff, one per byte, which
// Python reads back to the bytes with the "surrogateescape" error handler.
void append_json_string(std::string& out, const char* text, size_t length);

#endif  // TRACERY_SUPPORT_REPORT_OUTPUT_H

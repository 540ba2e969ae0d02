// Requests kept as RIB text to be read later: the tokens between an opening
// request (ArchiveBegin, ObjectBegin) and its closing one are written back as
// text with the line breaks where the file had them, so that reading the
// text again gives the same requests, and reports made then can name the
// file's lines. Inline archives and retained objects both record this way.
#ifndef TRACERY_RIB_RECORDED_REQUESTS_H
#define TRACERY_RIB_RECORDED_REQUESTS_H

#include <cstddef>
#include <string>

enum class RecordEnd { Closed, EndOfStream };

// Reads tokens of the current stream up to the closing keyword that matches
// (blocks opened by the same opening keyword inside are recorded with it)
// and appends them to text. The first token goes on line *line (a newline
// for each line further down); *line follows the stream. With *keep false
// the tokens are only read; once the text would pass room bytes it is
// cleared and *keep becomes false. The closing keyword is read, not kept.
RecordEnd record_requests(const char* opening, const char* closing, std::string* text, int* line,
                          bool* keep, size_t room);

// Appends one token as RIB text, after the newlines (or the blank) that put
// it on its line.
void append_recorded_token(std::string* text, int* line, int code, const char* token);

#endif  // TRACERY_RIB_RECORDED_REQUESTS_H

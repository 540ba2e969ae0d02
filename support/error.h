// Error reporting: the current handler RMError, the printf-style front end
// QuillError, the position of the RIB file being read, and the converters
// between a variadic (token, value) list and parallel arrays.
#ifndef TRACERY_SUPPORT_ERROR_H
#define TRACERY_SUPPORT_ERROR_H

#include <cstdarg>

#include "ri/ri.h"

// The handler every report goes through; RiErrorPrint until RiErrorHandler.
extern RtErrorHandler RMError;

// Where the RIB reader is; RIB_lineno <= 0 means no RIB file is being read.
extern int RIB_lineno;
extern const char* RIB_filename;

// Formats the message (bounded: longer messages are cut) and hands it to RMError.
void QuillError(int code, int severity, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// How RiErrorPrint and RiErrorAbort end the program after a report that
// ends it: by default the count of reports held back by the report limit is
// written and std::exit called. A harness that must survive such an
// input (the fuzz targets) installs a function that notes the end and
// returns; the handler then returns like one that lets the program go on.
extern void (*error_exit)(int status);

// The text RiErrorPrint shows for a code, or nullptr for a code without text.
const char* error_code_text(int code);

// Forgets the last-reported line and code, as at program start (for tests).
void reset_error_state();
// Makes the next report print even if it repeats the last one's code on the
// same line: for reports about different files made outside any file (line
// 0), which the same-line rule would otherwise merge into one.
void forget_reported_line();

// The token and value halves of the last variadic list taken apart.
constexpr int V_LIST_MAX = 100;
extern RtToken _V_names[V_LIST_MAX];
extern RtPointer _V_params[V_LIST_MAX];

// Reads (token, value) pairs from ap up to a null token (at most 100 pairs)
// into _V_names/_V_params and returns the number of pairs.
int _v_to_array(va_list ap);

// Writes at most 99 pairs interleaved (token, value, ...) followed by two null
// words into a list of its own, and returns the address of the null pair.
// _array_to_v_list() gives the start of that list.
void** _array_to_v(int n, RtToken tokens[], RtPointer values[]);
void** _array_to_v_list();

#endif  // TRACERY_SUPPORT_ERROR_H

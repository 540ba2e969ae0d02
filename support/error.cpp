// Error reporting: the three standard handlers, the installed handler,
// QuillError, the duplicate suppression of the printing handler, and the
// conversion between variadic (token, value) lists and parallel arrays.
#include "support/error.h"

#include <cstdio>
#include <cstdlib>

#include "support/report_output.h"

namespace {

// Before the program ends after a report, the count of the reports the
// limit held back is written, as at a normal end.
void exit_after_report(int status) {
    write_reports_not_shown();
    std::exit(status);
}

}  // namespace

RtErrorHandler RMError = RiErrorPrint;
void (*error_exit)(int status) = exit_after_report;
RtInt RiLastError = 0;
int RIB_lineno = 0;
const char* RIB_filename = nullptr;

RtToken _V_names[V_LIST_MAX];
RtPointer _V_params[V_LIST_MAX];

namespace {

// Line of the last printed report; -1 before the first.
int last_reported_line = -1;

// The interleaved list of _array_to_v has room of its own: 99 pairs and the
// terminating null pair.
constexpr int INTERLEAVED_WORDS = 2 * (V_LIST_MAX - 1) + 2;
void* interleaved_list[INTERLEAVED_WORDS];

// Message buffer of QuillError; a longer message is cut at its end.
constexpr int QUILL_MESSAGE_MAX = 512;

bool is_suppressed_repeat(int code, const char* message) {
    if (RIB_lineno != last_reported_line || code != RiLastError) return false;
    return !(code == RIE_BADTOKEN && message != nullptr);
}

// The printing handler's work: unless the report repeats the last one,
// prints it and records its code and line; a severe report ends the program.
// ends_program says that the program ends after this report (a severe one,
// or an error under RiErrorAbort), which shows it even past the report limit.
void print_and_record(RtInt code, RtInt severity, const char* message, bool ends_program) {
    if (is_suppressed_repeat(code, message)) return;
    write_report(code, severity, message, ends_program);
    if (severity >= RIE_SEVERE) error_exit(-1);
    RiLastError = code;
    last_reported_line = RIB_lineno;
}

}  // namespace

const char* error_code_text(int code) {
    switch (code) {
        case RIE_NOMEM:
            return "Memory allocation error";
        case RIE_SYSTEM:
            return "System error";
        case RIE_NOFILE:
            return "File not found";
        case RIE_BADFILE:
            return "Bad file";
        case RIE_INCAPABLE:
            return "Optional RI feature not implemented";
        case RIE_UNIMPLEMENT:
            return "Unimplemented feature";
        case RIE_LIMIT:
            return "Program limit";
        case RIE_BUG:
            return "Probable bug in renderer";
        case RIE_NOTSTARTED:
            return "RiBegin not called";
        case RIE_NESTING:
            return "Nesting error";
        case RIE_NOTOPTIONS:
            return "Invalid state for declaring options";
        case RIE_NOTATTRIBS:
            return "Invalid state for declaring attributes";
        case RIE_NOTPRIMS:
            return "Invalid state for declaring primitives";
        case RIE_ILLSTATE:
            return "Invalid state";
        case RIE_BADMOTION:
            return "Bad Motion block";
        case RIE_BADSOLID:
            return "Bad Solid block";
        case RIE_BADTOKEN:
            return "Invalid token";
        case RIE_RANGE:
            return "Parameter out of range";
        case RIE_CONSISTENCY:
            return "Parameters inconsistent";
        case RIE_BADHANDLE:
            return "Bad handle";
        case RIE_NOSHADER:
            return "Cannot load requested shader";
        case RIE_MISSINGDATA:
            return "Required parameters not provided";
        case RIE_SYNTAX:
            return "Syntax error";
        case RIE_MATH:
            return "Math error";
        default:
            return nullptr;
    }
}

void forget_reported_line() {
    last_reported_line = -1;
}

void reset_error_state() {
    last_reported_line = -1;
    RiLastError = 0;
}

RtVoid RiErrorHandler(RtErrorHandler handler) {
    RMError = handler;
}

// Ignored reports are still counted, so that a check of a file that
// silences its own reports still finds them.
RtVoid RiErrorIgnore(RtInt code, RtInt severity, const char*) {
    count_report(severity);
    RiLastError = code;
}

RtVoid RiErrorPrint(RtInt code, RtInt severity, const char* message) {
    print_and_record(code, severity, message, severity >= RIE_SEVERE);
}

RtVoid RiErrorAbort(RtInt code, RtInt severity, const char* message) {
    print_and_record(code, severity, message, severity >= RIE_ERROR);
    if (severity >= RIE_ERROR) error_exit(-1);
}

void QuillError(int code, int severity, const char* format, ...) {
    char message[QUILL_MESSAGE_MAX];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(message, sizeof message, format, ap);
    va_end(ap);
    RMError(code, severity, message);
}

int _v_to_array(va_list ap) {
    _V_names[0] = va_arg(ap, RtToken);
    if (_V_names[0] == nullptr) return 0;
    int count = 0;
    for (;;) {
        _V_params[count] = va_arg(ap, RtPointer);
        ++count;
        if (count == V_LIST_MAX) break;
        _V_names[count] = va_arg(ap, RtToken);
        if (_V_names[count] == nullptr) break;
    }
    return count;
}

void** _array_to_v(int n, RtToken tokens[], RtPointer values[]) {
    int pairs = n < V_LIST_MAX - 1 ? n : V_LIST_MAX - 1;
    if (pairs < 0) pairs = 0;
    for (int i = 0; i < pairs; ++i) {
        interleaved_list[2 * i] = const_cast<char*>(tokens[i]);
        interleaved_list[2 * i + 1] = values[i];
    }
    interleaved_list[2 * pairs] = nullptr;
    interleaved_list[2 * pairs + 1] = nullptr;
    return &interleaved_list[2 * pairs];
}

void** _array_to_v_list() {
    return interleaved_list;
}

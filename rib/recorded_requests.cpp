// Recording of requests as RIB text, for the inline archives and the
// retained objects that are read again later.
#include "rib/recorded_requests.h"

#include <cstring>

#include "rib/tokenizer.h"
#include "support/error.h"

namespace {

// Appends a string token quoted, with the escapes that make the tokenizer
// read back the same text.
void append_quoted(std::string* text, const char* token) {
    *text += '"';
    for (const char* p = token; *p; ++p) {
        switch (*p) {
            case '"':
                *text += "\\\"";
                break;
            case '\\':
                *text += "\\\\";
                break;
            case '\n':
                *text += "\\n";
                break;
            case '\r':
                *text += "\\r";
                break;
            default:
                *text += *p;
        }
    }
    *text += '"';
}

}  // namespace

void append_recorded_token(std::string* text, int* line, int code, const char* token) {
    if (RIB_lineno > *line) {
        text->append(static_cast<size_t>(RIB_lineno - *line), '\n');
        *line = RIB_lineno;
    } else {
        *text += ' ';
    }
    if (code == TOKEN_STRING) {
        append_quoted(text, token);
    } else if (code == TOKEN_HASH) {
        *text += "##";
    } else {
        *text += token;
    }
}

RecordEnd record_requests(const char* opening, const char* closing, std::string* text, int* line,
                          bool* keep, size_t room) {
    char token[RIB_TOKEN_MAX];
    int nested = 0;
    for (;;) {
        const int code = read_RIB_token(token);
        if (code == TOKEN_EOF || code == TOKEN_END || RIBparse_at_eof()) {
            return RecordEnd::EndOfStream;
        }
        if (code == TOKEN_IDENTIFIER && std::strcmp(token, opening) == 0) ++nested;
        if (code == TOKEN_IDENTIFIER && std::strcmp(token, closing) == 0 && nested-- == 0) {
            return RecordEnd::Closed;
        }
        if (!*keep) continue;
        append_recorded_token(text, line, code, token);
        if (text->size() > room) {
            *keep = false;
            text->clear();
            text->shrink_to_fit();
        }
    }
}

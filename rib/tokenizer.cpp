// The RIB tokenizer: the reader state of the current stream with its own read
// buffer, token recognition (ASCII here, the binary encoding in
// binary_tokens.cpp) and the one-token push-back.
//
// The reading model is one byte of lookahead over the stream, and the end
// flag is set the moment a read meets end of input. Tokens are recognised
// straight in the read buffer: white space and comments are skipped by
// scanning runs of bytes, and an identifier, number or string that lies
// wholly in the buffer is handed out in place (RibTokenView). Only a token
// that reaches the end of the buffer is read byte by byte across the refill
// and copied, so the byte-level model (and with it every line count and the
// moment the end flag is set) is the same on both paths.
#include "rib/tokenizer.h"

#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "driver/globals.h"
#include "rib/binary_tokens.h"
#include "rib/compressed_input.h"
#include "rib/input_bytes.h"
#include "rib/token_scan.h"
#include "support/error.h"
#include "support/memory.h"

int RIB_echo = 0;
RibStreamState rib_input;

namespace {

// Bytes asked of the stream per refill (a build may choose a small buffer to
// test the refill paths).
#ifdef TRACERY_READ_CHUNK
constexpr int READ_CHUNK = TRACERY_READ_CHUNK;
#else
constexpr int READ_CHUNK = 64 * 1024;
#endif
constexpr int END_OF_INPUT = RIB_END_OF_INPUT;
// Written after the last byte of the read buffer at every refill, so that the
// in-place scanners stop there without testing for the end at each byte: it
// is no blank, digit or identifier character, and it ends a quoted string,
// whose scanner then sees that the closing quote is not in the buffer.
constexpr unsigned char BUFFER_SENTINEL = '"';
RibStreamState& current = rib_input;

// Text of a token that is not handed out in place: one read across a buffer
// refill, a push-back, a decoded binary number or a single character.
char spill[RIB_TOKEN_MAX];

// ---- Character classes ----

// Carriage return is white space here, and a CR LF pair or a lone CR ends a
// line as a newline does. This departs from taking CR for a token of its
// own: files written on Windows (CR LF) and old Macintosh files (CR) would
// otherwise lose every parameter list that goes on over a line end.
enum CharClass : unsigned char {
    LETTER = 1,
    DIGIT = 2,
    UNDERSCORE = 4,
    BLANK = 8,            // blank, tab, newline and carriage return
    STRING_SPECIAL = 16,  // a quoted string ends or needs the byte-wise reader
    BINARY = 32           // starts a form of the binary encoding
};

struct ClassTable {
    unsigned char of[256];
    constexpr ClassTable() : of() {
        for (int c = 'a'; c <= 'z'; ++c) of[c] = LETTER;
        for (int c = 'A'; c <= 'Z'; ++c) of[c] = LETTER;
        for (int c = '0'; c <= '9'; ++c) of[c] = DIGIT;
        of[static_cast<unsigned char>('_')] = UNDERSCORE;
        of[static_cast<unsigned char>(' ')] = BLANK;
        of[static_cast<unsigned char>('\t')] = BLANK;
        of[static_cast<unsigned char>('\n')] = BLANK | STRING_SPECIAL;
        of[static_cast<unsigned char>('\r')] = BLANK | STRING_SPECIAL;
        of[static_cast<unsigned char>('"')] = STRING_SPECIAL;
        of[static_cast<unsigned char>('\\')] = STRING_SPECIAL;
        for (int c = 128; c < 256; ++c) of[c] = BINARY;
    }
};
constexpr ClassTable classes;

inline bool is_letter(int c) {
    return classes.of[c & 0xff] & LETTER;
}
inline bool is_digit(int c) {
    return classes.of[c & 0xff] & DIGIT;
}
inline bool is_identifier_char(int c) {
    return classes.of[c & 0xff] & (LETTER | DIGIT | UNDERSCORE);
}
inline bool is_blank(int c) {
    return classes.of[c & 0xff] & BLANK;
}
inline bool is_string_special(int c) {
    return classes.of[c & 0xff] & STRING_SPECIAL;
}

// ---- Reading characters ----

inline void advance() {
    rib_advance();
}
inline int next_byte() {
    return rib_next_byte();
}

// Whether the lookahead is a byte of the read buffer, at buffer[pos - 1]
// (false at end of input and before a stream is opened).
inline bool lookahead_in_buffer() {
    return current.buffer_pos > 0;
}
// Whether the next token may be scanned where it lies in the read buffer:
// nothing pushed back, no binary float array under way, input not ended.
inline bool in_place_scan_open() {
    return !current.pushback_full && current.array_left == 0 && !current.array_close &&
           !current.at_eof && lookahead_in_buffer();
}
inline const unsigned char* lookahead_at() {
    return current.buffer + current.buffer_pos - 1;
}
inline const unsigned char* buffer_end() {
    return current.buffer + current.buffer_len;
}

// Consumes every byte before p (a position in the buffer, at most its end),
// making *p the lookahead; at the end of the buffer the next one is read.
inline void consume_to(const unsigned char* p) {
    if (p < buffer_end()) {
        current.lookahead = *p;
        current.buffer_pos = static_cast<int>(p - current.buffer) + 1;
    } else {
        current.buffer_pos = current.buffer_len;
        rib_input_refill();
    }
}

void count_newline() {
    ++current.line;
    ++RIB_lineno;
    if (RIB_echo >= 2 && RIB_lineno % 2000 == 0) {
        fprintf(stderr, "Read line [%ld]\n", static_cast<long>(RIB_lineno));
    }
}

// Consumes the line end at the lookahead (LF, CR or CR LF) and counts it.
void consume_line_end() {
    const int c = next_byte();
    count_newline();
    if (c == '\r' && !current.at_eof && current.lookahead == '\n') advance();
}

// Counts lines line ends met in one run of blanks: as many newlines, one by
// one when the echo level reports every two thousandth line.
__attribute__((noinline)) void count_newlines(int lines) {
    if (RIB_echo >= 2) {
        while (lines-- > 0) count_newline();
        return;
    }
    current.line += lines;
    RIB_lineno += lines;
}

// Skips the blanks from p on, inside the buffer, counting line ends; returns
// where it stopped. A CR that is the last byte of the buffer stops the run,
// since whether an LF pairs with it is known only after the refill.
inline __attribute__((always_inline)) const unsigned char* skip_blank_run(
    const unsigned char* p, const unsigned char* end) {
    int lines = 0;
    for (; is_blank(*p); ++p) {  // the sentinel ends the run
        if (*p == '\n') {
            ++lines;
        } else if (*p == '\r') {
            if (p + 1 == end) break;
            ++lines;
            if (p[1] == '\n') ++p;
        }
    }
    if (lines > 0) count_newlines(lines);
    return p;
}

// ---- Token text ----

// Collects a token's text into a RIB_TOKEN_MAX buffer; the part of a longer
// token that does not fit is dropped and reported once.
class TokenText {
  public:
    explicit TokenText(char* out) : out_(out) {}
    void put(int c) {
        if (length_ < RIB_TOKEN_MAX - 1) {
            out_[length_++] = static_cast<char>(c);
        } else {
            truncated_ = true;
        }
    }
    void finish() {
        out_[length_] = '\0';
        if (truncated_) rib_syntax_error("Token too long");
    }

  private:
    char* out_;
    int length_ = 0;
    bool truncated_ = false;
};

// A token whose text is in the spill buffer.
int spilled(RibTokenView* token, int code) {
    token->code = code;
    token->text = spill;
    token->length = static_cast<int>(strlen(spill));
    return code;
}

// A token handed out in place; a text longer than a token may be is cut and
// reported, as the byte-wise path does.
int in_place(RibTokenView* token, int code, const unsigned char* start, const unsigned char* end) {
    int length = static_cast<int>(end - start);
    if (length > RIB_TOKEN_MAX - 1) {
        length = RIB_TOKEN_MAX - 1;
        rib_syntax_error("Token too long");
    }
    token->code = code;
    token->text = reinterpret_cast<const char*>(start);
    token->length = length;
    return code;
}

int single_character(RibTokenView* token, int c) {
    spill[0] = static_cast<char>(c);
    spill[1] = '\0';
    token->code = c;
    token->text = spill;
    token->length = 1;
    return c;
}

// ---- Byte-by-byte recognition (tokens that cross a refill) ----

template <typename Class>
void copy_run(TokenText& out, Class in_class) {
    while (!current.at_eof && in_class(current.lookahead)) out.put(next_byte());
}

void copy_digits(TokenText& out) {
    copy_run(out, [](int c) { return is_digit(c); });
}

int read_identifier_bytes(RibTokenView* token) {
    TokenText out(spill);
    copy_run(out, [](int c) { return is_identifier_char(c); });
    out.finish();
    return spilled(token, TOKEN_IDENTIFIER);
}

// An optional '-', digits, an optional '.', digits, then an optional exponent;
// copied as written without further checks.
int read_number_bytes(RibTokenView* token) {
    TokenText out(spill);
    if (current.lookahead == '-') out.put(next_byte());
    copy_digits(out);
    if (!current.at_eof && current.lookahead == '.') {
        out.put(next_byte());
        copy_digits(out);
    }
    if (!current.at_eof && (current.lookahead == 'e' || current.lookahead == 'E')) {
        out.put(next_byte());
        if (!current.at_eof && (current.lookahead == '-' || current.lookahead == '+')) {
            out.put(next_byte());
        }
        copy_digits(out);
    }
    out.finish();
    return spilled(token, TOKEN_NUMBER);
}

// Quoted strings are read as the standard writes them, departing from a
// string that ends at the end of its line and keeps backslashes as they are:
// a string goes on over line ends (counted like any other), and the escape
// sequences \n \r \t \b \f \\ \" and a backslash with up to three octal
// digits are decoded; a backslash before a line end drops both. A backslash
// before any other character is kept with it ("C:\Users" stays as written).
void read_escape(TokenText& out) {
    const int c = current.lookahead;
    if (current.at_eof) {
        out.put('\\');
        return;
    }
    if (c == '\n' || c == '\r') {
        consume_line_end();
        return;
    }
    if (c >= '0' && c <= '7') {
        int value = 0;
        for (int digits = 0; digits < 3 && !current.at_eof; ++digits) {
            const int d = current.lookahead;
            if (d < '0' || d > '7') break;
            value = value * 8 + (d - '0');
            advance();
        }
        out.put(value & 0xff);
        return;
    }
    int decoded;
    switch (c) {
        case 'n':
            decoded = '\n';
            break;
        case 'r':
            decoded = '\r';
            break;
        case 't':
            decoded = '\t';
            break;
        case 'b':
            decoded = '\b';
            break;
        case 'f':
            decoded = '\f';
            break;
        case '\\':
            decoded = '\\';
            break;
        case '"':
            decoded = '"';
            break;
        default:
            out.put('\\');
            return;
    }
    advance();
    out.put(decoded);
}

// The end of input met inside a string: reported once, on the line where
// the string began, so that the user finds the stray quote.
void report_unterminated_string(int first_line) {
    const int line = RIB_lineno;
    RIB_lineno = first_line;
    forget_reported_line();
    rib_syntax_error("String not closed before the end of input");
    RIB_lineno = line;
}

int read_string_bytes(RibTokenView* token) {
    const int first_line = RIB_lineno;
    TokenText out(spill);
    advance();
    for (;;) {
        if (current.at_eof) {
            report_unterminated_string(first_line);
            break;
        }
        const int c = current.lookahead;
        if (c == '"') {
            advance();
            break;
        }
        if (c == '\\') {
            advance();
            read_escape(out);
        } else if (c == '\n' || c == '\r') {
            out.put(next_byte());
            if (c == '\r' && !current.at_eof && current.lookahead == '\n') out.put(next_byte());
            count_newline();
        } else {
            out.put(next_byte());
        }
    }
    out.finish();
    return spilled(token, TOKEN_STRING);
}

// ---- In-place recognition ----

// Each scanner returns the token's code, or 0 when the token reaches the end
// of the buffer (nothing is consumed then, and the byte-wise reader takes it).

// The end of the identifier that starts at start, or null when it reaches
// the end of the buffer.
const unsigned char* identifier_end(const unsigned char* start, const unsigned char* end) {
    const unsigned char* p = start + 1;
    while (is_identifier_char(*p)) ++p;  // the sentinel ends the run
    return p < end ? p : nullptr;
}

int scan_identifier(RibTokenView* token) {
    const unsigned char* start = lookahead_at();
    const unsigned char* stop = identifier_end(start, buffer_end());
    if (!stop) return 0;
    in_place(token, TOKEN_IDENTIFIER, start, stop);
    consume_to(stop);
    return TOKEN_IDENTIFIER;
}

// The end of the number that starts at start, or null when it reaches the
// end of the buffer (the sentinel there ends every run of digits). Its digits
// are summed on the way, and a number in the short form of
// short_decimal_value is given its value in the token (decimal_converted),
// so that it is not read a second time to be converted.
inline __attribute__((always_inline)) const unsigned char* number_end(const unsigned char* start,
                                                                      const unsigned char* end,
                                                                      RibTokenView* token) {
    const unsigned char* p = start;
    const bool negative = *p == '-';
    if (negative) ++p;
    // More than 19 digits wrap the sum, but such a number has more than 15
    // digits and is not converted here.
    uint64_t digits = 0;
    const unsigned char* run = p;
    for (; is_digit(*p); ++p) digits = digits * 10 + uint64_t(*p - '0');
    long count = p - run, exponent = 0;
    if (*p == '.') {
        run = ++p;
        for (; is_digit(*p); ++p) digits = digits * 10 + uint64_t(*p - '0');
        count += p - run;
        exponent = -(p - run);
    }
    bool short_exponent = true;
    if (*p == 'e' || *p == 'E') {
        ++p;
        const bool negative_exponent = *p == '-';
        if (*p == '-' || *p == '+') ++p;
        run = p;
        int written = 0;
        for (; is_digit(*p); ++p) {
            if (p - run < 3) written = written * 10 + (*p - '0');
        }
        // One to three digits, as the conversion from text takes them.
        short_exponent = p > run && p - run <= 3;
        exponent += negative_exponent ? -written : written;
    }
    if (p >= end) return nullptr;
    token->decimal_converted =
        short_exponent &&
        short_decimal_value(digits, int(count), int(exponent), negative, &token->decimal_value);
    return p;
}

int scan_number(RibTokenView* token) {
    const unsigned char* start = lookahead_at();
    const unsigned char* stop = number_end(start, buffer_end(), token);
    if (!stop) return 0;
    in_place(token, TOKEN_NUMBER, start, stop);
    consume_to(stop);
    return TOKEN_NUMBER;
}

// A string without escapes or line ends, closed inside the buffer. The
// closing byte is consumed too, so the string must end before the last byte
// of the buffer: consuming that one would refill over the text.
int scan_string(RibTokenView* token) {
    const unsigned char* start = lookahead_at() + 1;
    const unsigned char* end = buffer_end();
    const unsigned char* p = start;
    while (!is_string_special(*p)) ++p;  // the sentinel is special
    if (p + 1 >= end || *p != '"') return 0;
    in_place(token, TOKEN_STRING, start, p);
    consume_to(p + 1);
    return TOKEN_STRING;
}

// Recognises the token that starts at the lookahead (white space and comments
// already dealt with). Returns 0 when a binary form gave no token.
int classify_token(RibTokenView* token) {
    int c = current.lookahead;
    const bool in_buffer = lookahead_in_buffer();
    if (is_letter(c)) {
        if (in_buffer && scan_identifier(token)) return TOKEN_IDENTIFIER;
        return read_identifier_bytes(token);
    }
    if (is_digit(c) || c == '-' || c == '.') {
        if (in_buffer && scan_number(token)) return TOKEN_NUMBER;
        return read_number_bytes(token);
    }
    if (c == '"') return rib_scan_quoted_string(token);
    if (classes.of[c & 0xff] & BINARY) return scan_binary_token(token);
    advance();
    return single_character(token, c);
}

// Consumes bytes up to, not including, the next line end (or to end of input).
void skip_to_newline() {
    while (!current.at_eof && current.lookahead != '\n' && current.lookahead != '\r') {
        if (!lookahead_in_buffer()) {
            advance();
            continue;
        }
        const unsigned char* p = lookahead_at();
        const unsigned char* end = buffer_end();
        while (p < end && *p != '\n' && *p != '\r') ++p;
        consume_to(p);
    }
}

// Consumes a comment up to and including its line end (a CR LF pair is one).
// That line end is not counted in the line number, only in the editor's count
// of comment_lines.
void skip_comment() {
    skip_to_newline();
    const int c = current.lookahead;
    if ((c == '\n' || c == '\r') && !current.at_eof) ++current.comment_lines;
    advance();
    if (c == '\r' && !current.at_eof && current.lookahead == '\n') advance();
}

void release_state(RibStreamState& state) {
    release_binary_definitions(state);
    if (state.buffer) myfree(state.buffer);
    if (state.name_copy) myfree(state.name_copy);
    compressed_close(state.input);
    if (state.owns_stream && state.stream) fclose(state.stream);
    state.input = nullptr;
    state.buffer = nullptr;
    state.name_copy = nullptr;
    state.stream = nullptr;
    state.owns_stream = 0;
}

char* copy_name(const char* name) {
    size_t length = strlen(name) + 1;
    char* copy = static_cast<char*>(myalloc(length));
    if (copy) memcpy(copy, name, length);
    return copy;
}

}  // namespace

// ---- Streams ----

int RIBparse_open_stream(FILE* f, const char* name) {
    bool opened_here = false;
    if (!f && name) {
        f = fopen(name, "r");
        opened_here = f != nullptr;
    }
    if (!f) return -1;
    release_state(current);
    current = RibStreamState();
    current.stream = f;
    current.owns_stream = opened_here;
    current.descriptor = fileno(f);
    current.input = compressed_open(current.descriptor, f, name ? name : "stdin");
    current.buffer = static_cast<unsigned char*>(myalloc(READ_CHUNK + 1));
    current.name_copy = copy_name(name ? name : "");
    RIB_filename = current.name_copy;
    current.line = RIB_lineno = 1;
    advance();
    return 0;
}

void RIBparse_close_stream() {
    release_state(current);
    current = RibStreamState();
    RIB_filename = nullptr;
    RIB_lineno = 0;
    current.descriptor = -1;
}

void RIBparse_save_state(RibStreamState* saved) {
    *saved = current;
    current = RibStreamState();
    current.descriptor = -1;
}

void RIBparse_restore_state(RibStreamState* saved) {
    release_state(current);
    current = *saved;
    RIB_filename = current.name_copy;
    RIB_lineno = current.line;
}

// The one place where the read buffer is filled from the stream, with its
// content (inflated when the stream is gzip). Nothing is read once the end
// flag is set, so a terminal is not asked again after its end of file; a read
// error, or damaged compressed data reported there, counts as end of input.
void rib_input_refill() {
    current.buffer_base += current.buffer_len;
    current.buffer_pos = 0;
    current.buffer_len = 0;
    if (!current.at_eof && current.stream && current.buffer) {
        current.buffer_len = compressed_read(current.input, current.buffer, READ_CHUNK);
    }
    if (current.buffer_len < 0) current.buffer_len = 0;
    if (current.buffer) current.buffer[current.buffer_len] = BUFFER_SENTINEL;
    if (current.buffer_len == 0) {
        current.at_eof = 1;
        current.lookahead = END_OF_INPUT;
        return;
    }
    current.lookahead = current.buffer[current.buffer_pos++];
}

int RIBparse_lookahead() {
    return current.lookahead;
}
int RIBparse_at_eof() {
    return current.at_eof;
}
int RIBparse_token_was_binary() {
    return current.last_binary;
}
void RIBparse_advance() {
    advance();
}

void RIBparse_skip_line() {
    skip_to_newline();
}

int RIBparse_source_line() {
    return RIB_lineno + current.comment_lines;
}

bool rib_skip_white_space() {
    while (is_blank(current.lookahead) && !current.at_eof) {
        const unsigned char* p =
            lookahead_in_buffer() ? skip_blank_run(lookahead_at(), buffer_end()) : nullptr;
        if (p && p != lookahead_at()) {
            consume_to(p);
        } else if (current.lookahead == '\n' || current.lookahead == '\r') {
            consume_line_end();
        } else {
            advance();
        }
    }
    return !current.at_eof;
}

int rib_scan_quoted_string(RibTokenView* token) {
    token->decimal_converted = false;
    if (lookahead_in_buffer() && scan_string(token)) return TOKEN_STRING;
    return read_string_bytes(token);
}

// ---- Tokens ----

namespace {

int end_of_input(RibTokenView* token) {
    token->code = TOKEN_EOF;
    token->text = "";
    token->length = 0;
    return TOKEN_EOF;
}

// The common case in one pass over the buffer: blanks, then a number, an
// identifier or a plain quoted string that ends inside the buffer, or a
// bracket. Returns the token's code, or 0
// after consuming only the blanks (the general steps then go on from there).
// The buffer's bounds are read once: the stores into the token could
// otherwise stand for stores into the reader state.
inline int scan_blanks_and_word(RibTokenView* token) {
    unsigned char* const buffer = current.buffer;
    const unsigned char* const end = buffer + current.buffer_len;
    const unsigned char* const start = buffer + current.buffer_pos - 1;
    const unsigned char* p = skip_blank_run(start, end);
    const int c = *p;  // the sentinel at the end
    const unsigned char* stop = nullptr;
    int code = 0;
    if (is_digit(c) || c == '-' || c == '.') {
        stop = number_end(p, end, token);
        code = TOKEN_NUMBER;
    } else if (is_letter(c)) {
        stop = identifier_end(p, end);
        code = TOKEN_IDENTIFIER;
    } else if ((c == '[' || c == ']') && p < end) {
        consume_to(p + 1);
        return single_character(token, c);
    } else if (c == '"' && p < end) {  // not the sentinel
        // As scan_string: no escapes or line ends, closed before the last
        // byte of the buffer (the closing quote is consumed too).
        const unsigned char* close = p + 1;
        while (!is_string_special(*close)) ++close;  // the sentinel is special
        if (*close == '"' && close + 1 < end) {
            in_place(token, TOKEN_STRING, p + 1, close);
            current.lookahead = close[1];
            current.buffer_pos = static_cast<int>(close + 1 - buffer) + 1;
            return TOKEN_STRING;
        }
    }
    if (stop) {
        // stop lies inside the buffer, so the byte there is the lookahead.
        current.lookahead = *stop;
        current.buffer_pos = static_cast<int>(stop - buffer) + 1;
        in_place(token, code, p, stop);
        return code;
    }
    if (p != start) consume_to(p);
    return 0;
}

__attribute__((noinline)) int take_pushback(RibTokenView* token) {
    if (current.pushback_view) {
        token->code = current.pushback_code;
        token->text = current.pushback_view;
        token->length = current.pushback_length;
        current.pushback_full = 0;
        current.pushback_view = nullptr;
        return token->code;
    }
    const size_t length = strlen(current.pushback_text);
    memcpy(spill, current.pushback_text, length + 1);
    current.pushback_full = 0;
    current.pushback_text[0] = '\0';
    spilled(token, current.pushback_code);
    token->length = static_cast<int>(length);
    if (current.pushback_numeric) {
        token->numeric = true;
        token->number = current.pushback_number;
        token->length = 0;
    }
    return token->code;
}

// The input is used up: the end flag is set and no float array of the
// binary encoding still has tokens to give.
bool input_exhausted() {
    return current.at_eof && current.array_left == 0 && !current.array_close;
}

}  // namespace

namespace {

// Everything but the common case: a push-back, a binary float array under
// way, the end of input, and the steps after blanks (comments, strings,
// characters, binary forms, tokens across a refill). Kept out of line so
// that the common case stays small.
__attribute__((noinline)) int scan_token_general(RibTokenView* token) {
    if (current.pushback_full) return take_pushback(token);
    if (current.array_left > 0 || current.array_close) return next_array_token(token);
    if (current.at_eof) return end_of_input(token);
    current.last_binary = 0;
    for (;;) {
        if (lookahead_in_buffer()) {
            if (int code = scan_blanks_and_word(token)) return code;
            // End of input met while skipping blanks.
            if (current.at_eof) return end_of_input(token);
        }
        if (!rib_skip_white_space()) return end_of_input(token);
        if (current.lookahead == '#') {
            advance();
            if (current.lookahead == '#' && !current.at_eof) return single_character(token, '#');
            skip_comment();
        }
        // A binary definition, or a binary form reported and skipped, gives
        // no token: the next one is read.
        if (int code = classify_token(token)) return code;
        if (current.at_eof) return end_of_input(token);
    }
}

}  // namespace

int scan_RIB_token(RibTokenView* token) {
    token->numeric = false;
    token->decimal_converted = false;
    // The common case: a number or word after blanks, all in the buffer.
    if (in_place_scan_open()) {
        current.last_binary = 0;
        if (int code = scan_blanks_and_word(token)) return code;
    }
    return scan_token_general(token);
}

// The fast path of scan_RIB_token, for a run of numbers: each number that
// follows blanks and lies wholly in the buffer is consumed and converted as
// token_atof would convert its token. Anything else is left unconsumed for
// the token scanner (blanks before it may be consumed, with their lines).
int scan_RIB_floats(float* out, int room) {
    int count = 0;
    while (count < room && in_place_scan_open()) {
        unsigned char* const buffer = current.buffer;
        const unsigned char* const end = buffer + current.buffer_len;
        const unsigned char* const start = buffer + current.buffer_pos - 1;
        const unsigned char* p = skip_blank_run(start, end);
        const int c = *p;  // the sentinel at the end
        RibTokenView token;
        const unsigned char* stop = nullptr;
        if (is_digit(c) || c == '-' || c == '.') stop = number_end(p, end, &token);
        // A number too long for a token is left to be cut and reported.
        if (stop == nullptr || stop - p > RIB_TOKEN_MAX - 1) {
            if (p != start) consume_to(p);
            break;
        }
        current.lookahead = *stop;
        current.buffer_pos = static_cast<int>(stop - buffer) + 1;
        current.last_binary = 0;
        if (token.decimal_converted) {
            out[count++] = static_cast<float>(token.decimal_value);
        } else {
            token.code = TOKEN_NUMBER;
            token.text = reinterpret_cast<const char*>(p);
            token.length = static_cast<int>(stop - p);
            out[count++] = token_atof(token);
        }
    }
    return count;
}

void materialize_token(const RibTokenView& token, char* text) {
    if (token.numeric) {
        // The shortest text that reads back as the same double.
        auto result = std::to_chars(text, text + RIB_TOKEN_MAX - 1, token.number);
        *result.ptr = '\0';
        return;
    }
    memcpy(text, token.text, static_cast<size_t>(token.length));
    text[token.length] = '\0';
}

int read_RIB_token(char* text) {
    RibTokenView token;
    int code = scan_RIB_token(&token);
    // At end of input the caller's text is left as it was.
    if (code != TOKEN_EOF) materialize_token(token, text);
    return code;
}

namespace {

// Clears the pushed-back token for another; false when the token is dropped
// instead: at end of input, as a word cut by the end is (a binary token is
// whole there and is kept).
bool begin_pushback() {
    current.pushback_numeric = 0;
    current.pushback_view = nullptr;
    if (input_exhausted() && !current.last_binary) {
        current.pushback_full = 0;
        current.pushback_text[0] = '\0';
        current.pushback_code = TOKEN_EOF;
        return false;
    }
    return true;
}

}  // namespace

int RIBparse_return_token(const char* text, int code) {
    if (!begin_pushback()) return 0;
    size_t length = strnlen(text, RIB_TOKEN_MAX - 1);
    memcpy(current.pushback_text, text, length);
    current.pushback_text[length] = '\0';
    current.pushback_code = code;
    current.pushback_full = 1;
    return 0;
}

void return_token_view(const RibTokenView& token) {
    if (token.numeric) {
        RIBparse_return_token("", token.code);
        current.pushback_numeric = current.pushback_full;
        current.pushback_number = token.number;
        return;
    }
    const char* buffer = reinterpret_cast<const char*>(current.buffer);
    if (buffer && token.text >= buffer &&
        token.text + token.length <= buffer + current.buffer_len) {
        // RIBparse_return_token("", code) with the text left where it lies.
        if (!begin_pushback()) return;
        current.pushback_text[0] = '\0';
        current.pushback_code = token.code;
        current.pushback_full = 1;
        current.pushback_view = token.text;
        current.pushback_length = token.length;
        return;
    }
    char text[RIB_TOKEN_MAX];
    materialize_token(token, text);
    RIBparse_return_token(text, token.code);
}

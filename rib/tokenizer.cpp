// The RIB tokenizer: the reader state of the current stream with its own read
// buffer, token recognition (ASCII and the numeric forms of the binary
// encoding) and the one-token push-back.
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

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "driver/globals.h"
#include "rib/compressed_input.h"
#include "rib/token_scan.h"
#include "support/error.h"
#include "support/memory.h"

int RIB_echo = 0;

namespace {

// Bytes asked of the stream per refill (a build may choose a small buffer to
// test the refill paths).
#ifdef TRACERY_READ_CHUNK
constexpr int READ_CHUNK = TRACERY_READ_CHUNK;
#else
constexpr int READ_CHUNK = 64 * 1024;
#endif
constexpr int END_OF_INPUT = 255;

// The reader state of the stream being read (all zero: no stream).
RibStreamState current;

// Text of a token that is not handed out in place: one read across a buffer
// refill, a push-back, a decoded binary number or a single character.
char spill[RIB_TOKEN_MAX];

// ---- Character classes ----

enum CharClass : unsigned char {
    LETTER = 1,
    DIGIT = 2,
    UNDERSCORE = 4,
    BLANK = 8,        // blank, tab and newline: skipped between tokens
    STRING_STOP = 16  // double quote, newline and carriage return end a string
};

struct ClassTable {
    unsigned char of[256];
    constexpr ClassTable() : of() {
        for (int c = 'a'; c <= 'z'; ++c) of[c] = LETTER;
        for (int c = 'A'; c <= 'Z'; ++c) of[c] = LETTER;
        for (int c = '0'; c <= '9'; ++c) of[c] = DIGIT;
        of['_'] = UNDERSCORE;
        of[' '] = BLANK;
        of['\t'] = BLANK;
        of['\n'] = BLANK | STRING_STOP;
        of['"'] = STRING_STOP;
        of['\r'] = STRING_STOP;
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
inline bool ends_string(int c) {
    return classes.of[c & 0xff] & STRING_STOP;
}

// ---- Reading characters ----

// The one place where the read buffer is filled from the stream, with its
// content (inflated when the stream is gzip); returns the number of bytes
// read, 0 at end of input (a read error, or damaged compressed data reported
// there, counts as end of input).
int fill_buffer() {
    return compressed_read(current.input, current.buffer, READ_CHUNK);
}

// Refills the buffer and takes its first byte; at end of input sets the end
// flag and leaves 255 as the lookahead. Nothing is read once the flag is set,
// so a terminal is not asked again after its end of file.
void advance_slow() {
    current.buffer_pos = 0;
    current.buffer_len = 0;
    if (!current.at_eof && current.stream && current.buffer) current.buffer_len = fill_buffer();
    if (current.buffer_len <= 0) {
        current.buffer_len = 0;
        current.at_eof = 1;
        current.lookahead = END_OF_INPUT;
        return;
    }
    current.lookahead = current.buffer[current.buffer_pos++];
}

// Consumes the lookahead and reads the next character into it.
inline void advance() {
    if (current.buffer_pos < current.buffer_len) {
        current.lookahead = current.buffer[current.buffer_pos++];
    } else {
        advance_slow();
    }
}

// Consumes the lookahead and returns it.
inline int next_byte() {
    int c = current.lookahead;
    advance();
    return c;
}

// Whether the lookahead is a byte of the read buffer, at buffer[pos - 1]
// (false at end of input and before a stream is opened).
inline bool lookahead_in_buffer() {
    return current.buffer_pos > 0;
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
        advance_slow();
    }
}

void count_newline() {
    ++current.line;
    ++RIB_lineno;
    if (RIB_echo >= 2 && RIB_lineno % 2000 == 0) {
        fprintf(stderr, "Read line [%ld]\n", static_cast<long>(RIB_lineno));
    }
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

int read_string_bytes(RibTokenView* token) {
    TokenText out(spill);
    advance();
    while (!current.at_eof && !ends_string(current.lookahead)) out.put(next_byte());
    advance();
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
    while (p < end && is_identifier_char(*p)) ++p;
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

const unsigned char* skip_digits(const unsigned char* p, const unsigned char* end) {
    while (p < end && is_digit(*p)) ++p;
    return p;
}

// The end of the number that starts at start, or null when it reaches the
// end of the buffer.
const unsigned char* number_end(const unsigned char* start, const unsigned char* end) {
    const unsigned char* p = start;
    if (*p == '-') ++p;
    p = skip_digits(p, end);
    if (p < end && *p == '.') p = skip_digits(p + 1, end);
    if (p < end && (*p == 'e' || *p == 'E')) {
        ++p;
        if (p < end && (*p == '-' || *p == '+')) ++p;
        p = skip_digits(p, end);
    }
    return p < end ? p : nullptr;
}

int scan_number(RibTokenView* token) {
    const unsigned char* start = lookahead_at();
    const unsigned char* stop = number_end(start, buffer_end());
    if (!stop) return 0;
    in_place(token, TOKEN_NUMBER, start, stop);
    consume_to(stop);
    return TOKEN_NUMBER;
}

// The closing byte is consumed too, so the string must end before the last
// byte of the buffer: consuming that one would refill over the text.
int scan_string(RibTokenView* token) {
    const unsigned char* start = lookahead_at() + 1;
    const unsigned char* end = buffer_end();
    const unsigned char* p = start;
    while (p < end && !ends_string(*p)) ++p;
    if (p + 1 >= end) return 0;
    in_place(token, TOKEN_STRING, start, p);
    consume_to(p + 1);
    return TOKEN_STRING;
}

// ---- Binary forms ----

uint64_t read_big_endian(int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = (value << 8) | static_cast<uint64_t>(next_byte());
    return value;
}

int print_number(RibTokenView* token, double value) {
    snprintf(spill, RIB_TOKEN_MAX, "%g", value);
    return spilled(token, TOKEN_NUMBER);
}

// Bytes 128..143: w + 1 value bytes, most significant first, scaled down by
// 256 d times. Four bytes make a signed 32-bit value; shorter ones are not
// sign-extended.
int read_fixed_point(RibTokenView* token, int b) {
    int width = b % 4 + 1;
    int fraction_bytes = (b - 128) / 4;
    advance();
    uint32_t bits = static_cast<uint32_t>(read_big_endian(width));
    int32_t value =
        bits <= INT32_MAX ? static_cast<int32_t>(bits) : -static_cast<int32_t>(~bits) - 1;
    float number = static_cast<float>(value);
    for (int i = 0; i < fraction_bytes; ++i) number /= 256.0f;
    return print_number(token, number);
}

int read_binary_float(RibTokenView* token) {
    advance();
    uint32_t bits = static_cast<uint32_t>(read_big_endian(4));
    float number;
    memcpy(&number, &bits, sizeof number);
    return print_number(token, number);
}

int read_binary_double(RibTokenView* token) {
    advance();
    uint64_t bits = read_big_endian(8);
    double number;
    memcpy(&number, &bits, sizeof number);
    return print_number(token, number);
}

// Copies count bytes of a binary string (fewer at end of input).
void copy_string_bytes(TokenText& out, uint32_t count) {
    for (uint32_t i = 0; i < count && !current.at_eof; ++i) out.put(next_byte());
}

// Bytes 144..159: a string of b - 128 bytes that starts with b itself.
int read_short_string(RibTokenView* token, int b) {
    TokenText out(spill);
    copy_string_bytes(out, static_cast<uint32_t>(b - 128));
    out.finish();
    return spilled(token, TOKEN_STRING);
}

// Bytes 160..163: the length is made of the b - 160 bytes that start with b
// itself, and that many bytes follow. With b = 160 the length has no bytes,
// so nothing would be consumed and the same byte met again forever: here b is
// consumed and the token is an empty string, so no input can stall the reader.
int read_long_string(RibTokenView* token, int b) {
    TokenText out(spill);
    if (b == 160) {
        advance();
    } else {
        uint32_t length = static_cast<uint32_t>(read_big_endian(b - 160));
        copy_string_bytes(out, length);
    }
    out.finish();
    return spilled(token, TOKEN_STRING);
}

// Recognises the token that starts at the lookahead (white space and comments
// already dealt with).
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
    if (c == '"') {
        if (in_buffer && scan_string(token)) return TOKEN_STRING;
        return read_string_bytes(token);
    }
    if (c >= 128 && c <= 143) return read_fixed_point(token, c);
    if (c == 164) return read_binary_float(token);
    if (c == 165) return read_binary_double(token);
    if (c >= 144 && c <= 159) return read_short_string(token, c);
    if (c >= 160 && c <= 163) return read_long_string(token, c);
    advance();
    return single_character(token, c);
}

// Skips blanks, tabs and newlines, counting the newlines; false when end of
// input is met.
bool skip_white_space() {
    while (is_blank(current.lookahead)) {
        if (lookahead_in_buffer()) {
            const unsigned char* p = lookahead_at();
            const unsigned char* end = buffer_end();
            for (; p < end && is_blank(*p); ++p) {
                if (*p == '\n') count_newline();
            }
            consume_to(p);
        } else {
            if (current.lookahead == '\n') count_newline();
            advance();
        }
        if (current.at_eof) return false;
    }
    return true;
}

// Consumes bytes up to, not including, the next newline (or to end of input).
void skip_to_newline() {
    while (!current.at_eof && current.lookahead != '\n') {
        if (!lookahead_in_buffer()) {
            advance();
            continue;
        }
        const unsigned char* start = lookahead_at();
        const unsigned char* end = buffer_end();
        const void* newline = memchr(start, '\n', static_cast<size_t>(end - start));
        consume_to(newline ? static_cast<const unsigned char*>(newline) : end);
    }
}

// Consumes a comment up to and including its newline. That newline is not
// counted in the line number (only in the editor's count of comment_lines).
void skip_comment() {
    skip_to_newline();
    if (current.lookahead == '\n' && !current.at_eof) ++current.comment_lines;
    advance();
}

void release_state(RibStreamState& state) {
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
    current.stream = f;
    current.owns_stream = opened_here;
    current.descriptor = fileno(f);
    current.input = compressed_open(current.descriptor, f, name ? name : "stdin");
    current.buffer = static_cast<unsigned char*>(myalloc(READ_CHUNK));
    current.buffer_pos = current.buffer_len = 0;
    current.name_copy = copy_name(name ? name : "");
    RIB_filename = current.name_copy;
    current.line = RIB_lineno = 1;
    current.comment_lines = 0;
    current.at_eof = 0;
    current.pushback_text[0] = '\0';
    current.pushback_code = 0;
    advance();
    return 0;
}

void RIBparse_close_stream() {
    release_state(current);
    RIB_filename = nullptr;
    RIB_lineno = current.line = 0;
    current.comment_lines = 0;
    current.descriptor = -1;
    current.at_eof = 0;
    current.buffer_pos = current.buffer_len = 0;
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

int RIBparse_lookahead() {
    return current.lookahead;
}
int RIBparse_at_eof() {
    return current.at_eof;
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

// ---- Tokens ----

namespace {

int end_of_input(RibTokenView* token) {
    token->code = TOKEN_EOF;
    token->text = "";
    token->length = 0;
    return TOKEN_EOF;
}

// The common case in one pass over the buffer: blanks, then a number or an
// identifier that ends inside the buffer. Returns the token's code, or 0
// after consuming only the blanks (the general steps then go on from there).
int scan_blanks_and_word(RibTokenView* token) {
    const unsigned char* p = lookahead_at();
    const unsigned char* end = buffer_end();
    for (; p < end && is_blank(*p); ++p) {
        if (*p == '\n') count_newline();
    }
    if (p < end) {
        const int c = *p;
        const unsigned char* stop = nullptr;
        int code = 0;
        if (is_digit(c) || c == '-' || c == '.') {
            stop = number_end(p, end);
            code = TOKEN_NUMBER;
        } else if (is_letter(c)) {
            stop = identifier_end(p, end);
            code = TOKEN_IDENTIFIER;
        }
        if (stop) {
            in_place(token, code, p, stop);
            consume_to(stop);
            return code;
        }
    }
    if (p != lookahead_at()) consume_to(p);
    return 0;
}

}  // namespace

int scan_RIB_token(RibTokenView* token) {
    if (current.at_eof) return end_of_input(token);
    if (current.pushback_text[0] != '\0') {
        memcpy(spill, current.pushback_text, strlen(current.pushback_text) + 1);
        current.pushback_text[0] = '\0';
        return spilled(token, current.pushback_code);
    }
    if (lookahead_in_buffer()) {
        if (int code = scan_blanks_and_word(token)) return code;
        // End of input met while skipping blanks.
        if (current.at_eof) return end_of_input(token);
    }
    if (!skip_white_space()) return end_of_input(token);
    if (current.lookahead == '#') {
        advance();
        if (current.lookahead == '#' && !current.at_eof) return single_character(token, '#');
        skip_comment();
    }
    return classify_token(token);
}

void materialize_token(const RibTokenView& token, char* text) {
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

int RIBparse_return_token(const char* text, int code) {
    if (current.at_eof) {
        current.pushback_text[0] = '\0';
        current.pushback_code = TOKEN_EOF;
        return 0;
    }
    size_t length = strnlen(text, RIB_TOKEN_MAX - 1);
    memcpy(current.pushback_text, text, length);
    current.pushback_text[length] = '\0';
    current.pushback_code = code;
    return 0;
}

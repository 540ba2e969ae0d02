// The RIB tokenizer: the reader state of the current stream with its own read
// buffer, token recognition (ASCII and the numeric forms of the binary
// encoding), the one-token push-back, the number, string and vector readers,
// and the parser's scratch buffer.
#include "rib/tokenizer.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "driver/globals.h"
#include "rib/compressed_input.h"
#include "support/error.h"
#include "support/memory.h"

int RIB_echo = 0;
unsigned char* RIBparse_scratch = nullptr;
int RIBparse_scratch_size = 0;

namespace {

constexpr int READ_CHUNK = 64 * 1024;
constexpr int END_OF_INPUT = 255;

// The reader state of the stream being read (all zero: no stream).
RibStreamState current;

// ---- Character classes ----

enum CharClass : unsigned char { OTHER = 0, LETTER = 1, DIGIT = 2, UNDERSCORE = 4 };

struct ClassTable {
    unsigned char of[256];
    constexpr ClassTable() : of() {
        for (int c = 'a'; c <= 'z'; ++c) of[c] = LETTER;
        for (int c = 'A'; c <= 'Z'; ++c) of[c] = LETTER;
        for (int c = '0'; c <= '9'; ++c) of[c] = DIGIT;
        of['_'] = UNDERSCORE;
    }
};
constexpr ClassTable classes;

inline bool is_letter(int c) {
    return classes.of[c & 0xff] == LETTER;
}
inline bool is_digit(int c) {
    return classes.of[c & 0xff] == DIGIT;
}
inline bool is_identifier_char(int c) {
    return classes.of[c & 0xff] != OTHER;
}

// ---- Reading characters ----

// Fills the read buffer with the stream's content (inflated when the stream
// is gzip); returns the number of bytes read, 0 at end of input (a read error
// or damaged compressed data, reported there, counts as end of input).
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
    void append(const unsigned char* bytes, size_t count) {
        size_t room = static_cast<size_t>(RIB_TOKEN_MAX - 1 - length_);
        if (count > room) {
            truncated_ = true;
            count = room;
        }
        memcpy(out_ + length_, bytes, count);
        length_ += static_cast<int>(count);
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

int single_character(char* text, int c) {
    text[0] = static_cast<char>(c);
    text[1] = '\0';
    return c;
}

// Copies the run of characters that satisfy in_class, starting at the
// lookahead. Runs are scanned straight in the read buffer, which keeps the
// per-character cost of long identifiers and numbers low.
template <typename Class>
void copy_run(TokenText& out, Class in_class) {
    while (!current.at_eof && in_class(current.lookahead)) {
        out.put(current.lookahead);
        const unsigned char* start = current.buffer + current.buffer_pos;
        const unsigned char* end = current.buffer + current.buffer_len;
        const unsigned char* p = start;
        while (p < end && in_class(*p)) ++p;
        out.append(start, static_cast<size_t>(p - start));
        current.buffer_pos += static_cast<int>(p - start);
        advance();
    }
}

int read_identifier(char* text) {
    TokenText out(text);
    copy_run(out, [](int c) { return is_identifier_char(c); });
    out.finish();
    return TOKEN_IDENTIFIER;
}

void copy_digits(TokenText& out) {
    copy_run(out, [](int c) { return is_digit(c); });
}

// An optional '-', digits, an optional '.', digits, then an optional exponent;
// copied as written without further checks.
int read_number(char* text) {
    TokenText out(text);
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
    return TOKEN_NUMBER;
}

// A quoted string ends at the closing quote, a newline or a carriage return
// (consumed, not stored); there are no escapes.
int read_quoted_string(char* text) {
    TokenText out(text);
    advance();
    while (!current.at_eof && current.lookahead != '"' && current.lookahead != '\n' &&
           current.lookahead != '\r') {
        out.put(next_byte());
    }
    advance();
    out.finish();
    return TOKEN_STRING;
}

uint64_t read_big_endian(int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = (value << 8) | static_cast<uint64_t>(next_byte());
    return value;
}

int print_number(char* text, double value) {
    snprintf(text, RIB_TOKEN_MAX, "%g", value);
    return TOKEN_NUMBER;
}

// Bytes 128..143: w + 1 value bytes, most significant first, scaled down by
// 256 d times. Four bytes make a signed 32-bit value; shorter ones are not
// sign-extended.
int read_fixed_point(char* text, int b) {
    int width = b % 4 + 1;
    int fraction_bytes = (b - 128) / 4;
    advance();
    uint32_t bits = static_cast<uint32_t>(read_big_endian(width));
    int32_t value =
        bits <= INT32_MAX ? static_cast<int32_t>(bits) : -static_cast<int32_t>(~bits) - 1;
    float number = static_cast<float>(value);
    for (int i = 0; i < fraction_bytes; ++i) number /= 256.0f;
    return print_number(text, number);
}

int read_binary_float(char* text) {
    advance();
    uint32_t bits = static_cast<uint32_t>(read_big_endian(4));
    float number;
    memcpy(&number, &bits, sizeof number);
    return print_number(text, number);
}

int read_binary_double(char* text) {
    advance();
    uint64_t bits = read_big_endian(8);
    double number;
    memcpy(&number, &bits, sizeof number);
    return print_number(text, number);
}

// Copies count bytes of a binary string (fewer at end of input).
void copy_string_bytes(TokenText& out, uint32_t count) {
    for (uint32_t i = 0; i < count && !current.at_eof; ++i) out.put(next_byte());
}

// Bytes 144..159: a string of b - 128 bytes that starts with b itself.
int read_short_string(char* text, int b) {
    TokenText out(text);
    copy_string_bytes(out, static_cast<uint32_t>(b - 128));
    out.finish();
    return TOKEN_STRING;
}

// Bytes 160..163: the length is made of the b - 160 bytes that start with b
// itself, and that many bytes follow. With b = 160 the length has no bytes,
// so nothing would be consumed and the same byte met again forever: here b is
// consumed and the token is an empty string, so no input can stall the reader.
int read_long_string(char* text, int b) {
    TokenText out(text);
    if (b == 160) {
        advance();
    } else {
        uint32_t length = static_cast<uint32_t>(read_big_endian(b - 160));
        copy_string_bytes(out, length);
    }
    out.finish();
    return TOKEN_STRING;
}

// Recognises the token that starts at the lookahead (white space and comments
// already dealt with).
int classify_token(char* text) {
    int c = current.lookahead;
    if (is_letter(c)) return read_identifier(text);
    if (is_digit(c) || c == '-' || c == '.') return read_number(text);
    if (c == '"') return read_quoted_string(text);
    if (c >= 128 && c <= 143) return read_fixed_point(text, c);
    if (c == 164) return read_binary_float(text);
    if (c == 165) return read_binary_double(text);
    if (c >= 144 && c <= 159) return read_short_string(text, c);
    if (c >= 160 && c <= 163) return read_long_string(text, c);
    advance();
    return single_character(text, c);
}

// Consumes a comment up to and including its newline. That newline is not
// counted in the line number.
void skip_comment() {
    while (!current.at_eof && current.lookahead != '\n') advance();
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

// ---- Vector readers ----

float float_of(const char* text) {
    return rib_atof(text);
}
int int_of(const char* text) {
    return rib_atoi(text);
}

// Replaces the buffer by one of new_cap elements; the old contents are copied
// when keep is set. Returns false when new_cap is over RIB_VECTOR_MAX or
// memory runs out (myalloc has reported that).
template <typename T>
bool grow_buffer(T** buf, int* cap, int64_t new_cap, bool keep) {
    if (new_cap > RIB_VECTOR_MAX) return false;
    T* grown = static_cast<T*>(myalloc(static_cast<size_t>(new_cap) * sizeof(T)));
    if (!grown) return false;
    if (keep && *buf && *cap > 0) memcpy(grown, *buf, static_cast<size_t>(*cap) * sizeof(T));
    if (*buf) myfree(*buf);
    *buf = grown;
    *cap = static_cast<int>(new_cap);
    return true;
}

// Exactly n elements (at least one). The first token may open a bracket;
// otherwise it is taken as the first element without a type check.
template <typename T>
int read_sized(int n, T* out, T (*convert)(const char*)) {
    char text[RIB_TOKEN_MAX] = "";
    bool bracketed = read_RIB_token(text) == '[';
    if (bracketed && RIBparse_read_number(text) != 0) return -1;
    out[0] = convert(text);
    for (int i = 1; i < n; ++i) {
        if (RIBparse_read_number(text) != 0) return -1;
        out[i] = convert(text);
    }
    if (bracketed && read_RIB_token(text) != ']') {
        rib_syntax_error("Missing ']'");
        return -1;
    }
    return 0;
}

template <typename T>
int read_sized_growable(int n, T** buf, int* cap, T (*convert)(const char*)) {
    if (n > RIB_VECTOR_MAX) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Vector of %d values is too long", n);
        return -1;
    }
    // The new capacity is 64 below 64 elements and twice n above; the old
    // contents are about to be overwritten, so they are not copied.
    int64_t new_cap = n < 64 ? 64 : std::min<int64_t>(2 * static_cast<int64_t>(n), RIB_VECTOR_MAX);
    if ((n >= *cap || !*buf) && !grow_buffer(buf, cap, new_cap, false)) return -1;
    return read_sized(n, *buf, convert);
}

// As many elements as are given: a bracketed list, or a run of numbers that
// ends at the first other token (pushed back). store(i, value) keeps element
// i and returns false when there is no room; the list is still read to its
// end, then reported.
template <typename T, typename Store>
int read_unsized(int* n, T (*convert)(const char*), Store store) {
    char text[RIB_TOKEN_MAX] = "";
    int count = 0;
    bool overflow = false;
    auto append = [&](const char* element) {
        if (!overflow && store(count, convert(element))) {
            ++count;
        } else {
            overflow = true;
        }
    };
    int code = read_RIB_token(text);
    bool bracketed = code == '[';
    if (!bracketed) append(text);
    while ((code = read_RIB_token(text)) == TOKEN_NUMBER) append(text);
    *n = count;
    if (code == ']') {
        if (!bracketed) {
            rib_syntax_error("Extra ']'");
            return -1;
        }
    } else if (bracketed) {
        rib_syntax_error("Missing ']'");
        return -1;
    } else {
        RIBparse_return_token(text, code);
    }
    if (overflow) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Too many values in a list (more than %d)", count);
        return -1;
    }
    return 0;
}

template <typename T>
int read_unsized_growable(int* n, T** buf, int* cap, T (*convert)(const char*)) {
    *n = 0;
    if ((*cap < 64 || !*buf) && !grow_buffer(buf, cap, 64, false)) return -1;
    auto store = [&](int i, T value) {
        if (i >= *cap && !grow_buffer(buf, cap, static_cast<int64_t>(*cap) * 2, true)) {
            return false;
        }
        (*buf)[i] = value;
        return true;
    };
    return read_unsized(n, convert, store);
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
    while (!current.at_eof && current.lookahead != '\n') advance();
}

// ---- Tokens ----

int read_RIB_token(char* text) {
    if (current.at_eof) return TOKEN_EOF;
    if (current.pushback_text[0] != '\0') {
        memcpy(text, current.pushback_text, strlen(current.pushback_text) + 1);
        current.pushback_text[0] = '\0';
        return current.pushback_code;
    }
    while (current.lookahead == ' ' || current.lookahead == '\t' || current.lookahead == '\n') {
        if (current.lookahead == '\n') count_newline();
        advance();
        if (current.at_eof) return TOKEN_EOF;
    }
    if (current.lookahead == '#') {
        advance();
        if (current.lookahead == '#' && !current.at_eof) return single_character(text, '#');
        skip_comment();
    }
    return classify_token(text);
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

// ---- Readers ----

void rib_syntax_error(const char* message) {
    RMError(RIE_SYNTAX, RIE_ERROR, message);
}

int RIBparse_read_number(char* text) {
    int code = read_RIB_token(text);
    if (code == TOKEN_NUMBER) return 0;
    if (code == '[' && read_RIB_token(text) == TOKEN_NUMBER) {
        char closing[RIB_TOKEN_MAX];
        if (read_RIB_token(closing) == ']') return 0;
    }
    rib_syntax_error("Number expected");
    return -1;
}

int RIBparse_quoted_string(char* text) {
    if (read_RIB_token(text) == TOKEN_STRING) return 0;
    rib_syntax_error("Quoted string expected");
    return -1;
}

int RIBparse_ivector(int n, int** buf, int* cap) {
    return read_sized_growable(n, buf, cap, int_of);
}

int RIBparse_fvector(int n, float** buf, int* cap) {
    return read_sized_growable(n, buf, cap, float_of);
}

int RIBparse_fvector(int n, float* out) {
    return read_sized(n, out, float_of);
}

int RIBparse_unsized_ivector(int* n, int** buf, int* cap) {
    return read_unsized_growable(n, buf, cap, int_of);
}

int RIBparse_unsized_fvector(int* n, float** buf, int* cap) {
    return read_unsized_growable(n, buf, cap, float_of);
}

int RIBparse_unsized_fvector(int* n, float* out, int max_count) {
    *n = 0;
    auto store = [&](int i, float value) {
        if (i >= max_count) return false;
        out[i] = value;
        return true;
    };
    return read_unsized(n, float_of, store);
}

// Numbers are stored as 4-byte floats and strings with their NUL, one after
// the other (byte-packed, so a float after a string may be unaligned).
int RIBparse_value_list(char* out, int out_size) {
    char text[RIB_TOKEN_MAX];
    int code = read_RIB_token(text);
    bool bracketed = code == '[';
    if (bracketed) code = read_RIB_token(text);
    int used = 0;
    bool overflow = false;
    for (;;) {
        if (code == ']') {
            if (bracketed) break;
            rib_syntax_error("Extra ']'");
            return -1;
        }
        if (code == TOKEN_NUMBER) {
            float value = rib_atof(text);
            if (used + static_cast<int>(sizeof value) <= out_size) {
                memcpy(out + used, &value, sizeof value);
                used += static_cast<int>(sizeof value);
            } else {
                overflow = true;
            }
        } else if (code == TOKEN_STRING) {
            int length = static_cast<int>(strlen(text)) + 1;
            if (used + length <= out_size) {
                memcpy(out + used, text, static_cast<size_t>(length));
                used += length;
            } else {
                overflow = true;
            }
        } else {
            rib_syntax_error("Unexpected token");
            return -1;
        }
        if (!bracketed) break;
        code = read_RIB_token(text);
    }
    if (overflow) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Parameter values exceed %d bytes", out_size);
        return -1;
    }
    return used;
}

int RIBparse_check_scratchsize(int needed) {
    if (needed < RIBparse_scratch_size) return 0;
    if (needed > RIB_SCRATCH_MAX) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Parser scratch space of %d bytes is too large", needed);
        return -1;
    }
    int new_size = 2 * needed;
    auto* grown = static_cast<unsigned char*>(myalloc(static_cast<size_t>(new_size)));
    if (!grown) return -1;
    if (RIBparse_scratch) {
        memcpy(grown, RIBparse_scratch, static_cast<size_t>(RIBparse_scratch_size));
        myfree(RIBparse_scratch);
    }
    RIBparse_scratch = grown;
    RIBparse_scratch_size = new_size;
    if (RMDEBUG >= 2) fprintf(stderr, "Growing parser scratch space to %d\n", new_size);
    return 0;
}

void RIBparse_release_scratch() {
    if (RIBparse_scratch) myfree(RIBparse_scratch);
    RIBparse_scratch = nullptr;
    RIBparse_scratch_size = 0;
}

// ---- Number conversion ----

// The value atof gives for the text, as a float. Number tokens go through
// from_chars (the same correctly rounded result, much faster); anything it
// does not take whole ("-", ".", "1e", "inf", " 12", out of range) goes
// through strtod, which is what atof is.
float rib_atof(const char* text) {
    size_t length = strlen(text);
    double value = 0.0;
    auto [end, error] = std::from_chars(text, text + length, value);
    if (error == std::errc() && end == text + length && length > 0) {
        return static_cast<float>(value);
    }
    return static_cast<float>(strtod(text, nullptr));
}

// atoi without undefined behaviour: leading white space, an optional sign and
// decimal digits; a value outside int saturates at INT_MIN or INT_MAX.
int rib_atoi(const char* text) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
    bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    int64_t value = 0;
    const int64_t limit = negative ? -static_cast<int64_t>(INT_MIN) : INT_MAX;
    for (; *p >= '0' && *p <= '9'; ++p) {
        value = value * 10 + (*p - '0');
        if (value > limit) {
            value = limit;
            while (*p >= '0' && *p <= '9') ++p;
            break;
        }
    }
    return static_cast<int>(negative ? -value : value);
}

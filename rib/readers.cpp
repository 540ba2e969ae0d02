// The readers built on the RIB tokenizer: one number, one quoted string,
// sized and unsized vectors of integers or floats, value lists of undeclared
// parameters, the parser's scratch buffer, and the number conversions.
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "driver/globals.h"
#include "rib/token_scan.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/memory.h"

unsigned char* RIBparse_scratch = nullptr;
int RIBparse_scratch_size = 0;

namespace {

// ---- Vector readers ----

// The readers convert each number straight from the token as scanned, so a
// number's text is not copied out of the read buffer first.
float float_of(const RibTokenView& token) {
    return token_atof(token);
}
int int_of(const RibTokenView& token) {
    return token_atoi(token);
}

// RIBparse_read_number for one element: a number, or a number alone in
// brackets, converted before the closing bracket is scanned (scanning it
// would overwrite the number's text).
template <typename T>
int read_element(T* out, T (*convert)(const RibTokenView&)) {
    RibTokenView token;
    int code = scan_RIB_token(&token);
    if (code == TOKEN_NUMBER) {
        *out = convert(token);
        return 0;
    }
    if (code == '[' && scan_RIB_token(&token) == TOKEN_NUMBER) {
        T value = convert(token);
        if (scan_RIB_token(&token) == ']') {
            *out = value;
            return 0;
        }
    }
    rib_syntax_error("Number expected");
    return -1;
}

void return_token(const RibTokenView& token) {
    return_token_view(token);
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

// Runs of numbers read at once: bulk(out, room) stores up to room values
// of the numbers that come next and returns how many (none for integers).
int bulk_floats(float* out, int room) {
    return scan_RIB_floats(out, room);
}
int bulk_none(int*, int) {
    return 0;
}

// Exactly n elements (at least one). The first token may open a bracket;
// otherwise it is taken as the first element without a type check.
template <typename T>
int read_sized(int n, T* out, T (*convert)(const RibTokenView&), int (*bulk)(T*, int)) {
    RibTokenView first;
    bool bracketed = scan_RIB_token(&first) == '[';
    if (bracketed) {
        if (read_element(&out[0], convert) != 0) return -1;
    } else {
        out[0] = convert(first);
    }
    for (int i = 1; i < n;) {
        i += bulk(out + i, n - i);
        if (i < n && read_element(&out[i++], convert) != 0) return -1;
    }
    RibTokenView closing;
    if (bracketed && scan_RIB_token(&closing) != ']') {
        rib_syntax_error("Missing ']'");
        return -1;
    }
    return 0;
}

template <typename T>
int read_sized_growable(int n, T** buf, int* cap, T (*convert)(const RibTokenView&),
                        int (*bulk)(T*, int)) {
    if (n > RIB_VECTOR_MAX) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Vector of %d values is too long", n);
        return -1;
    }
    // The new capacity is 64 below 64 elements and twice n above; the old
    // contents are about to be overwritten, so they are not copied.
    int64_t new_cap = n < 64 ? 64 : std::min<int64_t>(2 * static_cast<int64_t>(n), RIB_VECTOR_MAX);
    if ((n >= *cap || !*buf) && !grow_buffer(buf, cap, new_cap, false)) return -1;
    return read_sized(n, *buf, convert, bulk);
}

// As many elements as are given: a bracketed list, or a run of numbers that
// ends at the first other token (pushed back). store(i, value) keeps element
// i and returns false when there is no room; the list is still read to its
// end, then reported. bulk(count) stores a run of the values that come next
// from element count on, as far as there is room without growing, and
// returns how many.
template <typename T, typename Store, typename Bulk>
int read_unsized(int* n, T (*convert)(const RibTokenView&), Store store, Bulk bulk) {
    int count = 0;
    bool overflow = false;
    auto append = [&](const RibTokenView& element) {
        if (!overflow && store(count, convert(element))) {
            ++count;
        } else {
            overflow = true;
        }
    };
    RibTokenView token;
    int code = scan_RIB_token(&token);
    bool bracketed = code == '[';
    if (!bracketed) append(token);
    for (;;) {
        if (!overflow) count += bulk(count);
        if ((code = scan_RIB_token(&token)) != TOKEN_NUMBER) break;
        append(token);
    }
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
        return_token(token);
    }
    if (overflow) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Too many values in a list (more than %d)", count);
        return -1;
    }
    return 0;
}

template <typename T>
int read_unsized_growable(int* n, T** buf, int* cap, T (*convert)(const RibTokenView&),
                          int (*bulk)(T*, int)) {
    *n = 0;
    if ((*cap < 64 || !*buf) && !grow_buffer(buf, cap, 64, false)) return -1;
    auto store = [&](int i, T value) {
        if (i >= *cap && !grow_buffer(buf, cap, static_cast<int64_t>(*cap) * 2, true)) {
            return false;
        }
        (*buf)[i] = value;
        return true;
    };
    auto bulk_into_buffer = [&](int i) { return bulk(*buf + i, *cap - i); };
    return read_unsized(n, convert, store, bulk_into_buffer);
}

}  // namespace

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
    return read_sized_growable(n, buf, cap, int_of, bulk_none);
}

int RIBparse_fvector(int n, float** buf, int* cap) {
    return read_sized_growable(n, buf, cap, float_of, bulk_floats);
}

int RIBparse_fvector(int n, float* out) {
    return read_sized(n, out, float_of, bulk_floats);
}

int RIBparse_unsized_ivector(int* n, int** buf, int* cap) {
    return read_unsized_growable(n, buf, cap, int_of, bulk_none);
}

int RIBparse_unsized_fvector(int* n, float** buf, int* cap) {
    return read_unsized_growable(n, buf, cap, float_of, bulk_floats);
}

int RIBparse_unsized_fvector(int* n, float* out, int max_count) {
    *n = 0;
    auto store = [&](int i, float value) {
        if (i >= max_count) return false;
        out[i] = value;
        return true;
    };
    auto bulk = [&](int i) { return scan_RIB_floats(out + i, max_count - i); };
    return read_unsized(n, float_of, store, bulk);
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

namespace {

// atoi on the bytes from p to end (a NUL ends the digits as any other byte
// does): leading white space, an optional sign and decimal digits; a value
// outside int saturates at INT_MIN or INT_MAX.
int parse_int(const unsigned char* p, const unsigned char* end) {
    while (p < end && (*p == ' ' || (*p >= '\t' && *p <= '\r'))) ++p;
    bool negative = p < end && *p == '-';
    if (p < end && (*p == '-' || *p == '+')) ++p;
    int64_t value = 0;
    // Nine digits cannot pass the limit.
    const unsigned char* unchecked = end - p > 9 ? p + 9 : end;
    for (; p < unchecked && *p >= '0' && *p <= '9'; ++p) value = value * 10 + (*p - '0');
    const int64_t limit = negative ? -static_cast<int64_t>(INT_MIN) : INT_MAX;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        value = value * 10 + (*p - '0');
        if (value > limit) {
            value = limit;
            break;
        }
    }
    return static_cast<int>(negative ? -value : value);
}

}  // namespace

// atoi without undefined behaviour.
int rib_atoi(const char* text) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    return parse_int(p, p + strlen(text));
}

namespace {

// The short decimal forms of short_decimal_value, from text; false for any
// other text.
bool convert_short_decimal(const char* p, const char* end, double* value) {
    const bool negative = p < end && *p == '-';
    if (negative) ++p;
    uint64_t digits = 0;
    int count = 0, exponent = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p, ++count)
        digits = digits * 10 + uint64_t(*p - '0');
    if (p < end && *p == '.') {
        for (++p; p < end && *p >= '0' && *p <= '9'; ++p, ++count, --exponent) {
            digits = digits * 10 + uint64_t(*p - '0');
        }
    }
    if (count == 0 || count > 15) return false;
    if (p < end && (*p == 'e' || *p == 'E')) {
        ++p;
        const bool negative_exponent = p < end && *p == '-';
        if (p < end && (*p == '-' || *p == '+')) ++p;
        if (p == end || end - p > 3) return false;
        int written = 0;
        for (; p < end && *p >= '0' && *p <= '9'; ++p) written = written * 10 + (*p - '0');
        exponent += negative_exponent ? -written : written;
    }
    return p == end && short_decimal_value(digits, count, exponent, negative, value);
}

}  // namespace

float token_atof(const RibTokenView& token) {
    if (token.numeric) return static_cast<float>(token.number);
    if (token.decimal_converted) return static_cast<float>(token.decimal_value);
    double value = 0.0;
    if (convert_short_decimal(token.text, token.text + token.length, &value)) {
        return static_cast<float>(value);
    }
    const char* end = token.text + token.length;
    auto [stop, error] = std::from_chars(token.text, end, value);
    if (error == std::errc() && stop == end && token.length > 0) {
        return static_cast<float>(value);
    }
    char text[RIB_TOKEN_MAX];
    materialize_token(token, text);
    return rib_atof(text);
}

// A binary number converts as atoi would read its text: towards zero,
// saturating at the ends of int (and 0 for a NaN).
int token_atoi(const RibTokenView& token) {
    if (token.numeric) {
        const double value = token.number;
        if (!(value == value)) return 0;
        if (value >= 2147483647.0) return INT_MAX;
        if (value <= -2147483648.0) return INT_MIN;
        return static_cast<int>(value);
    }
    const unsigned char* p = reinterpret_cast<const unsigned char*>(token.text);
    return parse_int(p, p + token.length);
}

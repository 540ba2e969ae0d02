// The tokenizer's inner interface for the readers built on it: a token as the
// scanner found it, left in place in the read buffer instead of copied out,
// and number conversions straight from such a token.
#ifndef TRACERY_RIB_TOKEN_SCAN_H
#define TRACERY_RIB_TOKEN_SCAN_H

#include <cstdint>
#include <cstring>

// One token: its code (as read_RIB_token returns it) and its text, which is
// not NUL-terminated. The text lies in the read buffer or in a spill buffer
// of the tokenizer and is valid only until the next token is scanned (a
// refill of the read buffer overwrites it), so a reader converts or copies
// it at once. Its length is already cut to RIB_TOKEN_MAX - 1 bytes (and the
// cut reported), so the text is byte for byte what read_RIB_token would have
// written. At end of input the text is empty.
//
// A number of the binary encoding comes with its exact value instead (numeric
// set, the text empty): it is converted from that value, and its text is only
// made when the token is copied out (as "%.17g", which reads back exactly).
struct RibTokenView {
    int code;
    const char* text;
    int length;
    bool numeric = false;
    double number = 0.0;
    // A decimal in the short form short_decimal_value takes, converted by the
    // scanner while it found the number's end: decimal_value is the double
    // token_atof would compute from the text, so the digits are read once.
    bool decimal_converted = false;
    double decimal_value = 0.0;
};

// The common short decimal ("-1.25", "3e-2") without a general conversion:
// with at most 15 digits the digits make an exact double, and so does a
// power of ten up to 1e22, so one multiplication or division rounds once and
// gives the correctly rounded double, which is what from_chars gives. The
// number is digits * 10^exponent (count digits read, negated when negative);
// false for any other, which then takes the general path.
inline bool short_decimal_value(uint64_t digits, int count, int exponent, bool negative,
                                double* value) {
    static constexpr double EXACT_POWERS_OF_TEN[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                     1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                     1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (count == 0 || count > 15 || exponent < -22 || exponent > 22) return false;
    // Below 10^15, so the signed conversion (one instruction) is exact.
    double result = double(static_cast<int64_t>(digits));
    result = exponent < 0 ? result / EXACT_POWERS_OF_TEN[-exponent]
                          : result * EXACT_POWERS_OF_TEN[exponent];
    *value = negative ? -result : result;
    return true;
}

// Scans the next token; read_RIB_token is this followed by a copy of the text.
int scan_RIB_token(RibTokenView* token);

// The length of the token's text as a C string: up to its first NUL (a
// string of the binary encoding may hold one), as strlen of the copy gives.
// Not for a number of the binary encoding, whose text is made on copying.
inline int token_c_length(const RibTokenView& token) {
    const void* nul = std::memchr(token.text, '\0', static_cast<size_t>(token.length));
    return nul ? static_cast<int>(static_cast<const char*>(nul) - token.text) : token.length;
}

// Reads up to room numbers in a row as scan_RIB_token would read them and
// stores the values token_atof gives into out; returns how many. It stops
// before any other token and before a number it cannot take straight from
// the read buffer, which scan_RIB_token then reads as usual.
int scan_RIB_floats(float* out, int room);

// Copies the token's text, NUL-terminated, into text (RIB_TOKEN_MAX bytes).
void materialize_token(const RibTokenView& token, char* text);
// Pushes the token back, with its exact value when it has one.
void return_token_view(const RibTokenView& token);

// The values rib_atof and rib_atoi give for the token's text.
float token_atof(const RibTokenView& token);
int token_atoi(const RibTokenView& token);

#endif  // TRACERY_RIB_TOKEN_SCAN_H

// The binary encoding of RIB: each form that starts with a byte from 128 to
// 255 becomes the token its ASCII text would be. Multi-byte integers are
// unsigned, most significant byte first.
//
//   128 + 4d + w, w+1 bytes    a number: the bytes as an unsigned integer,
//                              divided by 256 d times
//   144 + l, l bytes           a string of l bytes (0 to 15)
//   160 + l, l+1 bytes n, n bytes   a string of n bytes
//   164, 4 bytes / 165, 8 bytes     an IEEE single / double, big-endian
//   166, c                     the request defined under code c
//   200 + l, l+1 bytes n, n singles an array of n floats: "[" n numbers "]"
//   204, c, a string           defines request code c as the named request
//   205 + w, w+1 bytes k, a string  defines string number k
//   207 + w, w+1 bytes k       the string defined as number k
//   any other byte             reserved (255 ends a procedural's output and
//                              means nothing inside a file; as its last
//                              byte it is taken for the end quietly)
//
// The two string forms follow the published encoding, where the tokenizer
// once took the byte 144 + l or 160 + l itself as part of the string; every
// binary RIB writer uses the published forms.
//
// Definitions belong to the stream (a file, an archive, standard input) and
// start empty in each. Errors are reported with the byte offset of the form,
// since a binary stream has few newlines to count: the form is skipped and
// reading goes on, except that a stream ending inside a form ends the stream.
#include "rib/binary_tokens.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "rib/input_bytes.h"
#include "support/error.h"

// The requests and strings a stream has defined.
struct BinaryDefinitions {
    std::string requests[256];
    bool request_defined[256] = {};
    std::vector<std::string> strings;  // by number; up to 65536 of them
    std::vector<bool> string_defined;
};

namespace {

constexpr int FIRST_NUMBER = 0200, FIRST_SHORT_STRING = 0220, FIRST_LONG_STRING = 0240;
constexpr int SINGLE = 0244, DOUBLE = 0245, DEFINED_REQUEST = 0246;
constexpr int FIRST_ARRAY = 0310, DEFINE_REQUEST = 0314;
constexpr int FIRST_DEFINE_STRING = 0315, FIRST_STRING_REFERENCE = 0317;

// Text of the last binary string or request token.
char text[RIB_TOKEN_MAX];

// Offset of the form being decoded, for reports.
long long form_offset = 0;

// Reports what is wrong with the form, followed by its byte offset. Each
// report names its own place, so two on one line are both printed.
void report(const char* what, long long value = -1) {
    char message[128];
    std::snprintf(message, sizeof message, what, value);
    forget_reported_line();
    QuillError(RIE_SYNTAX, RIE_ERROR, "%s at byte %lld", message, form_offset);
}

int cut_off() {
    report("Binary token cut off by the end of input");
    return TOKEN_EOF;
}

// Consumes n bytes, copying them to out unless it is null. False when the
// input ends before the n-th byte (the end flag is then set); the end of
// input met by the read after the n-th byte leaves the bytes whole.
bool take(unsigned char* out, uint64_t n) {
    while (n > 0) {
        if (rib_input.at_eof) return false;
        if (rib_input.buffer_pos == 0) {  // no buffer: byte by byte
            if (out) *out++ = static_cast<unsigned char>(rib_input.lookahead);
            rib_advance();
            --n;
            continue;
        }
        const int first = rib_input.buffer_pos - 1;  // the lookahead's index
        const uint64_t available = static_cast<uint64_t>(rib_input.buffer_len - first);
        const uint64_t chunk = n < available ? n : available;
        if (out) {
            std::memcpy(out, rib_input.buffer + first, chunk);
            out += chunk;
        }
        n -= chunk;
        if (chunk < available) {
            rib_input.buffer_pos = first + static_cast<int>(chunk) + 1;
            rib_input.lookahead = rib_input.buffer[first + chunk];
        } else {
            rib_input.buffer_pos = rib_input.buffer_len;
            rib_input_refill();
        }
    }
    return true;
}

// An unsigned big-endian integer of `bytes` bytes (at most 8).
bool take_unsigned(int bytes, uint64_t* value) {
    unsigned char raw[8];
    if (!take(raw, static_cast<uint64_t>(bytes))) return false;
    *value = 0;
    for (int i = 0; i < bytes; ++i) *value = (*value << 8) | raw[i];
    return true;
}

bool take_single(float* value) {
    uint64_t bits;
    if (!take_unsigned(4, &bits)) return false;
    const uint32_t narrow = static_cast<uint32_t>(bits);
    std::memcpy(value, &narrow, sizeof *value);
    return true;
}

int number(RibTokenView* token, double value) {
    token->code = TOKEN_NUMBER;
    token->text = "";
    token->length = 0;
    token->numeric = true;
    token->number = value;
    return TOKEN_NUMBER;
}

int text_token(RibTokenView* token, int code, const char* start, size_t length) {
    token->code = code;
    token->text = start;
    token->length = static_cast<int>(length);
    return code;
}

int single_character(RibTokenView* token, int c) {
    text[0] = static_cast<char>(c);
    return text_token(token, c, text, 1);
}

// 128 + 4d + w: exact, since dividing by 256 only moves the binary point.
int fixed_point(RibTokenView* token, int b) {
    const int width = (b & 3) + 1;
    const int fraction_bytes = (b - FIRST_NUMBER) >> 2;
    uint64_t bits;
    if (!take_unsigned(width, &bits)) return cut_off();
    double value = static_cast<double>(bits);
    for (int i = 0; i < fraction_bytes; ++i) value /= 256.0;
    return number(token, value);
}

int ieee_number(RibTokenView* token, int b) {
    if (b == SINGLE) {
        float value;
        if (!take_single(&value)) return cut_off();
        return number(token, value);
    }
    uint64_t bits;
    if (!take_unsigned(8, &bits)) return cut_off();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return number(token, value);
}

// A string of `length` bytes into text; a longer one than a token may hold
// is cut (reported once) and its other bytes are skipped.
bool take_string(uint64_t length, size_t* kept) {
    *kept = length < RIB_TOKEN_MAX - 1 ? static_cast<size_t>(length) : RIB_TOKEN_MAX - 1;
    if (!take(reinterpret_cast<unsigned char*>(text), *kept)) return false;
    text[*kept] = '\0';
    if (*kept == length) return true;
    rib_syntax_error("Token too long");
    return take(nullptr, length - *kept);
}

// The length of a string form at the lookahead byte b (144 to 163); false
// when the input ends inside it.
bool take_string_length(int b, uint64_t* length) {
    if (b < FIRST_LONG_STRING) {
        *length = static_cast<uint64_t>(b - FIRST_SHORT_STRING);
        return true;
    }
    return take_unsigned(b - FIRST_LONG_STRING + 1, length);
}

BinaryDefinitions& definitions() {
    if (!rib_input.definitions) rib_input.definitions = new BinaryDefinitions();
    return *rib_input.definitions;
}

// The string defined as number k, or null.
const std::string* defined_string(uint64_t k) {
    const BinaryDefinitions* defs = rib_input.definitions;
    if (!defs || k >= defs->strings.size() || !defs->string_defined[k]) return nullptr;
    return &defs->strings[k];
}

// 207 + w: the string defined as number k; 0 after a report.
int string_reference(RibTokenView* token, int b) {
    uint64_t k;
    if (!take_unsigned(b - FIRST_STRING_REFERENCE + 1, &k)) return cut_off();
    const std::string* defined = defined_string(k);
    if (!defined) {
        report("String number %lld used before it is defined", static_cast<long long>(k));
        return 0;
    }
    return text_token(token, TOKEN_STRING, defined->data(), defined->size());
}

// A string form at the lookahead byte b, the lookahead already consumed.
int binary_string(RibTokenView* token, int b) {
    uint64_t length;
    size_t kept;
    if (!take_string_length(b, &length) || !take_string(length, &kept)) return cut_off();
    return text_token(token, TOKEN_STRING, text, kept);
}

// The string a definition names: any string form, binary or quoted, after
// optional white space. Returns TOKEN_STRING with the text in *out, TOKEN_EOF
// when the input ended inside it, 0 after reporting that no string follows
// (the byte that follows is left to be read as a token of its own).
int definition_string(std::string* out) {
    if (!rib_skip_white_space()) return cut_off();
    const int b = rib_input.lookahead;
    RibTokenView token;
    int code = 0;
    if (b == '"') {
        code = rib_scan_quoted_string(&token);
    } else if (b >= FIRST_SHORT_STRING && b < SINGLE) {
        rib_advance();
        code = binary_string(&token, b);
    } else if (b == FIRST_STRING_REFERENCE || b == FIRST_STRING_REFERENCE + 1) {
        const long long offset = form_offset;
        form_offset = rib_input_offset();
        rib_advance();
        code = string_reference(&token, b);
        form_offset = offset;
        if (code == 0) return 0;
    } else {
        report("Definition without its string");
        return 0;
    }
    if (code != TOKEN_STRING) return code;
    out->assign(token.text, static_cast<size_t>(token.length));
    return TOKEN_STRING;
}

// 204: request code c names the request that follows as a string.
int define_request() {
    uint64_t c;
    if (!take_unsigned(1, &c)) return cut_off();
    std::string name;
    const int code = definition_string(&name);
    if (code != TOKEN_STRING) return code;
    BinaryDefinitions& defs = definitions();
    defs.requests[c] = name;
    defs.request_defined[c] = true;
    return 0;
}

// 205 + w: string number k is the string that follows.
int define_string(int b) {
    uint64_t k;
    if (!take_unsigned(b - FIRST_DEFINE_STRING + 1, &k)) return cut_off();
    std::string value;
    const int code = definition_string(&value);
    if (code != TOKEN_STRING) return code;
    BinaryDefinitions& defs = definitions();
    if (k >= defs.strings.size()) {
        defs.strings.resize(k + 1);
        defs.string_defined.resize(k + 1);
    }
    defs.strings[k] = value;
    defs.string_defined[k] = true;
    return 0;
}

// 166: the request defined under code c, as an identifier token.
int defined_request(RibTokenView* token) {
    uint64_t c;
    if (!take_unsigned(1, &c)) return cut_off();
    const BinaryDefinitions* defs = rib_input.definitions;
    if (!defs || !defs->request_defined[c]) {
        report("Request code %lld used before it is defined", static_cast<long long>(c));
        return 0;
    }
    const std::string& name = defs->requests[c];
    return text_token(token, TOKEN_IDENTIFIER, name.data(), name.size());
}

// 200 + l: the array's opening bracket; its numbers and closing bracket come
// from next_array_token.
int float_array(RibTokenView* token, int b) {
    uint64_t count;
    if (!take_unsigned(b - FIRST_ARRAY + 1, &count)) return cut_off();
    rib_input.array_left = static_cast<long long>(count);
    rib_input.array_close = 1;
    return single_character(token, '[');
}

int decode(RibTokenView* token, int b) {
    if (b < FIRST_SHORT_STRING) return fixed_point(token, b);
    if (b < SINGLE) return binary_string(token, b);
    if (b <= DOUBLE) return ieee_number(token, b);
    if (b == DEFINED_REQUEST) return defined_request(token);
    if (b >= FIRST_ARRAY && b < DEFINE_REQUEST) return float_array(token, b);
    if (b == DEFINE_REQUEST) return define_request();
    if (b == FIRST_DEFINE_STRING || b == FIRST_DEFINE_STRING + 1) return define_string(b);
    if (b == FIRST_STRING_REFERENCE || b == FIRST_STRING_REFERENCE + 1) {
        return string_reference(token, b);
    }
    // A 255 that is the last byte of the stream marks its end, as the end of
    // a procedural's output does, and is not reported.
    if (b == 255 && rib_input.at_eof) return 0;
    report("Reserved byte %lld", b);
    return 0;
}

// A form cut by the end of input gives the end-of-input token, with an empty
// text as every reader expects of it.
int ended(RibTokenView* token, int code) {
    if (code == TOKEN_EOF) text_token(token, TOKEN_EOF, "", 0);
    return code;
}

}  // namespace

int scan_binary_token(RibTokenView* token) {
    const int b = rib_input.lookahead;
    form_offset = rib_input_offset();
    rib_input.last_binary = 1;
    rib_advance();
    return ended(token, decode(token, b));
}

int next_array_token(RibTokenView* token) {
    rib_input.last_binary = 1;
    if (rib_input.array_left > 0) {
        form_offset = rib_input_offset();
        float value;
        if (!take_single(&value)) {
            rib_input.array_left = 0;
            rib_input.array_close = 0;
            return ended(token, cut_off());
        }
        --rib_input.array_left;
        return number(token, value);
    }
    rib_input.array_close = 0;
    return single_character(token, ']');
}

void release_binary_definitions(RibStreamState& state) {
    delete state.definitions;
    state.definitions = nullptr;
    state.array_left = 0;
    state.array_close = 0;
}

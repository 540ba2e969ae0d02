// Parameter lists of the RIB reader. The names and values of a request's
// list are packed into the parser scratch buffer: the typed reader sizes each
// value by its name's declaration, the untyped reader takes float vectors of
// any length for primitives.
#include "rib/parameters.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "rib/parameter_lists.h"
#include "rib/requests.h"
#include "rib/token_scan.h"
#include "rib/tokenizer.h"
#include "support/declarations.h"
#include "support/error.h"
#include "support/inline_declarations.h"
#include "support/memory.h"
#include "support/report_output.h"

using rib_lists::RunBuffer;

namespace {

// The packed names and values of one list stay within half the scratch cap,
// because the scratch grows to twice the size asked for.
constexpr int64_t LIST_BYTES_MAX = int64_t(RIB_SCRATCH_MAX) / 2;
// Zero bytes kept behind the last value of a list, so that a consumer reading
// a fixed-size value where none was stored (a name whose declared type has no
// reader keeps no values) reads zeros inside the buffer.
constexpr int64_t LIST_TAIL = 64;
// Least room offered to the values of an undeclared name.
constexpr int64_t UNDECLARED_ROOM = 64 * 1024;

// One vector of a list before it is packed into the scratch buffer.
RunBuffer<float> staging;

// Offsets of one packed pair; pointers are made when the list is complete,
// since growing the scratch buffer moves it.
struct PackedPair {
    int64_t name;
    int64_t value;
    // String values: the number of pointer slots, followed by that many
    // texts one after another; 0 for numbers.
    int strings;
    // A name written with its own declaration, valid for this list only.
    bool has_inline;
    ParsedDeclaration inline_declaration;
};

// Packs the pairs of one list into the scratch buffer.
class ListPacker {
  public:
    // Makes room for bytes at the next 8-byte boundary and returns that
    // offset; the caller sets end past what it stores. When the list would
    // pass its bound it is marked too long and packing restarts at the front:
    // the list will be dropped, but the rest of it must still be read.
    // Returns -1 when even that leaves no room, or memory ran out.
    int64_t reserve(int64_t bytes) {
        end = (end + 7) & ~int64_t(7);
        if (end + bytes + LIST_TAIL > LIST_BYTES_MAX) {
            too_long = true;
            end = 0;
            if (bytes + LIST_TAIL > LIST_BYTES_MAX) return -1;
        }
        const int64_t needed = end + bytes + LIST_TAIL;
        if (needed >= RIBparse_scratch_size && RIBparse_check_scratchsize(int(needed)) != 0) {
            return -1;
        }
        if (RIBparse_scratch == nullptr || needed > RIBparse_scratch_size) return -1;
        return end;
    }

    // Copies the name (length bytes) with a NUL into (length + 5) & ~3 bytes.
    int64_t add_name(const char* name, size_t length) {
        const int64_t bytes = (int64_t(length) + 5) & ~int64_t(3);
        const int64_t offset = reserve(bytes);
        if (offset < 0) return -1;
        std::memcpy(at(offset), name, length);
        at(offset)[length] = '\0';
        end = offset + bytes;
        return offset;
    }

    int64_t add_floats(const float* values, int count) {
        const int64_t bytes = int64_t(count) * int64_t(sizeof(float));
        const int64_t offset = reserve(bytes);
        if (offset < 0) return -1;
        if (bytes > 0) std::memcpy(at(offset), values, size_t(bytes));
        end = offset + bytes;
        return offset;
    }

    // Zeroes the tail and turns the offsets into pointers, ending the arrays
    // with a null pair. False when the scratch could not be had.
    bool finish(const PackedPair pairs[], int n, RtToken tokens[], RtPointer values[]) {
        if (reserve(0) < 0) return false;
        std::memset(at(end), 0, LIST_TAIL);
        for (int i = 0; i < n; i++) {
            tokens[i] = reinterpret_cast<const char*>(at(pairs[i].name));
            values[i] = at(pairs[i].value);
            point_string_slots(pairs[i]);
        }
        tokens[n] = nullptr;
        values[n] = nullptr;
        return true;
    }

    // Points each pointer slot of a string value at its text.
    void point_string_slots(const PackedPair& pair) {
        unsigned char* slots = at(pair.value);
        char* text = reinterpret_cast<char*>(slots) + pair.strings * sizeof(char*);
        for (int k = 0; k < pair.strings; k++) {
            std::memcpy(slots + k * sizeof(char*), &text, sizeof text);
            text += std::strlen(text) + 1;
        }
    }

    // After a pair that is not kept: reuse its space.
    void discard_since(int64_t mark) { end = too_long ? 0 : mark; }

    unsigned char* at(int64_t offset) const { return RIBparse_scratch + offset; }

    int64_t end = 0;
    bool too_long = false;
};

// Shared bookkeeping of both list readers: the pair records, the one-time
// "too many" report, and the end of the list. One record serves every list
// (taken with fresh()): building the pair array for each request cost more
// than reading a short list. No list is read while another is being read.
struct ListState {
    ListPacker pack;
    PackedPair pairs[RIB_PARAM_MAX];
    int n = 0;
    bool too_many = false;

    static ListState& fresh() {
        static ListState state;
        state.pack = ListPacker();
        state.n = 0;
        state.too_many = false;
        return state;
    }

    // Whether a pair starting now can be kept; reports the first that cannot.
    bool room_for_pair() {
        if (n < RIB_PARAM_MAX - 1) return true;
        if (!too_many) rib_syntax_error("Too many parameters");
        too_many = true;
        return false;
    }
    // Reports a list that outgrew the scratch; true when the list is usable.
    bool complete() {
        if (pack.too_long) rib_syntax_error("Parameter list too long");
        return !pack.too_long && !too_many;
    }
};

// Reads the next token; if it is a quoted string, leaves its text in name and
// returns its length as a C string, else pushes it back and returns -1.
int next_name(char* name) {
    RibTokenView token;
    const int code = scan_RIB_token(&token);
    if (code == TOKEN_STRING) {
        materialize_token(token, name);
        return token_c_length(token);
    }
    return_token_view(token);
    return -1;
}

// Nearest integer, halves away from zero; out-of-range values saturate and a
// NaN gives 0, so that no float reaches an undefined conversion.
int32_t round_to_int(float value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483647.0f) return INT32_MAX;
    if (value <= -2147483648.0f) return INT32_MIN;
    return int32_t(std::lround(value));
}

// Exactly count floats (integers when as_int), packed as one value.
int read_number_value(int count, bool as_int, ListPacker& pack, PackedPair* pair) {
    if (!staging.prepare()) return -1;
    if (RIBparse_fvector(count, &staging.data, &staging.cap) != 0) return -1;
    if (as_int) {
        for (int i = 0; i < count; i++) {
            const int32_t rounded = round_to_int(staging.data[i]);
            std::memcpy(&staging.data[i], &rounded, sizeof rounded);
        }
    }
    pair->value = pack.add_floats(staging.data, count);
    return pair->value < 0 ? -1 : 1;
}

// Strings stored as pointer slots followed by their texts; the slots are
// filled when the list is complete. The token is read here rather than
// pushed back for the string reader: an empty string cannot be pushed back
// (an empty slot means none).
class StringValue {
  public:
    StringValue(ListPacker& pack, PackedPair* pair) : pack_(pack), pair_(pair) {}

    // Exactly count strings, bare or in brackets (one string alone in
    // brackets is the classic form). Each text is kept straight from the
    // token, before the next one is scanned.
    int read_sized(int count) {
        RibTokenView token;
        int code = scan_RIB_token(&token);
        const bool bracketed = code == '[';
        for (int k = 0; k < count; k++) {
            if (bracketed || k > 0) code = scan_RIB_token(&token);
            if (code != TOKEN_STRING) return fail("Quoted string expected");
            if (!keep(token)) return -1;
        }
        if (bracketed && scan_RIB_token(&token) != ']') return fail("Missing ']'");
        return store(count);
    }

    // As many strings as the brackets hold (or one bare string); *count
    // receives how many.
    int read_unsized(int* count) {
        RibTokenView token;
        int code = scan_RIB_token(&token);
        *count = 0;
        if (code == TOKEN_STRING) {
            *count = 1;
            return keep(token) ? store(1) : -1;
        }
        if (code != '[') return fail("Quoted string expected");
        while ((code = scan_RIB_token(&token)) == TOKEN_STRING) {
            if (!keep(token)) return -1;
            ++*count;
        }
        if (code != ']') return fail("Missing ']'");
        return store(*count);
    }

  private:
    int fail(const char* message) {
        rib_syntax_error(message);
        return -1;
    }
    // The texts go into a staging string first: the pointer slots in front
    // of them are sized only when the count is known.
    bool keep(const RibTokenView& token) {
        const size_t length = static_cast<size_t>(token_c_length(token));
        if (texts_.size() + length + 1 > size_t(LIST_BYTES_MAX)) {
            rib_syntax_error("Parameter list too long");
            return false;
        }
        texts_.append(token.text, length);
        texts_.push_back('\0');
        return true;
    }
    int store(int count) {
        const int64_t slots = int64_t(count) * int64_t(sizeof(char*));
        const int64_t offset = pack_.reserve(slots + int64_t(texts_.size()));
        if (offset < 0) return -1;
        if (!texts_.empty()) std::memcpy(pack_.at(offset + slots), texts_.data(), texts_.size());
        pack_.end = offset + slots + int64_t(texts_.size());
        pair_->value = offset;
        pair_->strings = count;
        return 1;
    }

    ListPacker& pack_;
    PackedPair* pair_;
    std::string texts_;
};

int read_string_value(ListPacker& pack, PackedPair* pair) {
    return StringValue(pack, pair).read_sized(1);
}

// A declared name's value, read by its type. Returns 1 (pair kept) or -1.
// The note for a declaration whose type has no reader: its name, storage
// class and type code.
void write_no_good_decl_note(const char* name, const Declaration& decl) {
    const std::string note = std::string("Error: no good decl on ") + name + " " +
                             Declaration::detailname(decl.detail) + " " +
                             std::to_string(int(decl.type));
    write_note(note.data(), note.size());
}

int read_declared_value(const Declaration& decl, const char* name, ListPacker& pack,
                        PackedPair* pair) {
    const int count = std::max<int>(decl.count, 0);
    switch (decl.type) {
        case DECL_FLOAT:
            return read_number_value(count, false, pack, pair);
        case DECL_INTEGER:
            return read_number_value(count, true, pack, pair);
        case DECL_POINT:
        case DECL_COLOR:
        case DECL_VECTOR:
        case DECL_NORMAL:
            // A colour is three floats here whatever ColorSamples says.
            return read_number_value(3 * count, false, pack, pair);
        case DECL_HPOINT:
            return read_number_value(4 * count, false, pack, pair);
        case DECL_STRING:
            return read_string_value(pack, pair);
        default:
            // No reader for this type (matrix, or a declaration that named no
            // type): the pair is kept without values, and its values, if
            // any, are left in the input. The message gives the name, the
            // storage class and the type code.
            write_no_good_decl_note(name, decl);
            pair->value = pack.reserve(0);
            return pair->value < 0 ? -1 : 1;
    }
}

// A value typed by an inline declaration: as a declared one, except that
// every type has a reader here (a matrix is 16 floats, a string array that
// many strings), since such a declaration is written by current exporters.
int read_inline_value(const ParsedDeclaration& decl, ListPacker& pack, PackedPair* pair) {
    if (decl.type == DECL_MATRIX) return read_number_value(16 * decl.count, false, pack, pair);
    if (decl.type == DECL_STRING) return StringValue(pack, pair).read_sized(decl.count);
    Declaration typed("");
    typed.type = static_cast<unsigned char>(decl.type);
    typed.detail = static_cast<unsigned char>(decl.detail);
    typed.count = static_cast<short>(decl.count);
    return read_declared_value(typed, "", pack, pair);
}

// The written name of a pair (*length bytes): an inline declaration is taken
// off it (and kept with the pair), leaving the plain name to be packed, and
// *length is then the plain name's.
const char* plain_name(const char* written, int* length, PackedPair* pair) {
    InlineDeclaration inline_decl;
    if (!split_inline_declaration(written, &inline_decl)) return written;
    pair->has_inline = true;
    pair->inline_declaration = inline_decl.declaration;
    *length = static_cast<int>(std::strlen(inline_decl.name));
    return inline_decl.name;
}

// Once a list is complete, its inline declarations are noted by token.
void note_inline_declarations(const PackedPair pairs[], int n, RtToken tokens[]) {
    for (int i = 0; i < n; i++) {
        if (pairs[i].has_inline) inline_declarations_note(tokens[i], pairs[i].inline_declaration);
    }
}

// An undeclared name: warned about, its values read untyped. Returns 1 to
// keep the pair, 0 to drop it (no values), -1 after a report.
int read_undeclared_value(const char* name, ListPacker& pack, PackedPair* pair) {
    QuillError(RIE_BADTOKEN, RIE_WARNING, "Undeclared token \"%s\"", name);
    const int64_t offset = pack.reserve(UNDECLARED_ROOM);
    if (offset < 0) return -1;
    const int64_t room = RIBparse_scratch_size - offset - LIST_TAIL;
    const int bytes = RIBparse_value_list(reinterpret_cast<char*>(pack.at(offset)),
                                          int(std::min<int64_t>(room, INT_MAX)));
    if (bytes < 0) return -1;
    pack.end = offset + bytes;
    pair->value = offset;
    return bytes > 0 ? 1 : 0;
}

}  // namespace

// ---- typed list ----

int RIBparse_parameter_list(RtToken tokens[], RtPointer values[]) {
    ListState& state = ListState::fresh();
    char written[RIB_TOKEN_MAX];
    inline_declarations_clear();
    int length;
    while ((length = next_name(written)) >= 0) {
        const bool keep = state.room_for_pair();
        const int64_t mark = state.pack.end;
        PackedPair pair{};
        const char* name = plain_name(written, &length, &pair);
        pair.name = state.pack.add_name(name, size_t(length));
        if (pair.name < 0) return -1;
        const Declaration* decl =
            pair.has_inline ? nullptr : find_declaration(name, size_t(length));
        int kept;
        if (pair.has_inline) {
            kept = read_inline_value(pair.inline_declaration, state.pack, &pair);
        } else if (decl != nullptr) {
            kept = read_declared_value(*decl, name, state.pack, &pair);
        } else {
            kept = read_undeclared_value(name, state.pack, &pair);
        }
        if (kept < 0) return -1;
        if (kept > 0 && keep && !state.pack.too_long) {
            state.pairs[state.n++] = pair;
        } else {
            state.pack.discard_since(mark);
        }
    }
    if (!state.complete()) return -1;
    if (!state.pack.finish(state.pairs, state.n, tokens, values)) return -1;
    note_inline_declarations(state.pairs, state.n, tokens);
    return state.n;
}

// ---- untyped list ----

namespace {

// One pair's values of a primitive's list: floats, or strings when an
// inline declaration says so (each string counts as one value). False after
// a report that ends the list; a list grown too long goes on being read.
bool read_primitive_value(ListPacker& pack, PackedPair* pair, int* count) {
    if (pair->has_inline && pair->inline_declaration.type == DECL_STRING) {
        return StringValue(pack, pair).read_unsized(count) > 0 || pack.too_long;
    }
    if (RIBparse_unsized_fvector(count, &staging.data, &staging.cap) != 0) return false;
    pair->value = pack.add_floats(staging.data, *count);
    return pair->value >= 0 || pack.too_long;
}

}  // namespace

int RIBparse_read_primvars(int* n, RtToken tokens[], RtPointer values[], int counts[]) {
    ListState& state = ListState::fresh();
    int vertices = 4;
    int pair_counts[RIB_PARAM_MAX];
    char written[RIB_TOKEN_MAX];
    *n = 0;
    inline_declarations_clear();
    if (!staging.prepare()) return -1;
    int length;
    while ((length = next_name(written)) >= 0) {
        const bool keep = state.room_for_pair();
        const int64_t mark = state.pack.end;
        PackedPair pair{};
        const char* name = plain_name(written, &length, &pair);
        pair.name = state.pack.add_name(name, size_t(length));
        if (pair.name < 0) {
            staging.shrink();
            return -1;
        }
        int count = 0;
        if (!read_primitive_value(state.pack, &pair, &count)) {
            staging.shrink();
            return -1;
        }
        if (std::strcmp(name, "P") == 0) {
            vertices = count / 3;
        } else if (std::strcmp(name, "Pz") == 0) {
            vertices = count;
        } else if (std::strcmp(name, "Pw") == 0) {
            vertices = count / 4;
        }
        if (keep && !state.pack.too_long) {
            pair_counts[state.n] = count;
            state.pairs[state.n++] = pair;
        } else {
            state.pack.discard_since(mark);
        }
    }
    staging.shrink();
    if (!state.complete()) return -1;
    if (!state.pack.finish(state.pairs, state.n, tokens, values)) return -1;
    note_inline_declarations(state.pairs, state.n, tokens);
    if (counts != nullptr) std::copy(pair_counts, pair_counts + state.n, counts);
    *n = state.n;
    return vertices;
}

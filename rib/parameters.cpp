// Parameter lists and geometry requests of the RIB reader. The names and
// values of a request's list are packed into the parser scratch buffer: the
// typed reader sizes each value by its name's declaration, the untyped reader
// takes float vectors of any length for primitives, whose lengths are then
// checked against the primitive's vertex, varying and uniform counts. The
// geometry reader reads each primitive's positional arguments, checks its
// list and calls the interface procedure.
#include "rib/parameters.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "ri/attributes.h"
#include "ri/renderer.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "support/declarations.h"
#include "support/error.h"
#include "support/inline_declarations.h"
#include "support/memory.h"

RibGeometryHook rib_geometry_hook = nullptr;

namespace {

// The packed names and values of one list stay within half the scratch cap,
// because the scratch grows to twice the size asked for.
constexpr int64_t LIST_BYTES_MAX = int64_t(RIB_SCRATCH_MAX) / 2;
// Zero bytes kept behind the last value of a list, so that a consumer reading
// a fixed-size value where none was stored (a name whose declared type has no
// reader keeps no values) reads zeros inside the buffer.
constexpr int64_t LIST_TAIL = 64;
// Scratch growth asked for ahead of a list from sizes in the file
// (nu * nv * 480 for a patch mesh, 32 * highest index + 32 for indexed
// polygons) is only a hint and is capped; the list itself grows the scratch
// as its values arrive.
constexpr int64_t SCRATCH_HINT_MAX = int64_t(64) << 20;
// Longest vector read for a count taken from the file (vertex indices, loop
// sizes, knots, trim curves): the sized readers allocate for the count before
// any number arrives, so the count itself must be bounded.
constexpr int64_t SIZED_LIST_MAX = int64_t(1) << 24;
// Least room offered to the values of an undeclared name.
constexpr int64_t UNDECLARED_ROOM = 64 * 1024;
// A staging buffer that grew beyond this many elements is given back after
// its list, so that one huge mesh does not pin the memory for the run.
constexpr int STAGING_KEEP = 1 << 22;

// A growable reader buffer (data, capacity in elements) kept for the run.
template <typename T>
struct RunBuffer {
    T* data = nullptr;
    int cap = 0;

    // The reader frees the old block when it grows one, so start with a
    // block of our own rather than a null pointer.
    bool prepare() {
        if (data == nullptr) {
            data = static_cast<T*>(myalloc(64 * sizeof(T)));
            cap = data ? 64 : 0;
        }
        return data != nullptr;
    }
    void shrink() {
        if (cap > STAGING_KEEP) {
            myfree(data);
            data = nullptr;
            cap = 0;
        }
    }
};

// One vector of a list before it is packed into the scratch buffer.
RunBuffer<float> staging;
// The integer and float lists of the complex primitives.
RunBuffer<int> int_lists[3];
RunBuffer<float> float_lists[6];

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

    // Copies the name with its NUL into (length + 5) & ~3 bytes.
    int64_t add_name(const char* name) {
        const size_t length = std::strlen(name);
        const int64_t bytes = (int64_t(length) + 5) & ~int64_t(3);
        const int64_t offset = reserve(bytes);
        if (offset < 0) return -1;
        std::memcpy(at(offset), name, length + 1);
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
// "too many" report, and the end of the list.
struct ListState {
    ListPacker pack;
    PackedPair pairs[RIB_PARAM_MAX];
    int n = 0;
    bool too_many = false;

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
// returns true, else pushes it back.
bool next_name(char* name) {
    const int code = read_RIB_token(name);
    if (code == TOKEN_STRING) return true;
    RIBparse_return_token(name, code);
    return false;
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
    // brackets is the classic form).
    int read_sized(int count) {
        char text[RIB_TOKEN_MAX];
        int code = read_RIB_token(text);
        const bool bracketed = code == '[';
        for (int k = 0; k < count; k++) {
            if (bracketed || k > 0) code = read_RIB_token(text);
            if (code != TOKEN_STRING) return fail("Quoted string expected");
            if (!keep(text)) return -1;
        }
        if (bracketed && read_RIB_token(text) != ']') return fail("Missing ']'");
        return store(count);
    }

    // As many strings as the brackets hold (or one bare string); *count
    // receives how many.
    int read_unsized(int* count) {
        char text[RIB_TOKEN_MAX];
        int code = read_RIB_token(text);
        *count = 0;
        if (code == TOKEN_STRING) {
            *count = 1;
            return keep(text) ? store(1) : -1;
        }
        if (code != '[') return fail("Quoted string expected");
        while ((code = read_RIB_token(text)) == TOKEN_STRING) {
            if (!keep(text)) return -1;
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
    bool keep(const char* text) {
        if (texts_.size() + std::strlen(text) + 1 > size_t(LIST_BYTES_MAX)) {
            rib_syntax_error("Parameter list too long");
            return false;
        }
        texts_.append(text, std::strlen(text) + 1);
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
            std::fprintf(stderr, "Error: no good decl on %s %s %d\n", name,
                         Declaration::detailname(decl.detail), int(decl.type));
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

// The written name of a pair: an inline declaration is taken off it (and
// kept with the pair), leaving the plain name to be packed.
const char* plain_name(const char* written, PackedPair* pair) {
    InlineDeclaration inline_decl;
    if (!split_inline_declaration(written, &inline_decl)) return written;
    pair->has_inline = true;
    pair->inline_declaration = inline_decl.declaration;
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

// ---- checks of a primitive's list ----

// a * b, saturating instead of overflowing: sizes come from the file.
long long saturating_product(long long a, long long b) {
    long long product;
    if (__builtin_mul_overflow(a, b, &product)) return (a < 0) != (b < 0) ? LLONG_MIN : LLONG_MAX;
    return product;
}

long long storage_multiplier(int detail, long long nvertex, long long nvarying,
                             long long nuniform) {
    switch (detail) {
        case CLASS_UNIFORM:
            return nuniform;
        case CLASS_VARYING:
            return nvarying;
        case CLASS_VERTEX:
            return nvertex;
        default:
            return 1;
    }
}

// The check on 64-bit sizes, so that sizes taken from the file cannot
// overflow the expected lengths.
int check_list(int n, RtToken tokens[], const int counts[], long long nvertex, long long nvarying,
               long long nuniform) {
    int rejected = 0;
    for (int i = 0; i < n; i++) {
        const Declaration* decl = parameter_declaration(tokens[i]);
        if (decl == nullptr) {
            QuillError(RIE_SYNTAX, RIE_ERROR, "vertex variable unknown: %s", tokens[i]);
            continue;
        }
        // One value per corner of each face: the primitives do not pass
        // their corner counts here, so these lengths are not checked.
        if (decl->detail == CLASS_FACEVARYING || decl->detail == CLASS_FACEVERTEX) continue;
        const long long expected = saturating_product(
            decl->bytesize() / 4, storage_multiplier(decl->detail, nvertex, nvarying, nuniform));
        if (counts[i] < expected) {
            QuillError(RIE_SYNTAX, RIE_ERROR,
                       "vertex length mismatch: %s (found %d, expected %lld)", tokens[i], counts[i],
                       expected);
            rejected = 1;
        } else if (counts[i] > expected) {
            QuillError(RIE_SYNTAX, RIE_WARNING,
                       "vertex length mismatch: %s (found %d, expected %lld)", tokens[i], counts[i],
                       expected);
        }
    }
    return rejected;
}

// A primitive's untyped list with its float counts.
struct PrimitiveList {
    int n = 0;
    int vertices = 4;  // implied by P, Pz or Pw
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int counts[RIB_PARAM_MAX];

    bool read() {
        vertices = RIBparse_read_primvars(&n, tokens, values, counts);
        return vertices >= 0;
    }
};

// The previewer reads as many positions as the primitive's own counts say,
// whatever the declarations say: a redeclared "P", or loop sizes of a
// GeneralPolygon past the end of its "P", must not let it read past the
// vector. Polygons read "P" only; patches "P", "Pw" or "Pz".
bool positions_cover(const char* keyword, const PrimitiveList& list, long long vertices,
                     bool patch_positions) {
    for (int i = 0; i < list.n; i++) {
        const char* name = list.tokens[i];
        int width = 0;
        if (std::strcmp(name, "P") == 0) {
            width = 3;
        } else if (patch_positions && std::strcmp(name, "Pw") == 0) {
            width = 4;
        } else if (patch_positions && std::strcmp(name, "Pz") == 0) {
            width = 1;
        }
        if (width > 0 && list.counts[i] < saturating_product(vertices, width)) {
            QuillError(RIE_SYNTAX, RIE_ERROR, "Too few values in \"%s\" for %s", name, keyword);
            return false;
        }
    }
    return true;
}

// Sizes checked against, clamped at zero (sizes of a malformed request can
// come out negative; the primitive reports the request itself).
struct CheckSizes {
    long long nvertex, nvarying, nuniform;
};

bool accept_list(const char* keyword, PrimitiveList& list, CheckSizes sizes,
                 long long positions_read, bool patch_positions) {
    sizes.nvertex = std::max(sizes.nvertex, 0LL);
    sizes.nvarying = std::max(sizes.nvarying, 0LL);
    sizes.nuniform = std::max(sizes.nuniform, 0LL);
    if (check_list(list.n, list.tokens, list.counts, sizes.nvertex, sizes.nvarying,
                   sizes.nuniform) != 0) {
        return false;
    }
    return positions_cover(keyword, list, positions_read, patch_positions);
}

RibGeometryCall make_call(const char* keyword, PrimitiveList* list, CheckSizes sizes) {
    RibGeometryCall call{};
    call.keyword = keyword;
    call.nvertex = std::max(sizes.nvertex, 0LL);
    call.nvarying = std::max(sizes.nvarying, 0LL);
    call.nuniform = std::max(sizes.nuniform, 0LL);
    if (list != nullptr) {
        call.n = list->n;
        call.tokens = list->tokens;
        call.values = list->values;
        call.counts = list->counts;
    }
    return call;
}

template <typename Primitive>
void emit(const RibGeometryCall& call, Primitive&& primitive) {
    if (rib_geometry_hook != nullptr) {
        rib_geometry_hook(call);
    } else {
        primitive();
    }
}

// ---- positional arguments ----

bool read_int(int* out) {
    char text[RIB_TOKEN_MAX];
    if (RIBparse_read_number(text) != 0) return false;
    *out = rib_atoi(text);
    return true;
}

bool read_float(float* out) {
    char text[RIB_TOKEN_MAX];
    if (RIBparse_read_number(text) != 0) return false;
    *out = rib_atof(text);
    return true;
}

bool read_string(char* text) {
    return RIBparse_quoted_string(text) == 0;
}

// The standard token for a patch type or wrap mode, else the text itself.
RtToken standard_token(const char* text) {
    const RtToken known[] = {RI_BILINEAR, RI_BICUBIC, RI_PERIODIC, RI_NONPERIODIC};
    for (RtToken token : known) {
        if (token != nullptr && std::strcmp(token, text) == 0) return token;
    }
    return text;
}

void report_bad_counts(const char* keyword) {
    QuillError(RIE_SYNTAX, RIE_ERROR, "Invalid counts in %s", keyword);
}

// Sum of count entries that must not be negative; false for a negative one.
bool sum_counts(const int* values, int count, long long* total) {
    *total = 0;
    for (int i = 0; i < count; i++) {
        if (values[i] < 0) return false;
        *total += values[i];
    }
    return true;
}

// Exactly count integers from the file into buffer, with count bounded first.
bool read_counted_ints(const char* keyword, long long count, RunBuffer<int>& buffer) {
    if (count > SIZED_LIST_MAX) {
        report_bad_counts(keyword);
        return false;
    }
    return buffer.prepare() && RIBparse_ivector(int(count), &buffer.data, &buffer.cap) == 0;
}

bool read_counted_floats(long long count, RunBuffer<float>& buffer) {
    return count <= SIZED_LIST_MAX && buffer.prepare() &&
           RIBparse_fvector(int(count), &buffer.data, &buffer.cap) == 0;
}

bool read_unsized_ints(int* count, RunBuffer<int>& buffer) {
    return buffer.prepare() && RIBparse_unsized_ivector(count, &buffer.data, &buffer.cap) == 0;
}

bool read_unsized_floats(int* count, RunBuffer<float>& buffer) {
    return buffer.prepare() && RIBparse_unsized_fvector(count, &buffer.data, &buffer.cap) == 0;
}

// Grows the scratch ahead of a list of items of the given size; the count
// comes from the file, so the product saturates before it can overflow.
void grow_scratch_for(long long items, long long bytes_per_item, long long extra) {
    items = std::min<long long>(items, SCRATCH_HINT_MAX);
    const long long bytes = std::min<long long>(items * bytes_per_item + extra, SCRATCH_HINT_MAX);
    RIBparse_check_scratchsize(int(bytes));
}

// Highest of count indices, -1 when there are none; -2 for a negative one.
long long highest_index(const int* verts, long long count) {
    long long highest = -1;
    for (long long i = 0; i < count; i++) {
        if (verts[i] < 0) return -2;
        highest = std::max<long long>(highest, verts[i]);
    }
    return highest;
}

// ---- the primitives ----

typedef RtVoid (*Quadric3V)(RtFloat, RtFloat, RtFloat, RtInt, RtToken[], RtPointer[]);
typedef RtVoid (*Quadric4V)(RtFloat, RtFloat, RtFloat, RtFloat, RtInt, RtToken[], RtPointer[]);

constexpr CheckSizes QUADRIC_SIZES = {4, 4, 1};

void read_quadric(const char* keyword, REACTION* row, int nargs) {
    if (row->function == nullptr) return;
    float args[4] = {0, 0, 0, 0};
    // A failed read goes on with what was read (the reader has reported it).
    RIBparse_fvector(nargs, args);
    PrimitiveList list;
    if (!list.read() || !accept_list(keyword, list, QUADRIC_SIZES, 0, false)) return;
    RibGeometryCall call = make_call(keyword, &list, QUADRIC_SIZES);
    std::copy(args, args + nargs, call.floats);
    emit(call, [&] {
        if (nargs == 3) {
            reinterpret_cast<Quadric3V>(row->function)(args[0], args[1], args[2], list.n,
                                                       list.tokens, list.values);
        } else {
            reinterpret_cast<Quadric4V>(row->function)(args[0], args[1], args[2], args[3], list.n,
                                                       list.tokens, list.values);
        }
    });
}

// Hyperboloid and Torus: their floats come as one list of any length; values
// missing from a short list read as zero.
void read_float_quadric(const char* keyword, int nargs) {
    RunBuffer<float>& args = float_lists[0];
    int count = 0;
    if (!read_unsized_floats(&count, args) || args.cap < 7) return;
    for (int i = count; i < 7; i++) args.data[i] = 0.0f;
    PrimitiveList list;
    if (!list.read() || !accept_list(keyword, list, QUADRIC_SIZES, 0, false)) return;
    RibGeometryCall call = make_call(keyword, &list, QUADRIC_SIZES);
    std::copy(args.data, args.data + nargs, call.floats);
    const float* a = args.data;
    emit(call, [&] {
        if (nargs == 7) {
            RiHyperboloidV(args.data, args.data + 3, a[6], list.n, list.tokens, list.values);
        } else {
            RiTorusV(a[0], a[1], a[2], a[3], a[4], list.n, list.tokens, list.values);
        }
    });
}

void read_polygon(const char* keyword) {
    PrimitiveList list;
    if (!list.read()) return;
    const int nverts = list.vertices;
    const CheckSizes sizes = {nverts, nverts, 1};
    if (!accept_list(keyword, list, sizes, nverts, false)) return;
    RibGeometryCall call = make_call(keyword, &list, sizes);
    call.ints[0] = nverts;
    emit(call, [&] { RiPolygonV(nverts, list.n, list.tokens, list.values); });
}

void read_general_polygon(const char* keyword) {
    RunBuffer<int>& loops = int_lists[0];
    int nloops = 0;
    if (!read_unsized_ints(&nloops, loops)) return;
    PrimitiveList list;
    if (!list.read()) return;
    long long total = 0;
    if (!sum_counts(loops.data, nloops, &total)) {
        report_bad_counts(keyword);
        return;
    }
    // The vertex count comes from the position vector alone; the loops are
    // held only to what "P" holds.
    const CheckSizes sizes = {list.vertices, list.vertices, 1};
    if (!accept_list(keyword, list, sizes, total, false)) return;
    RibGeometryCall call = make_call(keyword, &list, sizes);
    call.ints[0] = nloops;
    emit(call, [&] { RiGeneralPolygonV(nloops, loops.data, list.n, list.tokens, list.values); });
}

// The index list of indexed polygons: checks it, grows the scratch for the
// list to come, reads the list and checks it. Returns the vertex count (the
// highest index + 1), or -1 when the request is dropped.
long long read_indexed_list(const char* keyword, const int* verts, long long nindices, int npolys,
                            PrimitiveList& list) {
    const long long highest = highest_index(verts, nindices);
    if (highest >= 0) grow_scratch_for(highest, 32, 32);
    if (!list.read()) return -1;
    if (highest < -1) {
        QuillError(RIE_SYNTAX, RIE_ERROR, "Invalid vertex index in %s", keyword);
        return -1;
    }
    const long long nvertex = highest + 1;
    if (!accept_list(keyword, list, {nvertex, nvertex, npolys}, nvertex, false)) return -1;
    return nvertex;
}

void read_points_polygons(const char* keyword) {
    RunBuffer<int>& nverts = int_lists[0];
    RunBuffer<int>& verts = int_lists[1];
    int npolys = 0;
    long long nindices = 0;
    if (!read_unsized_ints(&npolys, nverts)) return;
    if (!sum_counts(nverts.data, npolys, &nindices)) {
        report_bad_counts(keyword);
        return;
    }
    if (!read_counted_ints(keyword, nindices, verts)) return;
    PrimitiveList list;
    const long long nvertex = read_indexed_list(keyword, verts.data, nindices, npolys, list);
    if (nvertex < 0) return;
    RibGeometryCall call = make_call(keyword, &list, {nvertex, nvertex, npolys});
    call.ints[0] = npolys;
    emit(call, [&] {
        RiPointsPolygonsV(npolys, nverts.data, verts.data, list.n, list.tokens, list.values);
    });
}

void read_points_general_polygons(const char* keyword) {
    RunBuffer<int>& nloops = int_lists[0];
    RunBuffer<int>& nverts = int_lists[1];
    RunBuffer<int>& verts = int_lists[2];
    int npolys = 0;
    long long total_loops = 0;
    long long nindices = 0;
    if (!read_unsized_ints(&npolys, nloops)) return;
    if (!sum_counts(nloops.data, npolys, &total_loops)) {
        report_bad_counts(keyword);
        return;
    }
    if (!read_counted_ints(keyword, total_loops, nverts)) return;
    // The loop sizes are checked as far as they were read (one at least).
    if (!sum_counts(nverts.data, int(total_loops), &nindices)) {
        report_bad_counts(keyword);
        return;
    }
    if (!read_counted_ints(keyword, nindices, verts)) return;
    PrimitiveList list;
    const long long nvertex = read_indexed_list(keyword, verts.data, nindices, npolys, list);
    if (nvertex < 0) return;
    RibGeometryCall call = make_call(keyword, &list, {nvertex, nvertex, npolys});
    call.ints[0] = npolys;
    emit(call, [&] {
        RiPointsGeneralPolygonsV(npolys, nloops.data, nverts.data, verts.data, list.n, list.tokens,
                                 list.values);
    });
}

void read_patch(const char* keyword) {
    char type[RIB_TOKEN_MAX];
    if (!read_string(type)) return;
    PrimitiveList list;
    if (!list.read()) return;
    const long long nvertex = std::strcmp(type, "bicubic") == 0 ? 16 : 4;
    // The patch drawer takes every type but "bilinear" as bicubic.
    const long long positions_read = std::strcmp(type, "bilinear") == 0 ? 4 : 16;
    const CheckSizes sizes = {nvertex, 4, 1};
    if (!accept_list(keyword, list, sizes, positions_read, true)) return;
    RibGeometryCall call = make_call(keyword, &list, sizes);
    const RtToken patch_type = standard_token(type);
    call.type = patch_type;
    emit(call, [&] { RiPatchV(patch_type, list.n, list.tokens, list.values); });
}

// The basis step of the current graphics state in one direction; a step of
// 0 (which no basis has) counts as 1 so that it cannot divide by zero.
int basis_step(bool u_direction) {
    int step = 3;  // the default basis, Bezier
    if (renderer != nullptr && renderer->gstate != nullptr) {
        step = u_direction ? renderer->gstate->ustep : renderer->gstate->vstep;
    }
    return std::max(step, 1);
}

// Patches and varying values along one direction of a patch mesh.
void mesh_direction(bool bicubic, bool periodic, long long n, int step, long long* patches,
                    long long* varying) {
    if (bicubic) {
        *patches = periodic ? n / step : (n - 4) / step + 1;
        *varying = periodic ? *patches : *patches + 1;
    } else {
        *patches = periodic ? n : n - 1;
        *varying = n;
    }
    *patches = std::max(*patches, 0LL);
    *varying = std::max(*varying, 0LL);
}

void read_patch_mesh(const char* keyword) {
    char type[RIB_TOKEN_MAX];
    char uwrap[RIB_TOKEN_MAX];
    char vwrap[RIB_TOKEN_MAX];
    int nu = 0;
    int nv = 0;
    if (!read_string(type) || !read_int(&nu) || !read_string(uwrap) || !read_int(&nv) ||
        !read_string(vwrap)) {
        return;
    }
    const bool sized = nu >= 1 && nv >= 1;
    const long long nvertex = (long long)nu * nv;
    if (sized) grow_scratch_for(nvertex, 480, 0);
    PrimitiveList list;
    if (!list.read()) return;
    if (!sized) {
        report_bad_counts(keyword);
        return;
    }
    const bool bicubic = std::strcmp(type, "bicubic") == 0;
    long long upatches, uvarying, vpatches, vvarying;
    mesh_direction(bicubic, std::strcmp(uwrap, "periodic") == 0, nu, basis_step(true), &upatches,
                   &uvarying);
    mesh_direction(bicubic, std::strcmp(vwrap, "periodic") == 0, nv, basis_step(false), &vpatches,
                   &vvarying);
    const CheckSizes sizes = {nvertex, bicubic ? saturating_product(uvarying, vvarying) : nvertex,
                              saturating_product(upatches, vpatches)};
    if (!accept_list(keyword, list, sizes, nvertex, true)) return;
    RibGeometryCall call = make_call(keyword, &list, sizes);
    const RtToken mesh_type = standard_token(type);
    const RtToken uwrap_token = standard_token(uwrap);
    const RtToken vwrap_token = standard_token(vwrap);
    call.type = mesh_type;
    call.ints[0] = nu;
    call.ints[1] = nv;
    emit(call, [&] {
        RiPatchMeshV(mesh_type, nu, uwrap_token, nv, vwrap_token, list.n, list.tokens, list.values);
    });
}

// One direction of a NuPatch: count, order, knots, min, max.
struct NurbsDirection {
    int count = 0;
    int order = 0;
    float min = 0;
    float max = 0;
};

bool read_nurbs_direction(const char* keyword, NurbsDirection* d, RunBuffer<float>& knots) {
    if (!read_int(&d->count) || !read_int(&d->order)) return false;
    if (d->count < 1 || d->order < 1) {
        report_bad_counts(keyword);
        return false;
    }
    const long long nknots = (long long)d->count + d->order;
    if (nknots > SIZED_LIST_MAX) {
        report_bad_counts(keyword);
        return false;
    }
    return read_counted_floats(nknots, knots) && read_float(&d->min) && read_float(&d->max);
}

void read_nu_patch(const char* keyword) {
    NurbsDirection u, v;
    RunBuffer<float>& uknot = float_lists[0];
    RunBuffer<float>& vknot = float_lists[1];
    if (!read_nurbs_direction(keyword, &u, uknot) || !read_nurbs_direction(keyword, &v, vknot)) {
        return;
    }
    PrimitiveList list;
    if (!list.read()) return;
    // Each factor is clamped at zero: an order above the count is the
    // primitive's to report, and two negative factors must not make a
    // positive size.
    const long long nvertex = (long long)u.count * v.count;
    const CheckSizes sizes = {nvertex,
                              std::max((long long)u.count - u.order + 2, 0LL) *
                                  std::max((long long)v.count - v.order + 2, 0LL),
                              std::max((long long)u.count - u.order + 1, 0LL) *
                                  std::max((long long)v.count - v.order + 1, 0LL)};
    if (!accept_list(keyword, list, sizes, nvertex, true)) return;
    RibGeometryCall call = make_call(keyword, &list, sizes);
    call.ints[0] = u.count;
    call.ints[1] = u.order;
    call.ints[2] = v.count;
    call.ints[3] = v.order;
    call.floats[0] = u.min;
    call.floats[1] = u.max;
    call.floats[2] = v.min;
    call.floats[3] = v.max;
    emit(call, [&] {
        RiNuPatchV(u.count, u.order, uknot.data, u.min, u.max, v.count, v.order, vknot.data, v.min,
                   v.max, list.n, list.tokens, list.values);
    });
}

void invalid_trim() {
    std::fputs("Invalid trim\n", stdout);
    std::fflush(stdout);
}

// Whether the trim lists hold what their curves need: order >= 1 and
// n >= order for each curve, sum(n + order) knots, sum(n) u, v and w.
bool trim_lists_consistent(const int* order, const int* n, long long curves, int nknots, int nu,
                           int nv, int nw) {
    long long knots_needed = 0;
    long long points_needed = 0;
    for (long long i = 0; i < curves; i++) {
        if (order[i] < 1 || n[i] < order[i]) return false;
        knots_needed += (long long)n[i] + order[i];
        points_needed += n[i];
    }
    return nknots >= knots_needed && nu >= points_needed && nv >= points_needed &&
           nw >= points_needed;
}

void read_trim_curve(const char* keyword) {
    RunBuffer<int>& ncurves = int_lists[0];
    RunBuffer<int>& order = int_lists[1];
    RunBuffer<int>& n = int_lists[2];
    RunBuffer<float>& knot = float_lists[0];
    RunBuffer<float>& min = float_lists[1];
    RunBuffer<float>& max = float_lists[2];
    RunBuffer<float>& u = float_lists[3];
    RunBuffer<float>& v = float_lists[4];
    RunBuffer<float>& w = float_lists[5];
    int nloops = 0;
    if (!read_unsized_ints(&nloops, ncurves)) return;
    long long curves = 0;
    int nknots = 0, nu = 0, nv = 0, nw = 0;
    // From here on every failure is an invalid trim.
    const bool read =
        sum_counts(ncurves.data, nloops, &curves) && curves <= SIZED_LIST_MAX && order.prepare() &&
        RIBparse_ivector(int(curves), &order.data, &order.cap) == 0 &&
        read_unsized_floats(&nknots, knot) && read_counted_floats(curves, min) &&
        read_counted_floats(curves, max) && n.prepare() &&
        RIBparse_ivector(int(curves), &n.data, &n.cap) == 0 && read_unsized_floats(&nu, u) &&
        read_unsized_floats(&nv, v) && read_unsized_floats(&nw, w);
    if (!read || !trim_lists_consistent(order.data, n.data, curves, nknots, nu, nv, nw)) {
        invalid_trim();
        return;
    }
    RibGeometryCall call = make_call(keyword, nullptr, {0, 0, 0});
    call.ints[0] = nloops;
    emit(call, [&] {
        RiTrimCurve(nloops, ncurves.data, order.data, knot.data, min.data, max.data, n.data, u.data,
                    v.data, w.data);
    });
}

}  // namespace

// ---- typed list ----

int RIBparse_parameter_list(RtToken tokens[], RtPointer values[]) {
    ListState state;
    char written[RIB_TOKEN_MAX];
    inline_declarations_clear();
    while (next_name(written)) {
        const bool keep = state.room_for_pair();
        const int64_t mark = state.pack.end;
        PackedPair pair{};
        const char* name = plain_name(written, &pair);
        pair.name = state.pack.add_name(name);
        if (pair.name < 0) return -1;
        const Declaration* decl = pair.has_inline ? nullptr : find_declaration(name);
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
    ListState state;
    int vertices = 4;
    int pair_counts[RIB_PARAM_MAX];
    char written[RIB_TOKEN_MAX];
    *n = 0;
    inline_declarations_clear();
    if (!staging.prepare()) return -1;
    while (next_name(written)) {
        const bool keep = state.room_for_pair();
        const int64_t mark = state.pack.end;
        PackedPair pair{};
        const char* name = plain_name(written, &pair);
        pair.name = state.pack.add_name(name);
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

int RIBparse_check_primvars(int n, RtToken tokens[], RtPointer /*values*/[], int counts[],
                            int nvertex, int nvarying, int nuniform) {
    return check_list(n, tokens, counts, nvertex, nvarying, nuniform);
}

// ---- geometry requests ----

void RIB_parse_geometry(const char* keyword, REACTION* row) {
    if (row == nullptr) return;
    if (row->code == 13) {
        read_quadric(keyword, row, 3);
    } else if (row->code == 14) {
        read_quadric(keyword, row, 4);
    } else {
        RIBparse_react_complex_geom(keyword, row);
    }
}

void RIBparse_react_complex_geom(const char* keyword, REACTION* row) {
    if (row != nullptr && row == rxnPolygon) {
        read_polygon(keyword);
    } else if (row != nullptr && row == rxnHyperboloid) {
        read_float_quadric(keyword, 7);
    } else if (std::strcmp(keyword, "Torus") == 0) {
        read_float_quadric(keyword, 5);
    } else if (std::strcmp(keyword, "GeneralPolygon") == 0) {
        read_general_polygon(keyword);
    } else if (std::strcmp(keyword, "PointsPolygons") == 0) {
        read_points_polygons(keyword);
    } else if (std::strcmp(keyword, "PointsGeneralPolygons") == 0) {
        read_points_general_polygons(keyword);
    } else if (std::strcmp(keyword, "Patch") == 0) {
        read_patch(keyword);
    } else if (std::strcmp(keyword, "PatchMesh") == 0) {
        read_patch_mesh(keyword);
    } else if (std::strcmp(keyword, "NuPatch") == 0) {
        read_nu_patch(keyword);
    } else if (std::strcmp(keyword, "TrimCurve") == 0) {
        read_trim_curve(keyword);
    }
}

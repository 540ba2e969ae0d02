// Readers of SubdivisionMesh, HierarchicalSubdivisionMesh, Curves, NuCurves,
// Points and Blobby: their positional arguments (integer, float and string
// lists of any length, whose counts are then checked against each other),
// their parameter list checked against the sizes the RenderMan standard
// gives each primitive, and the call.
//
// Sizes checked (vertex / varying / uniform):
//   subdivision meshes: points of "P" / the same / faces;
//   Curves: sum of nvertices / per curve segments + 1 (segments when
//     periodic) / curves;
//   NuCurves: sum of nvertices / sum of nvertices - order + 2 / curves;
//   Points: points of "P" / the same / 1;  Blobby: nleaf / nleaf / 1.
#include "rib/modern_geometry.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "preview/curves.h"
#include "preview/subdivision.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "rib/parameter_lists.h"
#include "rib/parameters.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/memory.h"

using rib_lists::emit;

namespace {

// Most strings in one string list (tags, blobby strings).
constexpr size_t STRING_LIST_MAX = 1 << 16;

// A number list of one request, freed when the request is done.
template <typename T>
struct NumberList {
    T* data = nullptr;
    int cap = 0;
    int n = 0;
    NumberList() = default;
    NumberList(const NumberList&) = delete;
    NumberList& operator=(const NumberList&) = delete;
    ~NumberList() {
        if (data != nullptr) myfree(data);
    }
};

// Whether a number list starts here (a bracket or a number); the token is
// pushed back either way, so that a request word that follows a request cut
// short is read as the next request instead of as a number.
bool list_follows() {
    char text[RIB_TOKEN_MAX];
    const int code = read_RIB_token(text);
    RIBparse_return_token(text, code);
    if (code == '[' || code == TOKEN_NUMBER) return true;
    rib_syntax_error("Number expected");
    return false;
}

bool read_list(NumberList<int>& list) {
    return list_follows() && RIBparse_unsized_ivector(&list.n, &list.data, &list.cap) == 0;
}

bool read_list(NumberList<float>& list) {
    return list_follows() && RIBparse_unsized_fvector(&list.n, &list.data, &list.cap) == 0;
}

// One quoted string; anything else is pushed back (see list_follows).
bool read_string(char* text) {
    const int code = read_RIB_token(text);
    if (code == TOKEN_STRING) return true;
    RIBparse_return_token(text, code);
    rib_syntax_error("Quoted string expected");
    return false;
}

bool read_int(int* out) {
    char text[RIB_TOKEN_MAX];
    const int code = read_RIB_token(text);
    RIBparse_return_token(text, code);
    if (code != TOKEN_NUMBER && code != '[') {
        rib_syntax_error("Number expected");
        return false;
    }
    if (RIBparse_read_number(text) != 0) return false;
    *out = rib_atoi(text);
    return true;
}

// Whether the next token opens a bracket (it is pushed back either way).
bool bracket_follows() {
    char text[RIB_TOKEN_MAX];
    const int code = read_RIB_token(text);
    RIBparse_return_token(text, code);
    return code == '[';
}

// A bracketed list of strings, or one bare string.
bool read_strings(std::vector<std::string>& out) {
    char text[RIB_TOKEN_MAX];
    int code = read_RIB_token(text);
    if (code == TOKEN_STRING) {
        out.push_back(text);
        return true;
    }
    if (code != '[') {
        RIBparse_return_token(text, code);
        rib_syntax_error("Quoted string expected");
        return false;
    }
    while ((code = read_RIB_token(text)) == TOKEN_STRING) {
        if (out.size() >= STRING_LIST_MAX) {
            QuillError(RIE_LIMIT, RIE_ERROR, "Too many strings in a list (more than %zu)",
                       STRING_LIST_MAX);
            return false;
        }
        out.push_back(text);
    }
    if (code != ']') {
        rib_syntax_error("Missing ']'");
        return false;
    }
    return true;
}

std::vector<RtToken> token_array(const std::vector<std::string>& strings) {
    std::vector<RtToken> tokens;
    for (const std::string& s : strings) tokens.push_back(s.c_str());
    return tokens;
}

void report_bad_counts(const char* keyword) {
    QuillError(RIE_SYNTAX, RIE_ERROR, "Invalid counts in %s", keyword);
}

// Sum of counts that must not be negative; false for a negative one.
bool sum_counts(const NumberList<int>& counts, long long* total) {
    *total = 0;
    for (int i = 0; i < counts.n; i++) {
        if (counts.data[i] < 0) return false;
        *total += counts.data[i];
    }
    return true;
}

int clamp_size(long long size) {
    return int(std::min<long long>(std::max(size, 0LL), INT_MAX));
}

// A primitive's parameter list with the floats read for each pair.
struct PrimitiveList {
    int n = 0;
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int counts[RIB_PARAM_MAX];

    bool read() { return RIBparse_read_primvars(&n, tokens, values, counts) >= 0; }

    // The index of the last pair named name, or -1.
    int find(const char* name) const {
        int found = -1;
        for (int i = 0; i < n; i++) {
            if (std::strcmp(tokens[i], name) == 0) found = i;
        }
        return found;
    }

    bool check(long long nvertex, long long nvarying, long long nuniform) {
        return RIBparse_check_primvars(n, tokens, values, counts, clamp_size(nvertex),
                                       clamp_size(nvarying), clamp_size(nuniform)) == 0;
    }

    // The positions the primitive will read must be there whatever "P" or
    // "Pw" was declared as.
    bool covers(const char* keyword, long long nvertex, bool homogeneous) const {
        const char* names[2] = {"P", "Pw"};
        for (int k = 0; k < (homogeneous ? 2 : 1); k++) {
            const int i = find(names[k]);
            if (i >= 0 && counts[i] < nvertex * (k == 0 ? 3 : 4)) {
                QuillError(RIE_SYNTAX, RIE_ERROR, "Too few values in \"%s\" for %s", names[k],
                           keyword);
                return false;
            }
        }
        return true;
    }
};

RibGeometryCall make_call(const char* keyword, PrimitiveList& list, long long nvertex,
                          long long nvarying, long long nuniform) {
    return rib_lists::make_call(keyword, list.n, list.tokens, list.values, list.counts,
                                {nvertex, nvarying, nuniform});
}

// ---- subdivision meshes ----

// The tag lists of a subdivision mesh.
struct TagLists {
    std::vector<std::string> tags;
    NumberList<int> nargs;
    NumberList<int> intargs;
    NumberList<float> floatargs;
    std::vector<std::string> stringargs;

    // Older exporters leave the tags out altogether: then a parameter name
    // follows the vertex indices instead of a bracket.
    bool read(bool hierarchical) {
        if (!bracket_follows()) return true;
        return read_strings(tags) && read_list(nargs) && read_list(intargs) &&
               read_list(floatargs) && (!hierarchical || read_strings(stringargs));
    }

    // Whether nargs holds the counts of every tag and they add up to the
    // argument lists.
    bool fit(int per_tag) const {
        if (nargs.n != per_tag * (long long)tags.size()) return false;
        long long sums[3] = {0, 0, 0};
        for (int i = 0; i < nargs.n; i++) {
            if (nargs.data[i] < 0) return false;
            sums[i % per_tag] += nargs.data[i];
        }
        return sums[0] == intargs.n && sums[1] == floatargs.n &&
               (per_tag == 2 || sums[2] == (long long)stringargs.size());
    }
};

void read_subdivision_mesh(const char* keyword, bool hierarchical) {
    char scheme[RIB_TOKEN_MAX];
    NumberList<int> nverts, verts;
    TagLists tags;
    if (!read_string(scheme) || !read_list(nverts) || !read_list(verts) ||
        !tags.read(hierarchical)) {
        return;
    }
    PrimitiveList list;
    if (!list.read()) return;
    long long nindices = 0;
    if (!sum_counts(nverts, &nindices) || nindices != verts.n) {
        report_bad_counts(keyword);
        return;
    }
    const int per_tag = hierarchical ? 3 : 2;
    const bool tags_fit = tags.fit(per_tag);
    if (!tags_fit) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR,
                   "%s: the tag arguments do not fit the tags; drawn as its control cage", keyword);
    }
    // The mesh is checked against the points "P" holds, so that an index
    // past them is the mesh's to report (it then draws its cage).
    const int p = list.find("P");
    int highest = -1;
    for (int i = 0; i < verts.n; i++) highest = std::max(highest, verts.data[i]);
    const long long npoints = p >= 0 ? list.counts[p] / 3 : (long long)highest + 1;
    if (!list.check(npoints, npoints, nverts.n)) return;
    std::vector<RtToken> tag_tokens = token_array(tags.tags);
    const SubdivisionInput mesh = {keyword,
                                   scheme,
                                   nverts.n,
                                   nverts.data,
                                   verts.data,
                                   tags_fit ? int(tags.tags.size()) : 0,
                                   tag_tokens.data(),
                                   tags.nargs.data,
                                   per_tag,
                                   tags.intargs.data,
                                   tags.floatargs.data,
                                   p >= 0 ? static_cast<const float*>(list.values[p]) : nullptr,
                                   clamp_size(npoints),
                                   !tags_fit};
    RibGeometryCall call = make_call(keyword, list, npoints, npoints, nverts.n);
    call.type = scheme;
    call.ints[0] = nverts.n;
    call.ints[1] = mesh.ntags;
    emit(call, [&] { subdivision_mesh_request(mesh); });
}

// ---- curves ----

int current_vstep() {
    if (renderer != nullptr && renderer->gstate != nullptr) return renderer->gstate->vstep;
    return RI_BEZIERSTEP;
}

void read_curves(const char* keyword) {
    char type[RIB_TOKEN_MAX];
    char wrap[RIB_TOKEN_MAX];
    NumberList<int> nvertices;
    if (!read_string(type) || !read_list(nvertices) || !read_string(wrap)) {
        return;
    }
    PrimitiveList list;
    if (!list.read()) return;
    const bool cubic = std::strcmp(type, "cubic") == 0;
    const bool periodic = std::strcmp(wrap, "periodic") == 0;
    const bool known = (cubic || std::strcmp(type, "linear") == 0) &&
                       (periodic || std::strcmp(wrap, "nonperiodic") == 0);
    long long nvertex = 0, nvarying = 0;
    bool fits = known;
    for (int i = 0; i < nvertices.n && fits; i++) {
        fits = curve_segments(cubic, periodic, nvertices.data[i], current_vstep()) >= 0;
        nvertex += nvertices.data[i];
        nvarying += curve_varying(cubic, periodic, nvertices.data[i], current_vstep());
    }
    // Curves that do not fit their type, wrap or step are the procedure's to
    // report; their list cannot be sized, so it is not checked.
    if (fits &&
        (!list.check(nvertex, nvarying, nvertices.n) || !list.covers(keyword, nvertex, true))) {
        return;
    }
    RibGeometryCall call = make_call(keyword, list, nvertex, nvarying, nvertices.n);
    call.type = type;
    call.ints[0] = nvertices.n;
    emit(call, [&] {
        RiCurvesV(type, nvertices.n, nvertices.data, wrap, list.n, list.tokens, list.values);
    });
}

void read_nu_curves(const char* keyword) {
    NumberList<int> nvertices, order;
    NumberList<float> knot, min, max;
    if (!read_list(nvertices) || !read_list(order) || !read_list(knot) || !read_list(min) ||
        !read_list(max)) {
        return;
    }
    PrimitiveList list;
    if (!list.read()) return;
    const int ncurves = nvertices.n;
    long long nvertex = 0, nknots = 0, nvarying = 0;
    bool counts_fit = order.n == ncurves && min.n == ncurves && max.n == ncurves &&
                      sum_counts(nvertices, &nvertex) && sum_counts(order, &nknots);
    for (int i = 0; i < ncurves && counts_fit; i++) {
        nvarying += std::max(nvertices.data[i] - order.data[i] + 2, 0);
    }
    if (!counts_fit || nknots + nvertex != knot.n) {
        report_bad_counts(keyword);
        return;
    }
    if (!list.check(nvertex, nvarying, ncurves) || !list.covers(keyword, nvertex, true)) return;
    RibGeometryCall call = make_call(keyword, list, nvertex, nvarying, ncurves);
    call.ints[0] = ncurves;
    emit(call, [&] {
        RiNuCurvesV(ncurves, nvertices.data, order.data, knot.data, min.data, max.data, list.n,
                    list.tokens, list.values);
    });
}

// ---- points and blobbies ----

void read_points(const char* keyword) {
    PrimitiveList list;
    if (!list.read()) return;
    const int p = list.find("P");
    const int npoints = p >= 0 ? list.counts[p] / 3 : 0;
    if (!list.check(npoints, npoints, 1)) return;
    RibGeometryCall call = make_call(keyword, list, npoints, npoints, 1);
    call.ints[0] = npoints;
    emit(call, [&] { RiPointsV(npoints, list.n, list.tokens, list.values); });
}

void read_blobby(const char* keyword) {
    int nleaf = 0;
    NumberList<int> code;
    NumberList<float> flt;
    std::vector<std::string> strings;
    if (!read_int(&nleaf) || !read_list(code) || !read_list(flt) || !read_strings(strings)) return;
    PrimitiveList list;
    if (!list.read()) return;
    if (nleaf < 0) {
        report_bad_counts(keyword);
        return;
    }
    if (!list.check(nleaf, nleaf, 1)) return;
    std::vector<RtToken> string_tokens = token_array(strings);
    RibGeometryCall call = make_call(keyword, list, nleaf, nleaf, 1);
    call.ints[0] = nleaf;
    emit(call, [&] {
        RiBlobbyV(nleaf, code.n, code.data, flt.n, flt.data, int(strings.size()),
                  string_tokens.data(), list.n, list.tokens, list.values);
    });
}

}  // namespace

void RIB_parse_modern_geometry(const char* keyword, REACTION*) {
    if (std::strcmp(keyword, "SubdivisionMesh") == 0) {
        read_subdivision_mesh(keyword, false);
    } else if (std::strcmp(keyword, "HierarchicalSubdivisionMesh") == 0) {
        read_subdivision_mesh(keyword, true);
    } else if (std::strcmp(keyword, "Curves") == 0) {
        read_curves(keyword);
    } else if (std::strcmp(keyword, "NuCurves") == 0) {
        read_nu_curves(keyword);
    } else if (std::strcmp(keyword, "Points") == 0) {
        read_points(keyword);
    } else if (std::strcmp(keyword, "Blobby") == 0) {
        read_blobby(keyword);
    }
}

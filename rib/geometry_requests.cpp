// Geometry requests of the RIB reader: one reader per primitive takes its
// positional arguments and its list, has the list checked against the
// primitive's sizes and calls the interface procedure (or the test hook).
#include "rib/parameters.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "ri/attributes.h"
#include "ri/renderer.h"
#include "rib/parameter_lists.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/memory.h"

RibGeometryHook rib_geometry_hook = nullptr;

using rib_lists::accept_list;
using rib_lists::CheckSizes;
using rib_lists::emit;
using rib_lists::PrimitiveList;
using rib_lists::RunBuffer;
using rib_lists::saturating_product;

RibGeometryCall rib_lists::make_call(const char* keyword, int n, RtToken tokens[],
                                     RtPointer values[], int counts[], CheckSizes sizes) {
    RibGeometryCall call{};
    call.keyword = keyword;
    call.nvertex = std::max(sizes.nvertex, 0LL);
    call.nvarying = std::max(sizes.nvarying, 0LL);
    call.nuniform = std::max(sizes.nuniform, 0LL);
    call.n = n;
    call.tokens = tokens;
    call.values = values;
    call.counts = counts;
    return call;
}

namespace {

// Scratch growth asked for ahead of a list from sizes in the file
// (nu * nv * 480 for a patch mesh, 32 * highest index + 32 for indexed
// polygons) is only a hint and is capped; the list itself grows the scratch
// as its values arrive.
constexpr int64_t SCRATCH_HINT_MAX = int64_t(64) << 20;
// Longest vector read for a count taken from the file (vertex indices, loop
// sizes, knots, trim curves): the sized readers allocate for the count before
// any number arrives, so the count itself must be bounded.
constexpr int64_t SIZED_LIST_MAX = int64_t(1) << 24;

// The integer and float lists of the complex primitives.
RunBuffer<int> int_lists[3];
RunBuffer<float> float_lists[6];

RibGeometryCall make_call(const char* keyword, PrimitiveList* list, CheckSizes sizes) {
    if (list == nullptr) return rib_lists::make_call(keyword, 0, nullptr, nullptr, nullptr, sizes);
    return rib_lists::make_call(keyword, list->n, list->tokens, list->values, list->counts, sizes);
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

// Consumes what is left of a rejected request's lists: numbers and
// brackets up to the next request (or anything else, which is left to be
// read), so that they do not come through as stray characters.
void skip_leftover_lists() {
    char token[RIB_TOKEN_MAX];
    for (;;) {
        const int code = read_RIB_token(token);
        if (code == TOKEN_EOF) return;
        if (code != TOKEN_NUMBER && code != '[' && code != ']') {
            RIBparse_return_token(token, code);
            return;
        }
    }
}

// A rejected trim is reported through the error handler, with the file and
// line, rather than printed on standard output as it once was: standard
// output carries the -dumprib and -dumptri dumps, which the message would
// corrupt, and a report that names no file or line tells the user little.
// The lists after the failure are the trim's arguments, not stray tokens.
void invalid_trim() {
    RMError(RIE_CONSISTENCY, RIE_ERROR, "Invalid trim");
    skip_leftover_lists();
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
    if (!read_unsized_ints(&nloops, ncurves)) {
        skip_leftover_lists();
        return;
    }
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

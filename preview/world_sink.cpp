// The keep functions of the world seam: object-space points carried to world
// space by the current transformation and kept with their drawing colour,
// and the world block's camera and screen mapping kept at its begin.
#include "preview/world_sink.h"

#include <cstdio>
#include <new>

#include "driver/globals.h"
#include "math/transform.h"
#include "preview/frame_store.h"
#include "preview/grid.h"
#include "preview/x11_previewer.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "rib/request_place.h"
#include "support/error.h"

namespace {

// Points to world space with the matrix the projection picks.
class ToWorld {
  public:
    ToWorld() : matrix_(point_matrix_at(curxform, sample_time, scratch_)) {}
    void carry(const float* in, float* out) const { transform_point_by(matrix_, in, out); }

  private:
    float scratch_[4][4];
    const float (*matrix_)[4];
};

const float* drawing_colour() {
    X11VectorPreviewer* p = previewer();
    return p != nullptr ? p->drawing_color() : fg_color;
}

// A frame that cannot be kept whole is drawn all the same; it is reported
// once and the rest of it is not kept.
void out_of_memory() {
    kept_frames->abandon_frame();
    QuillError(RIE_NOMEM, RIE_WARNING, "Out of memory keeping the frame for the window");
}

// Runs keep(store) on an open primitive of the kind, unless memory runs out.
template <typename Keep>
void keep_primitive(KeptKind kind, Keep keep) {
    if (!keeping_geometry()) return;
    try {
        kept_frames->begin_primitive(kind, drawing_colour());
        keep(*kept_frames);
        kept_frames->end_primitive();
    } catch (const std::bad_alloc&) {
        out_of_memory();
    }
}

void add_points(FrameStore& store, const float* P, size_t count) {
    const ToWorld to_world;
    float* out = store.add_points(count);
    for (size_t k = 0; k < count; ++k) to_world.carry(P + 3 * k, out + 3 * k);
}

void add_chain_head(FrameStore& store, size_t n, bool closed) {
    *store.add_indices(1) = uint32_t(n) | (closed ? CHAIN_CLOSED : 0u);
}

}  // namespace

bool keeping_geometry() {
    return kept_frames != nullptr && kept_frames->recording() && dump_diced_rib == 0;
}

// A world block of the start-up file, read while the outputs are deferred,
// draws nothing and is not kept either.
void keep_world_begin() {
    if (kept_frames == nullptr || renderer == nullptr) return;
    if (const X11VectorPreviewer* p = previewer(); p != nullptr && p->outputs_deferred()) return;
    const GOptions& o = *renderer;
    KeptView view{};
    float scratch[4][4];
    const float(*camera)[4] = point_matrix_at(o.camera, sample_time, scratch);
    view.camera_identity = camera == nullptr;
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) view.camera[i][j] = camera ? camera[i][j] : float(i == j);
    }
    view.mapping = current_screen_mapping();
    view.xres = o.xres;
    view.yres = o.yres;
    view.fov = o.fov;
    view.screen[0] = o.screen_left;
    view.screen[1] = o.screen_right;
    view.screen[2] = o.screen_bottom;
    view.screen[3] = o.screen_top;
    // The title names the file the user named, not an archive.
    const auto& places = requests_under_way();
    const char* file = places.empty() ? current_source_file() : places.front().file;
    try {
        kept_frames->world_begin(view, file);
    } catch (const std::bad_alloc&) {
        out_of_memory();
    }
}

void keep_world_end() {
    if (kept_frames != nullptr) kept_frames->world_end();
}

void keep_lattice(int nu, int nv) {
    keep_primitive(KeptKind::LATTICE, [nu, nv](FrameStore& store) {
        for (int j = 0; j <= nv; ++j) add_points(store, grid[j][0], size_t(nu) + 1);
        store.set_lattice(nu, nv);
    });
}

void keep_outline(const float* P, int n) {
    if (n < 1) return;
    keep_primitive(KeptKind::CHAINS, [P, n](FrameStore& store) {
        add_points(store, P, size_t(n));
        add_chain_head(store, size_t(n), true);
        uint32_t* index = store.add_indices(size_t(n));
        for (int k = 0; k < n; ++k) index[k] = uint32_t(k);
    });
}

void keep_edges(const float* P, size_t count, const uint32_t* pairs, size_t npairs) {
    keep_primitive(KeptKind::EDGES, [=](FrameStore& store) {
        add_points(store, P, count);
        uint32_t* index = store.add_indices(2 * npairs);
        for (size_t k = 0; k < 2 * npairs; ++k) index[k] = pairs[k];
    });
}

void keep_markers(const float* P, size_t count) {
    keep_primitive(KeptKind::MARKERS, [=](FrameStore& store) { add_points(store, P, count); });
}

KeptLoops::KeptLoops(const float* P, size_t shared) : P_(P), shared_(shared > 0), on_(false) {
    if (!keeping_geometry()) return;
    try {
        kept_frames->begin_primitive(KeptKind::CHAINS, drawing_colour());
        on_ = true;
        add_points(*kept_frames, P, shared);
    } catch (const std::bad_alloc&) {
        on_ = false;
        out_of_memory();
    }
}

KeptLoops::~KeptLoops() {
    if (on_) kept_frames->end_primitive();
}

void KeptLoops::loop(const int* verts, int n) {
    if (!on_ || n < 1) return;
    FrameStore& store = *kept_frames;
    try {
        add_chain_head(store, size_t(n), true);
        uint32_t* index = store.add_indices(size_t(n));
        if (shared_) {
            for (int k = 0; k < n; ++k) index[k] = uint32_t(verts[k]);
            return;
        }
        const size_t first = store.primitive_points();
        for (int k = 0; k < n; ++k) index[k] = uint32_t(first + size_t(k));
        const ToWorld to_world;
        float* out = store.add_points(size_t(n));
        for (int k = 0; k < n; ++k) to_world.carry(P_ + 3 * size_t(verts[k]), out + 3 * k);
    } catch (const std::bad_alloc&) {
        on_ = false;
        out_of_memory();
    }
}

KeptPolylines::KeptPolylines() : on_(false) {
    if (!keeping_geometry()) return;
    to_world_ = point_matrix_at(curxform, sample_time, matrix_);
    try {
        kept_frames->begin_primitive(KeptKind::CHAINS, drawing_colour());
        on_ = true;
    } catch (const std::bad_alloc&) {
        out_of_memory();
    }
}

KeptPolylines::~KeptPolylines() {
    if (on_) kept_frames->end_primitive();
}

void KeptPolylines::point(const float p[3]) {
    if (!on_) return;
    try {
        transform_point_by(to_world_, p, kept_frames->add_points(1));
    } catch (const std::bad_alloc&) {
        on_ = false;
        out_of_memory();
    }
}

void KeptPolylines::end(bool closed) {
    if (!on_) return;
    FrameStore& store = *kept_frames;
    try {
        const size_t last = store.primitive_points();
        const size_t n = last - first_;
        add_chain_head(store, n, closed);
        uint32_t* index = store.add_indices(n);
        for (size_t k = 0; k < n; ++k) index[k] = uint32_t(first_ + k);
        first_ = last;
    } catch (const std::bad_alloc&) {
        on_ = false;
        out_of_memory();
    }
}

// The shared point lattice and X11VectorPreviewer::draw_object: a lattice is
// drawn as a wire mesh (rows, then columns, in lattice order) or, under
// -dumprib / -dumptri, printed cell by cell as world-space quadrilaterals or
// triangle pairs.
#include "preview/grid.h"

#include <string>

#include "driver/globals.h"
#include "math/transform.h"
#include "preview/dump.h"
#include "preview/projection.h"
#include "preview/world_sink.h"
#include "preview/x11_previewer.h"
#include "ri/transforms.h"
#include "support/error.h"

float grid[GRID_POINTS][GRID_POINTS][3];

namespace {

enum DumpMode { DUMP_NONE = 0, DUMP_QUADS = 1, DUMP_TRIANGLES = 2 };

// The raster point of each lattice point, in lattice order: made once,
// although most points end four segments.
RasterPoint raster_points[GRID_POINTS * GRID_POINTS];

// Projects the lattice in place, all its points together, and makes its
// raster points.
void project_lattice(int nu, int nv) {
    static float* lattice_points[GRID_POINTS * GRID_POINTS];
    size_t count = 0;
    for (int j = 0; j <= nv; ++j) {
        for (int i = 0; i <= nu; ++i) lattice_points[count++] = grid[j][i];
    }
    ScreenProjection().project_each(lattice_points, count, raster_points);
}

// The text of every lattice point, made once per lattice: under -dumptri an
// inner point is printed in six triangles, and formatting numbers is most of
// the cost of a dump.
struct PointText {
    char text[DUMP_POINT_TEXT_MAX];
    int length;
};
PointText point_texts[GRID_POINTS][GRID_POINTS];

void format_lattice(int nu, int nv) {
    for (int j = 0; j <= nv; ++j) {
        for (int i = 0; i <= nu; ++i) {
            PointText& t = point_texts[j][i];
            t.length = format_dump_point(grid[j][i], t.text);
        }
    }
}

void append_polygon_line(std::string& out, const PointText* const points[], int n) {
    out += "Polygon \"P\" [";
    for (int k = 0; k < n; ++k) {
        if (k > 0) out += ' ';
        out.append(points[k]->text, points[k]->length);
    }
    out += "]\n";
}

void print_cells(int nu, int nv, int mode) {
    format_lattice(nu, nv);
    std::string text;
    for (int j = 0; j < nv; ++j) {
        for (int i = 0; i < nu; ++i) {
            const PointText* a = &point_texts[j][i];
            const PointText* b = &point_texts[j][i + 1];
            const PointText* c = &point_texts[j + 1][i + 1];
            const PointText* d = &point_texts[j + 1][i];
            if (mode == DUMP_QUADS) {
                const PointText* quad[4] = {a, b, c, d};
                append_polygon_line(text, quad, 4);
            } else {
                const PointText* first[3] = {a, b, d};
                const PointText* second[3] = {b, c, d};
                append_polygon_line(text, first, 3);
                append_polygon_line(text, second, 3);
            }
        }
        fwrite(text.data(), 1, text.size(), stdout);
        text.clear();
    }
}

void dump_lattice(int nu, int nv, int mode) {
    for (int j = 0; j <= nv; ++j) {
        for (int i = 0; i <= nu; ++i) transform_p_inplace(grid[j][i], curxform);
    }
    print_cells(nu, nv, mode);
}

}  // namespace

// Whether every sink knows the box of the lattice's drawn points already
// drawn: each of its lines lies in that box, so it can then be sent to none.
// In a dense scene seen from afar (patch meshes of thousands of patches a
// few pixels each) most lattices fall on pixels already drawn in their
// colour, and making, fitting and culling their lines was most of the
// window's time.
bool X11VectorPreviewer::lattice_box_drawn(int nu, int nv) {
    return box_drawn(RasterBox::of(raster_points, (size_t(nu) + 1) * (size_t(nv) + 1)));
}

bool X11VectorPreviewer::lattices_only_drawn() const {
    if (dump_diced_rib != DUMP_NONE || keeping_geometry() || sinks_.empty()) return false;
    for (const auto& sink : sinks_) {
        if (!sink->may_know_drawn()) return false;
    }
    return true;
}

bool X11VectorPreviewer::lattices_known_drawn(const RasterBox& box, size_t count) {
    if (!lattices_only_drawn() || !box_drawn(box)) return false;
    end_objects(count);
    return true;
}

void X11VectorPreviewer::end_objects(size_t count) {
    for (size_t k = 0; k < count; ++k) {
        for (auto& sink : sinks_) sink->object_end();
    }
}

// A lattice larger than the grid cannot have been filled without writing past
// it, so it is refused whole and reported.
void X11VectorPreviewer::draw_object(int nu, int nv) {
    if (nu < 0 || nv < 0 || nu > GRID_CELLS_MAX || nv > GRID_CELLS_MAX) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Lattice of %d by %d cells refused: at most %d by %d", nu,
                   nv, GRID_CELLS_MAX, GRID_CELLS_MAX);
        return;
    }
    if (dump_diced_rib == DUMP_QUADS || dump_diced_rib == DUMP_TRIANGLES) {
        dump_lattice(nu, nv, dump_diced_rib);
        return;
    }
    keep_lattice(nu, nv);
    if (sinks_.empty()) return;
    project_lattice(nu, nv);
    if (lattice_box_drawn(nu, nv)) {
        end_objects(1);
        return;
    }
    // Rows, then columns, cell by cell in lattice order.
    static RasterSegment lattice_segments[2 * GRID_CELLS_MAX * GRID_POINTS];
    RasterSegment* out = lattice_segments;
    auto segment = [&out](const RasterPoint& a, const RasterPoint& b) {
        if (a.drawn && b.drawn) *out++ = {a.x, a.y, b.x, b.y};
    };
    const size_t row = size_t(nu) + 1;
    for (int j = 0; j < nv; ++j) {
        const RasterPoint* here = raster_points + j * row;
        const RasterPoint* below = here + row;
        for (int i = 0; i < nu; ++i) {
            segment(here[i], here[i + 1]);
            segment(here[i], below[i]);
        }
        segment(here[nu], below[nu]);
    }
    const RasterPoint* last = raster_points + nv * row;
    for (int i = 0; i < nu; ++i) segment(last[i], last[i + 1]);
    send_segments(lattice_segments, size_t(out - lattice_segments));
    end_objects(1);
}

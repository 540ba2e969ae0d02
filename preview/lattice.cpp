// The lattice helpers shared by the tessellators: relative-detail density
// and the hand-over of the grid to the renderer.
#include "preview/lattice.h"

#include "driver/globals.h"
#include "preview/x11_previewer.h"
#include "ri/renderer.h"

int cells_for_relative_detail(float per_unit) {
    const float detail = renderer != nullptr ? renderer->relative_detail : 1.0f;
    const double cells = static_cast<double>(per_unit) * static_cast<double>(detail);
    if (!(cells >= 1.0)) return 1;
    if (cells >= GRID_CELLS_MAX) return GRID_CELLS_MAX;
    return static_cast<int>(cells);
}

bool lattice_wanted() {
    const X11VectorPreviewer* p = previewer();
    return p != nullptr && (p->has_outputs() || dump_diced_rib != 0);
}

void draw_grid(int nu, int nv) {
    X11VectorPreviewer* p = previewer();
    if (p != nullptr) p->draw_object(nu, nv);
}

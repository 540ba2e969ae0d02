// What the tessellators of quadrics, patches, NURBS and trim loops share
// beyond the grid itself: the cap on lattice sizes and the hand-over of a
// filled grid to the renderer.
#ifndef TRACERY_PREVIEW_LATTICE_H
#define TRACERY_PREVIEW_LATTICE_H

#include "preview/grid.h"

// Every lattice is held to GRID_CELLS_MAX cells in each direction before the
// grid is filled, so that no request, however fine the detail it asks for,
// writes past the grid. Fewer than one cell becomes one.
inline int capped_cells(long long cells) {
    if (cells < 1) return 1;
    if (cells > GRID_CELLS_MAX) return GRID_CELLS_MAX;
    return static_cast<int>(cells);
}

// Cells of a lattice whose density follows the relative detail option:
// trunc(per_unit x relative detail), capped as above. NaN and negative
// detail give one cell.
int cells_for_relative_detail(float per_unit);

// Hands grid rows 0..nv, columns 0..nu to the renderer's draw_object; does
// nothing while there is no previewer (before RiBegin).
void draw_grid(int nu, int nv);

// Whether a filled lattice would go anywhere: a previewer with an output (the
// window, a picture, the PostScript page) or a dump. When none would (a
// check, or before the first world opens the window), a tessellator may
// leave the grid unfilled once its request has been checked.
bool lattice_wanted();

#endif  // TRACERY_PREVIEW_LATTICE_H

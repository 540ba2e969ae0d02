// The shared point lattice: tessellators fill rows 0..nv and columns 0..nu
// with object-space points and hand it to X11VectorPreviewer::draw_object,
// which draws it as a wire mesh or prints it as diced RIB.
#ifndef TRACERY_PREVIEW_GRID_H
#define TRACERY_PREVIEW_GRID_H

// Points per grid row and per grid column. 129 holds the largest lattice the
// quadrics ask for (a torus at detail 32 has 4 x 32 + 1 columns).
constexpr int GRID_POINTS = 129;
// The largest nu or nv that draw_object accepts.
constexpr int GRID_CELLS_MAX = GRID_POINTS - 1;

// grid[j][i] is the point of row j (one v value) and column i (one u value):
// x, y, z in object space before drawing; draw_object overwrites them.
extern float grid[GRID_POINTS][GRID_POINTS][3];

#endif  // TRACERY_PREVIEW_GRID_H

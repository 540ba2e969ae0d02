// Stand-ins for the drawing core while it is built elsewhere: weak
// definitions of the grid, the previewer accessor and draw_object, which
// the real definitions replace as soon as they are linked in. draw_object
// here draws nothing, so the tessellators can be built and their lattices
// tested on their own.
#include "preview/grid.h"
#include "preview/x11_previewer.h"

__attribute__((weak)) float grid[GRID_POINTS][GRID_POINTS][3];

__attribute__((weak)) X11VectorPreviewer* previewer() {
    return dynamic_cast<X11VectorPreviewer*>(renderer);
}

__attribute__((weak)) void X11VectorPreviewer::draw_object(int, int) {}

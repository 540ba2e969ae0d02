// The wireframe renderer: the one concrete renderer class of the program.
#ifndef TRACERY_PREVIEW_X11_PREVIEWER_H
#define TRACERY_PREVIEW_X11_PREVIEWER_H

#include "ri/renderer.h"

class X11VectorPreviewer : public PreviewRenderer {
  public:
    X11VectorPreviewer();
    ~X11VectorPreviewer() override;
    void worldbegin() override;
    void worldend() override;
    void framebegin(long frame) override;
    void frameend() override;
    void set_color(const float rgb[3]) override;

    // Draws the segment between two projected points (nothing unless both
    // are visible).
    void X11_draw_segment(float* a, float* b);
    // Draws (or, under -dumprib / -dumptri, prints) the lattice of grid rows
    // 0..nv and columns 0..nu; refuses nu or nv outside 0..GRID_CELLS_MAX.
    void draw_object(int nu, int nv);

    void* display;  // the X11 Display*, null until a window is opened
    // The X display to open (null: the DISPLAY environment variable). Named
    // apart from the option record's display_name, the output file name.
    const char* x_display_name;
};

// The renderer made by RiBegin as the previewer it is; null when there is none.
X11VectorPreviewer* previewer();

// Lattice density of the tessellators: trunc(4 * relative detail) in 1..32.
extern int detail_level;

#endif  // TRACERY_PREVIEW_X11_PREVIEWER_H

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

    void* display;  // the X11 Display*, null until a window is opened
    // The X display to open (null: the DISPLAY environment variable). Named
    // apart from the option record's display_name, the output file name.
    const char* x_display_name;
};

// Lattice density of the tessellators: trunc(4 * relative detail) in 1..32.
extern int detail_level;

#endif  // TRACERY_PREVIEW_X11_PREVIEWER_H

// The interactive window (-i): once the last frame is drawn, the window takes
// the mouse and keys. Left drag orbits about the pivot (the centre of the
// frame's bound), middle drag pans, the wheel moves the eye toward the pivot
// or back; f frames everything, c goes back to the scene's own camera; Left,
// Right, Home and End step through the frames; a left click on a line prints
// the request that drew it and highlights it; i prints the view as RIB; r
// reads everything again, as does an edit of a file read; q or Escape ends.
#ifndef TRACERY_PREVIEW_INTERACTIVE_VIEW_H
#define TRACERY_PREVIEW_INTERACTIVE_VIEW_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "preview/frame_store.h"
#include "preview/kept_drawing.h"
#include "preview/view_camera.h"

class X11Window;
class FileWatch;

// Why the view stopped taking input.
enum class ViewEnd {
    QUIT,    // q, Escape, the window closed or the display lost
    RELOAD,  // r, or a watched file changed: read everything again
    REFILL,  // the frame to show gave its geometry up: read it again
};

class InteractiveView {
  public:
    // watch may be null (nothing to watch: standard input was read).
    InteractiveView(X11Window& window, FrameStore& store, ViewCamera& camera, FileWatch* watch);

    // Shows frame *frame (the last when past the end) and takes input until
    // one of the ends above; *frame is then the frame to show next.
    ViewEnd run(size_t* frame);

    // Draws the frame shown through the camera into the window, the
    // highlighted request on top, and waits for the server to have drawn it.
    void redraw();

  private:
    enum class Step { GO_ON, END };
    Step handle_event(ViewEnd* end);
    Step handle_key(unsigned long keysym, ViewEnd* end);
    void handle_press(int button, int x, int y);
    void handle_motion(int x, int y);
    void handle_release(int button, int x, int y);
    bool show_frame(size_t k);
    void pick(int x, int y);
    void set_title() const;
    WorldPoint pivot() const;
    const KeptFrame& shown() const { return store_.frame(frame_); }

    X11Window& window_;
    FrameStore& store_;
    ViewCamera& camera_;
    FileWatch* watch_;
    size_t frame_ = 0;
    uint32_t highlight_ = NO_ORIGIN;
    int button_ = 0;  // the button held, 0 when none
    int press_x_ = 0, press_y_ = 0, last_x_ = 0, last_y_ = 0;
    bool moved_ = false;
    ViewCamera start_;
    double first_change_ = -1.0, last_change_ = -1.0;  // of watched files
    unsigned long delete_atom_ = 0, protocols_atom_ = 0;
};

#endif  // TRACERY_PREVIEW_INTERACTIVE_VIEW_H

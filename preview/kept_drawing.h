// Drawing kept frames again: the world-space points of a FrameStore frame
// projected through a camera into raster segments, handed to a line sink in
// their colours, and the primitive nearest a pixel found among them.
#ifndef TRACERY_PREVIEW_KEPT_DRAWING_H
#define TRACERY_PREVIEW_KEPT_DRAWING_H

#include <cstdint>
#include <vector>

#include "preview/frame_store.h"
#include "preview/line_sink.h"
#include "preview/projection.h"

// How a kept frame is projected: world to camera (camera_identity: the
// identity), the screen mapping, and what becomes of a segment one end of
// which may not be drawn. On the scene's own camera (clip false) it is left
// out whole, as the drawing left it out, so that the frame gives back the
// drawing's segments exactly. Through the free camera (clip true) it is cut
// to the part in front of the eye plane (at the near clipping distance, and
// at least 0.1) and before the far one, and lines reaching beyond the screen
// bound are drawn to it, so that flying into a scene keeps what lies in front.
struct KeptProjection {
    float camera[4][4];
    bool camera_identity;
    ScreenMapping mapping;
    bool clip;
};

// Leaves out of a redraw in thin lines the segments that cannot change a
// pixel, exactly, on any X server: a segment whose ends are the same pixel
// or neighbouring pixels draws no pixel but its ends (a thin line's end is
// drawn unless the cap style is CapNotLast; a line of no length draws at most
// its one pixel). So within one run of one colour such a segment is left out
// when each of its ends has been drawn by a neighbour segment of the run,
// and a segment of no length also when it repeats one already sent. A
// drawing of a dense frame is mostly such segments. Longer lines are all
// sent: which pixels they cover is the server's business.
// Looking a segment up costs a good part of what the server spends drawing
// it, so only long runs are culled (a scene that changes colour at every
// small primitive gains nothing), and a picture in which the cull leaves out
// less than a fifth is followed by a few without it before it is tried again.
class ThinLineCull {
  public:
    ThinLineCull(int width, int height);
    // A new picture begins (a new run).
    void new_picture();
    // The colour changes: a new run.
    void new_run();
    // Removes the segments that cannot change a pixel from s (in place,
    // keeping the order); returns how many remain.
    size_t cull(RasterSegment* s, size_t count);

  private:
    int width_, height_;
    size_t run_length_ = 0;   // segments of the run so far
    unsigned stamp_run_ = 0;  // the stamps' number of the run (0: none yet)
    unsigned last_stamp_run_ = 0;
    bool worthwhile_ = true;
    int pictures_without_ = 0;
    size_t tried_ = 0, left_out_ = 0;  // segments of the picture
    // Per pixel: 2 r + 1 when a neighbour segment of stamped run r drew it,
    // 2 r when only a segment of no length was sent there in run r.
    std::vector<uint8_t> stamp_;
};

// The projection of the frame through its own camera.
KeptProjection scene_projection(const KeptView& view);

// Hands the frame's segments to sink, each primitive's in its colour (the
// caller begins and ends the sink's world), through cull when given (the
// sink then draws thin lines into a picture of the cull's size). With only
// given, only the primitives of that origin are drawn, all in the colour
// only_rgb.
void draw_kept_frame(const KeptFrame& frame, const KeptProjection& projection, LineSink& sink,
                     ThinLineCull* cull = nullptr, uint32_t only = NO_ORIGIN,
                     const float* only_rgb = nullptr);

// The origin of the primitive that draws the segment nearest the pixel (x,
// y), if it passes within radius pixels of it; NO_ORIGIN otherwise.
uint32_t pick_kept_origin(const KeptFrame& frame, const KeptProjection& projection, int x, int y,
                          double radius);

// Cuts the segment between two world-space points to what the free camera
// draws (see KeptProjection), in raster pixels; false when nothing is left.
bool clip_kept_segment(const float* a, const float* b, const KeptProjection& projection,
                       RasterSegment* out);

#endif  // TRACERY_PREVIEW_KEPT_DRAWING_H

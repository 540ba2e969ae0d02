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

// The projection of the frame through its own camera.
KeptProjection scene_projection(const KeptView& view);

// Hands the frame's segments to sink, each primitive's in its colour (the
// caller begins and ends the sink's world). What cannot change a pixel is
// the sink's business: the window's sink leaves it out as it does for the
// drawing. With only given, only the primitives of that origin are drawn,
// all in the colour only_rgb.
void draw_kept_frame(const KeptFrame& frame, const KeptProjection& projection, LineSink& sink,
                     uint32_t only = NO_ORIGIN, const float* only_rgb = nullptr);

// The origin of the primitive that draws the segment nearest the pixel (x,
// y), if it passes within radius pixels of it; NO_ORIGIN otherwise.
uint32_t pick_kept_origin(const KeptFrame& frame, const KeptProjection& projection, int x, int y,
                          double radius);

// Cuts the segment between two world-space points to what the free camera
// draws (see KeptProjection), in raster pixels; false when nothing is left.
bool clip_kept_segment(const float* a, const float* b, const KeptProjection& projection,
                       RasterSegment* out);

#endif  // TRACERY_PREVIEW_KEPT_DRAWING_H

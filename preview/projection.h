// Projection of object-space points to raster coordinates through the
// current transformation and the camera of the option record.
#ifndef TRACERY_PREVIEW_PROJECTION_H
#define TRACERY_PREVIEW_PROJECTION_H

#include <cstddef>

class GOptions;

// Overwrites p (x, y, z in object space) with (raster x, raster y, visible),
// visible being exactly 1.0 when the point may be drawn and 0.0 when not.
void toscreen(float* p);

// The projection in force when it is made: the matrices of the current
// transformation and of the camera at the sample time, and the screen
// mapping of the option record. A drawer that projects many points under
// one transformation makes one and projects each point through it, without
// picking the matrices again for every point; the points come out exactly as
// toscreen makes them (toscreen is one of these used once).
class ScreenProjection {
  public:
    ScreenProjection();
    // As toscreen.
    void project(float* p) const;
    // Projects count points stored one after another (x, y, z each), each
    // exactly as project does; four at a time where the processor allows.
    void project_points(float* points, size_t count) const;
    // The same for count points found through pointers.
    void project_each(float* const* points, size_t count) const;

  private:
    // Four points at once (SSE2 only).
    void project_four(float* const p[4]) const;

    const GOptions* options_;
    const float (*object_)[4];
    const float (*camera_)[4];
    float object_blend_[4][4];
    float camera_blend_[4][4];
    float half_x_, half_y_;
    float xstep_, ystep_;
};

#endif  // TRACERY_PREVIEW_PROJECTION_H

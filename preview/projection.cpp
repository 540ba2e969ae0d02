// toscreen: one object-space point carried to raster coordinates through the
// current transformation, the camera and the screen mapping of the option
// record, with its visibility decided on the way.
#include "preview/projection.h"

#include <cmath>

#include "math/transform.h"
#include "ri/options.h"
#include "ri/renderer.h"
#include "ri/transforms.h"

namespace {

// Nothing nearer to the eye than this is drawn, whatever the clipping
// distances say and under either projection.
constexpr double DEPTH_FLOOR = 0.1;
// Screen-plane coordinates beyond this are not drawn; it keeps raster
// coordinates far from integer overflow.
constexpr float SCREEN_BOUND = 10.0f;

bool depth_rejected(float z, const GOptions& o) {
    return z < o.near_clip || z > o.far_clip || static_cast<double>(z) < DEPTH_FLOOR;
}

bool outside_screen_bound(float x, float y) {
    return x > SCREEN_BOUND || x < -SCREEN_BOUND || y > SCREEN_BOUND || y < -SCREEN_BOUND;
}

}  // namespace

ScreenProjection::ScreenProjection()
    : options_(renderer),
      object_(nullptr),
      camera_(nullptr),
      half_x_(0),
      half_y_(0),
      xstep_(xstep),
      ystep_(ystep) {
    if (options_ == nullptr) return;
    object_ = point_matrix_at(curxform, sample_time, object_blend_);
    camera_ = point_matrix_at(options_->camera, sample_time, camera_blend_);
    // The screen-plane origin always lands on the raster centre, taken from
    // the raw resolution halved in integers: the screen window's offset and
    // the frame aspect ratio's reduction of the resolution do not move it.
    half_x_ = static_cast<float>(options_->xres / 2);
    half_y_ = static_cast<float>(options_->yres / 2);
}

void ScreenProjection::project(float* p) const {
    if (options_ == nullptr) {
        p[2] = 0.0f;
        return;
    }
    const GOptions& o = *options_;
    float world[3], c[3];
    transform_point_by(object_, p, world);
    transform_point_by(camera_, world, c);
    float x = c[0], y = c[1], z = c[2];
    if (depth_rejected(z, o)) {
        p[2] = 0.0f;
        return;
    }
    if (o.projection == 0) {
        x /= z;
        y /= z;
    }
    if (outside_screen_bound(x, y)) {
        p[2] = 0.0f;
        return;
    }
    p[0] = ceilf(x / xstep_) + half_x_;
    p[1] = half_y_ - ceilf(y / ystep_);
    p[2] = (std::isnan(p[0]) || std::isnan(p[1])) ? 0.0f : 1.0f;
}

void toscreen(float* p) {
    ScreenProjection().project(p);
}

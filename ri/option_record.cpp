// The option record GOptions: its defaults, the frame save stack, and the
// camera and raster mapping derived from it at world begin.
#include "ri/options.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>

#include "math/transform.h"
#include "ri/option_conversions.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "support/memory.h"

float xstep = 0.0f;
float ystep = 0.0f;
GOptions* goption_stack = nullptr;

namespace option_conversions {

// Float to int without undefined behaviour: NaN gives 0, values beyond the
// int range give its ends.
int to_int(double v) {
    if (std::isnan(v)) return 0;
    if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
    if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
    return static_cast<int>(v);
}

}  // namespace option_conversions

using option_conversions::to_int;

namespace {

int saturating_add(int a, int b) {
    long long sum = static_cast<long long>(a) + b;
    return static_cast<int>(std::clamp<long long>(sum, INT_MIN, INT_MAX));
}

// ceil(v), at most 0 becomes 0, at least limit becomes limit.
int clamped_crop(float v, int limit) {
    float c = std::ceil(v);
    if (!(c > 0.0f)) return 0;
    if (c >= static_cast<float>(limit)) return limit;
    return to_int(c);
}

// ---- GOptions::worldbegin steps ----

void default_screen_window(GOptions* o) {
    float f = o->frame_aspect;
    if (f >= 1.0f) {
        o->screen_left = -f;
        o->screen_right = f;
        o->screen_bottom = -1.0f;
        o->screen_top = 1.0f;
    } else {
        o->screen_left = -1.0f;
        o->screen_right = 1.0f;
        o->screen_bottom = -1.0f / f;
        o->screen_top = 1.0f / f;
    }
}

void unit_or_as_is(float* v) {
    float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (length >= 1e-12f) {
        for (int i = 0; i < 3; ++i) v[i] /= length;
    }
}

// The camera frame in world space, through the inverse of the camera
// transformation (none: the camera is at the world origin looking down +z).
void camera_frame(GOptions* o) {
    const float origin[3] = {0, 0, 0};
    const float z_axis[3] = {0, 0, 1};
    const float x_axis[3] = {1, 0, 0};
    const float y_axis[3] = {0, 1, 0};
    if (o->camera != nullptr && o->camera->matrix0 != nullptr) {
        inverse_transform_p(origin, o->camera, o->eye);
        inverse_transform_v(z_axis, o->camera, o->view_dir);
        inverse_transform_v(x_axis, o->camera, o->view_right);
        inverse_transform_v(y_axis, o->camera, o->view_up);
    } else {
        std::memcpy(o->eye, origin, sizeof o->eye);
        std::memcpy(o->view_dir, z_axis, sizeof o->view_dir);
        std::memcpy(o->view_right, x_axis, sizeof o->view_right);
        std::memcpy(o->view_up, y_axis, sizeof o->view_up);
    }
    unit_or_as_is(o->view_dir);
    unit_or_as_is(o->view_right);
    unit_or_as_is(o->view_up);
}

}  // namespace

// ---- GOptions ----

void GOptions::default_values() {
    GOptions* link = next;
    *this = GOptions{};
    next = link;
    xres = 640;
    yres = 480;
    pixel_aspect = 1.0f;
    frame_aspect = -1.0f;
    crop_xmax = crop_ymax = 1.0f;
    screen_left = -100000.0f;
    projection = 1;
    fov = 90.0f;
    near_clip = RI_EPSILON;
    far_clip = RI_INFINITY;
    fstop = RI_INFINITY;
    xsamples = ysamples = 2;
    filter = RiGaussianFilter;
    filter_xwidth = filter_ywidth = 2.0f;
    gain = gamma = 1.0f;
    color_one = 255.0f;
    color_max = 255.0f;
    color_dither = 0.5f;
    std::strcpy(display_name, "ri.tif");
    display_type = DISPLAY_FILE;
    display_mode = 3;
    hider = HIDER_HIDDEN;
    reserved_byte = 3;
    relative_detail = 1.0f;
    look_behind = 1;
    use_hierarchy = 2;
    goldsal = 1;
    specular_model = 1;
    verbosity = 1;
    minsamples = 4;
    maxsamples = 64;
    branch_ratio = 2.0f;
    max_branch_ratio = 4.0f;
    max_raylevel = 4;
    minpatchsamples = 1;
    patchsize = 4.0f;
    elemsize = 2.0f;
    minsize = 1.0f;
    shadow_bias0 = 0.01f;
    shadow_bias1 = 0.2f;
    bucket_xsize = bucket_ysize = 64;
    texture_memory = 10485760;
    geom_memory = 41943040;
    reserved_77 = 1;
    frame_number = -1;
}

// Always called on a live record (the renderer), so the null case of the
// record never arises here.
void GOptions::push(GOptions** stack) {
    void* memory = myalloc(sizeof(GOptions));
    if (memory == nullptr) return;
    auto* copy = new (memory) GOptions(*this);
    copy->next = *stack;
    *stack = copy;
}

void GOptions::pop(GOptions** stack) {
    GOptions* top = *stack;
    if (top == nullptr) return;
    *this = *top;
    *stack = top->next;
    myfree(top);
}

void GOptions::worldbegin() {
    out_xres = xres;
    out_yres = yres;
    camera = curxform;

    float a = pixel_aspect * xres / yres;
    if (frame_aspect < 0.0f) {
        frame_aspect = a;
    } else if (a < frame_aspect) {
        out_yres = to_int(std::floor(pixel_aspect * xres / frame_aspect + 0.5f));
    } else {
        out_xres = to_int(std::floor(frame_aspect * yres / pixel_aspect + 0.5f));
    }
    // A degenerate aspect could give an empty output; keep at least a pixel
    // so that the steps below stay finite.
    out_xres = std::max(out_xres, 1);
    out_yres = std::max(out_yres, 1);

    if (screen_left < -90000.0f) default_screen_window(this);
    xstep = (screen_right - screen_left) / out_xres;
    ystep = (screen_top - screen_bottom) / out_yres;

    if (projection == 0) {
        auto t = static_cast<float>(std::tan(fov * 0.017453292519943295 / 2));
        xstep *= t;
        ystep *= t;
        persp_scale = t;
        screen_left *= t;
        screen_right *= t;
        screen_bottom *= t;
        screen_top *= t;
    } else {
        persp_scale = 1.0f;
    }

    int r = to_int(std::ceil(0.5 * std::max(filter_xwidth, filter_ywidth)));

    crop_x0 = clamped_crop(xres * crop_xmin, out_xres - 1);
    crop_x1 = clamped_crop(xres * crop_xmax - 1, out_xres - 1);
    crop_y0 = clamped_crop(yres * crop_ymin, out_yres - 1);
    crop_y1 = clamped_crop(yres * crop_ymax - 1, out_yres - 1);
    crop_width = crop_x1 - crop_x0 + 1;
    crop_height = crop_y1 - crop_y0 + 1;
    // Only the height is cut, and the record keeps the lowered value for the
    // later world blocks of the frame.
    if (crop_y1 < yres - 1) yres = crop_y1 + 1;

    if (pixel_variance == 0.0f) {
        pad_x0 = saturating_add(crop_x0, -r);
        pad_x1 = saturating_add(crop_x1, r);
        pad_y0 = saturating_add(crop_y0, -r);
        pad_y1 = saturating_add(crop_y1, r);
    } else {
        pad_x0 = crop_x0;
        pad_x1 = crop_x1;
        pad_y0 = crop_y0;
        pad_y1 = crop_y1;
    }

    inv_xsamples = 1.0f / xsamples;
    inv_ysamples = 1.0f / ysamples;
    sample_time = shutter_open;
    motion_blur = shutter_close != shutter_open;
    camera_frame(this);
}

void clear_option_stack() {
    while (goption_stack != nullptr) {
        GOptions* top = goption_stack;
        goption_stack = top->next;
        myfree(top);
    }
}

// The option record GOptions: camera, image and sampling description, the
// implementation options, and the values derived from them at world begin.
#ifndef TRACERY_RI_OPTIONS_H
#define TRACERY_RI_OPTIONS_H

#include <cstdint>

#include "ri/ri.h"

struct Transformation;

constexpr int DISPLAY_NAME_MAX = 256;
constexpr int SEARCH_PATH_MAX = 10000;

// Display type codes (display_type).
enum DisplayType {
    DISPLAY_FILE = 2,
    DISPLAY_FRAMEBUFFER = 4,
    DISPLAY_ZFILE = 8,
    DISPLAY_FLOATDUMP = 32,
    DISPLAY_ASCII = 64
};

// Hider codes (hider).
enum HiderType { HIDER_NULL = 0, HIDER_HIDDEN = 1, HIDER_PAINT = 2 };

class GOptions {
  public:
    void default_values();
    // Pushes a copy of this record (or the defaults when this is null) on *stack.
    void push(GOptions** stack);
    // Copies the top of *stack over this record and frees the top.
    void pop(GOptions** stack);
    // Freezes the camera and derives the raster mapping at RiWorldBegin.
    void worldbegin();

    GOptions* next;
    int xres, yres;
    int origin_x, origin_y;
    float pixel_aspect;
    float frame_aspect;
    float crop_xmin, crop_xmax, crop_ymin, crop_ymax;
    float screen_left, screen_right, screen_bottom, screen_top;
    int projection;  // 0 perspective, 1 orthographic
    float fov;
    Transformation* camera;
    float near_clip, far_clip;
    float fstop, focal_length, focal_distance;
    float shutter_open, shutter_close;
    float pixel_variance;
    int xsamples, ysamples;
    RtFilterFunc filter;
    float filter_xwidth, filter_ywidth;
    float gain, gamma;
    int reserved_34, reserved_35;
    float color_one, color_min, color_max, color_dither;
    float depth_one, depth_min, depth_max, depth_dither;
    char display_name[DISPLAY_NAME_MAX];
    unsigned char display_type;
    unsigned char display_mode;  // bits: 1 r(gb), 2 a, 4 z
    unsigned char hider;
    unsigned char reserved_byte;
    int reserved_49, reserved_50;
    float relative_detail;
    int look_behind;
    int use_hierarchy;
    int goldsal;
    int hierarchy_3;
    int specular_model;
    unsigned char verbosity;
    int minsamples, maxsamples;
    float branch_ratio, max_branch_ratio;
    int max_raylevel;
    int16_t minpatchsamples, radiosity_steps;
    float patchsize, elemsize, minsize;
    float shadow_bias0, shadow_bias1;
    RtToken include_path, texture_path, shader_path;
    int bucket_xsize, bucket_ysize;
    int texture_memory, geom_memory;
    int reserved_77;
    int depth_of_field;
    int exposure_on;
    int motion_blur;
    // Derived at world begin.
    int out_xres, out_yres;
    float persp_scale;
    float inv_xsamples, inv_ysamples;
    float eye[3];
    float view_dir[3];
    float view_up[3];
    float view_right[3];
    float lens_radius, lens_diameter;
    int crop_x0, crop_x1, crop_y0, crop_y1;
    int crop_width, crop_height;
    int pad_x0, pad_x1, pad_y0, pad_y1;
    long frame_number;
};

// Screen-space size of one output pixel, set at world begin.
extern float xstep, ystep;
extern int safetyfile;
// Saved option records of the open frames.
extern GOptions* goption_stack;

// Frees every saved option record (for resets).
void clear_option_stack();

// Opens name for reading as given or through the ':'-separated path; on
// success writes the full name into result (of result_size bytes) and
// returns 1, else 0.
int find_path(const char* name, const char* path, char* result, int result_size);

#endif  // TRACERY_RI_OPTIONS_H

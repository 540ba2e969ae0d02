// Every option procedure of the interface (camera and image, sampling and
// output, the implementation options of RiOptionV with their families), and
// find_path.
#include "ri/options.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include <unistd.h>

#include "driver/globals.h"
#include "ri/option_conversions.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "support/declarations.h"
#include "ri/user_values.h"
#include "support/error.h"
#include "support/inline_declarations.h"

int safetyfile = 0;

using option_conversions::to_int;

namespace {

bool same(const char* a, const char* b) {
    return a != nullptr && std::strcmp(a, b) == 0;
}

const char* printable(const char* s) {
    return s ? s : "";
}

// Option procedures refuse to run inside the world: a warning, and the value
// is stored all the same (it takes effect at the next RiWorldBegin).
void check_option_level() {
    if (block_level > 3) RMError(RIE_NOTOPTIONS, RIE_WARNING, nullptr);
}

// The option record to write, or null (after a report) before RiBegin.
GOptions* options() {
    if (renderer == nullptr) RMError(RIE_NOTSTARTED, RIE_ERROR, nullptr);
    return renderer;
}

GOptions* checked_options() {
    check_option_level();
    return options();
}

int int_value(RtPointer value) {
    int v;
    std::memcpy(&v, value, sizeof v);
    return v;
}

float float_value(RtPointer value) {
    float v;
    std::memcpy(&v, value, sizeof v);
    return v;
}

// Strings arrive as an array of char*: the value points at the first pointer.
const char* string_value(RtPointer value) {
    return *static_cast<const char* const*>(value);
}

// A string key's value is read as a pointer, which only a value typed as a
// string holds. The reader types each value by the current declaration of
// its token, so a token redeclared as, say, an integer brings a number that
// must not be followed. Reports such a value; true when it may be read.
bool holds_string(const char* family, const char* key) {
    const Declaration* decl = parameter_declaration(key);
    if (decl != nullptr && decl->type == DECL_STRING) return true;
    QuillError(RIE_CONSISTENCY, RIE_ERROR, "%s option \"%s\" needs a string value", family, key);
    return false;
}

// ---- RiOptionV families; each returns false for a key it does not know ----

bool radiosity_option(GOptions* o, const char* key, RtPointer value) {
    if (same(key, "steps")) {
        o->radiosity_steps = static_cast<int16_t>(int_value(value));
    } else if (same(key, "minpatchsamples")) {
        o->minpatchsamples = static_cast<int16_t>(int_value(value));
    } else if (same(key, "patchsize")) {
        o->patchsize = float_value(value);
    } else if (same(key, "elemsize")) {
        o->elemsize = float_value(value);
    } else if (same(key, "minsize")) {
        o->minsize = float_value(value);
    } else {
        return false;
    }
    return true;
}

void set_maxsamples(GOptions* o, int v) {
    if (v < o->minsamples) {
        v = o->minsamples;
    } else if (v > 256) {
        v = 256;
    } else if (v < 4) {
        v = 4;
    }
    o->maxsamples = v;
}

void set_hierarchy(GOptions* o, int v) {
    o->use_hierarchy = v > 0;
    o->goldsal = v > 1 && v < 4;
    o->hierarchy_3 = v == 3;
}

// The float keys marked as words copy the value's 32 bits as they are.
bool render_float_option(GOptions* o, const char* key, RtPointer value) {
    float* field = nullptr;
    if (same(key, "branch_ratio")) {
        field = &o->branch_ratio;
    } else if (same(key, "max_branch_ratio")) {
        field = &o->max_branch_ratio;
    } else if (same(key, "minshadowbias")) {
        field = &o->shadow_bias0;
    } else if (same(key, "maxshadowbias")) {
        field = &o->shadow_bias1;
    } else {
        return false;
    }
    std::memcpy(field, value, sizeof *field);
    return true;
}

bool render_option(GOptions* o, const char* key, RtPointer value) {
    if (same(key, "look_behind")) {
        o->look_behind = int_value(value);
    } else if (same(key, "verbose") || same(key, "debug")) {
        RMDEBUG = int_value(value);
    } else if (same(key, "use_hierarchy")) {
        set_hierarchy(o, int_value(value));
    } else if (same(key, "goldsal")) {
        o->goldsal = int_value(value);
    } else if (same(key, "max_raylevel")) {
        o->max_raylevel = int_value(value);
    } else if (same(key, "maxsamples")) {
        set_maxsamples(o, int_value(value));
    } else if (same(key, "minsamples")) {
        o->minsamples = std::max(int_value(value), 4);
    } else if (same(key, "prmanspecular") || same(key, "cooktorrancespecular")) {
        o->specular_model = int_value(value);
    } else {
        return render_float_option(o, key, value);
    }
    return true;
}

// Builds a search path from value, where each '&' stands for the previous
// path. The build buffer is bounded: a longer path is cut with a warning.
RtToken build_search_path(const char* value, const char* previous) {
    char buffer[SEARCH_PATH_MAX];
    size_t length = 0;
    bool truncated = false;
    for (const char* c = value; *c != '\0' && !truncated; ++c) {
        const char* piece = *c == '&' ? printable(previous) : nullptr;
        size_t piece_length = piece ? std::strlen(piece) : 1;
        if (length + piece_length >= sizeof buffer) {
            piece_length = sizeof buffer - 1 - length;
            truncated = true;
        }
        std::memcpy(buffer + length, piece ? piece : c, piece_length);
        length += piece_length;
    }
    buffer[length] = '\0';
    if (truncated) RMError(RIE_LIMIT, RIE_WARNING, "Search path too long; truncated");
    return NewToken(buffer);
}

bool searchpath_option(GOptions* o, const char* key, RtPointer value) {
    RtToken* path = nullptr;
    // "archive" is the newer name of the archive path "include" sets; the
    // procedural path is checked and kept nowhere, as no procedural program
    // is ever run here.
    if (same(key, "include") || same(key, "archive")) {
        path = &o->include_path;
    } else if (same(key, "procedural")) {
        holds_string("searchpath", key);
        return true;
    } else if (same(key, "texture")) {
        path = &o->texture_path;
    } else if (same(key, "shader")) {
        path = &o->shader_path;
    } else if (same(key, "resource") || same(key, "serverresource")) {
        if (!holds_string("searchpath", key)) return true;
        // Through RiOptionV with local arrays rather than the variadic
        // RiOption, which would overwrite the _V_names/_V_params arrays a
        // variadic caller may still be walking. Same effect.
        const char* kinds[] = {"texture", "shader", "include"};
        for (const char* kind : kinds) {
            RtToken tokens[1] = {kind};
            RtPointer values[1] = {value};
            RiOptionV("searchpath", 1, tokens, values);
        }
        return true;
    } else {
        return false;
    }
    if (!holds_string("searchpath", key)) return true;
    const char* text = string_value(value);
    if (text != nullptr) *path = build_search_path(text, *path);
    return true;
}

bool runtime_option(GOptions* o, const char* key, RtPointer value) {
    if (!same(key, "verbosity")) return false;
    if (!holds_string("runtime", key)) return true;
    const char* word = string_value(value);
    if (same(word, "silent")) {
        o->verbosity = 0;
    } else if (same(word, "normal")) {
        o->verbosity = 1;
    } else if (same(word, "verbose")) {
        o->verbosity |= 2;
    } else if (same(word, "stats")) {
        o->verbosity |= 10;
    } else if (same(word, "debug")) {
        o->verbosity |= 14;
        RMDEBUG = 2;
    }
    return true;
}

bool shadow_option(GOptions* o, const char* key, RtPointer value) {
    if (same(key, "bias0")) {
        o->shadow_bias0 = float_value(value);
    } else if (same(key, "bias1")) {
        o->shadow_bias1 = float_value(value);
    } else if (!same(key, "zlerp")) {
        return false;
    }
    return true;
}

int kilobytes_to_bytes(int kb) {
    return static_cast<int>(std::clamp<long long>(kb * 1024LL, INT_MIN, INT_MAX));
}

// 16 up to 16, else the smallest power of two from 32 up that holds m.
int bucket_size(int m) {
    if (m <= 16) return 16;
    int size = 32;
    while (size < m && size < (1 << 30)) size *= 2;
    return size;
}

bool limits_option(GOptions* o, const char* key, RtPointer value) {
    if (same(key, "texturememory")) {
        o->texture_memory = kilobytes_to_bytes(int_value(value));
    } else if (same(key, "geommemory")) {
        o->geom_memory = kilobytes_to_bytes(int_value(value));
    } else if (same(key, "bucketsize")) {
        int pair[2];
        std::memcpy(pair, value, sizeof pair);
        o->bucket_xsize = o->bucket_ysize = bucket_size(std::max(pair[0], pair[1]));
    } else if (!same(key, "gridsize") && !same(key, "eyesplits")) {
        return false;
    }
    return true;
}

// Values for the conditional requests, typed by their declarations.
bool user_option(GOptions*, const char* key, RtPointer value) {
    RtToken tokens[1] = {key};
    RtPointer values[1] = {value};
    set_user_options(1, tokens, values);
    return true;
}

typedef bool (*OptionFamily)(GOptions*, const char*, RtPointer);

OptionFamily option_family(const char* name) {
    if (same(name, "radiosity")) return radiosity_option;
    if (same(name, "render")) return render_option;
    if (same(name, "searchpath")) return searchpath_option;
    if (same(name, "runtime")) return runtime_option;
    if (same(name, "shadow")) return shadow_option;
    if (same(name, "limits")) return limits_option;
    if (same(name, "user")) return user_option;
    return nullptr;
}

bool is_silent_family(const char* name) {
    return same(name, "parallel") || same(name, "texture") || same(name, "motion") ||
           same(name, "statistics");
}

// One quantization quadruple (the colour or the depth one).
void set_quantize(float& one_field, float& min_field, float& max_field, float& dither_field,
                  int one, int min, int max, float ampl) {
    one_field = static_cast<float>(one);
    min_field = static_cast<float>(min);
    max_field = static_cast<float>(max);
    dither_field = ampl;
}

// ---- RiDisplayV ----

// The display name is bounded by its field: a longer name is cut with a warning.
void set_display_name(GOptions* o, const char* name) {
    size_t length = std::strlen(name);
    if (length >= sizeof o->display_name) {
        length = sizeof o->display_name - 1;
        RMError(RIE_LIMIT, RIE_WARNING, "Display name too long; truncated");
    }
    std::memcpy(o->display_name, name, length);
    o->display_name[length] = '\0';
}

int display_type_code(const char* type) {
    if (same(type, "file") || same(type, "tiff") || same(type, "TIFF")) return DISPLAY_FILE;
    if (same(type, "framebuffer")) return DISPLAY_FRAMEBUFFER;
    if (same(type, "shadow") || same(type, "zfile")) return DISPLAY_ZFILE;
    if (same(type, "floatdump")) return DISPLAY_FLOATDUMP;
    if (same(type, "ascii")) return DISPLAY_ASCII;
    return 0;
}

void set_display_type(GOptions* o, const char* type) {
    int code = display_type_code(type);
    if (code == 0) {
        QuillError(RIE_BADTOKEN, RIE_ERROR, "RiDisplay given invalid type: \"%s\"",
                   printable(type));
        return;
    }
    o->display_type = static_cast<unsigned char>(code);
    if (code == DISPLAY_ASCII) o->verbosity = 0;
}

int mode_channel(char c) {
    switch (c) {
        case 'r':
        case 'R':
            return 1;
        case 'a':
        case 'A':
            return 2;
        case 'z':
        case 'Z':
            return 4;
        case 'g':
        case 'G':
        case 'b':
        case 'B':
            return 0;
        default:
            return -1;
    }
}

void set_display_mode(GOptions* o, const char* mode) {
    o->display_mode = 0;
    for (const char* c = printable(mode); *c != '\0'; ++c) {
        int channel = mode_channel(*c);
        if (channel < 0) {
            QuillError(RIE_BADTOKEN, RIE_ERROR, "RiDisplay given invalid mode: \"%s\"", mode);
        } else {
            o->display_mode = static_cast<unsigned char>(o->display_mode + channel);
        }
    }
}

void set_display_parameter(GOptions* o, RtToken token, RtPointer value) {
    if (same(token, "origin")) {
        if (value == nullptr) return;
        int origin[2];
        std::memcpy(origin, value, sizeof origin);
        o->origin_x = origin[0];
        o->origin_y = origin[1];
    } else if (!same(token, "compression") && !same(token, "merge")) {
        QuillError(RIE_BADTOKEN, RIE_WARNING, "RiDisplay: Unknown parameter \"%s\"",
                   printable(token));
    }
}

// A NaN or an infinity (which the reader makes of a number such as 1e999, or
// of a binary float) would leave the camera without meaning: it is reported
// as out of range and not stored, so the value in force stays (the default,
// unless one was given). True when the value is finite.
bool finite_value(const char* request, const char* what, float value, float kept) {
    if (std::isfinite(value)) return true;
    QuillError(RIE_RANGE, RIE_ERROR, "%s: %s %g is not a finite number; %g kept", request, what,
               value, kept);
    return false;
}

}  // namespace

// ---- Camera and image ----

// Each value is stored only when it is positive; a width or height that is
// not is reported (as -res gives them too), a pixel aspect only when it is
// not a number at all: a negative one is how some files say "the default".
RtVoid RiFormat(RtInt xres, RtInt yres, RtFloat aspect) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    if (xres > 0) o->xres = xres;
    if (yres > 0) o->yres = yres;
    if (xres <= 0 || yres <= 0) {
        QuillError(RIE_RANGE, RIE_ERROR, "RiFormat: size %d x %d is not positive; %d x %d kept",
                   xres, yres, o->xres, o->yres);
    }
    if (finite_value("RiFormat", "pixel aspect", aspect, o->pixel_aspect) && aspect > 0.0f) {
        o->pixel_aspect = aspect;
    }
}

RtVoid RiFrameAspectRatio(RtFloat aspect) {
    if (GOptions* o = checked_options()) o->frame_aspect = aspect;
}

RtVoid RiScreenWindow(RtFloat left, RtFloat right, RtFloat bottom, RtFloat top) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    if (!std::isfinite(left) || !std::isfinite(right) || !std::isfinite(bottom) ||
        !std::isfinite(top)) {
        QuillError(RIE_RANGE, RIE_ERROR,
                   "RiScreenWindow: %g %g %g %g is not a window of finite numbers; not changed",
                   left, right, bottom, top);
        return;
    }
    o->screen_left = left;
    o->screen_right = right;
    o->screen_bottom = bottom;
    o->screen_top = top;
}

RtVoid RiCropWindow(RtFloat xmin, RtFloat xmax, RtFloat ymin, RtFloat ymax) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    o->crop_xmin = xmin;
    o->crop_xmax = xmax;
    o->crop_ymin = ymin;
    o->crop_ymax = ymax;
}

RtVoid RiProjection(RtToken name, ...) {
    va_list ap;
    va_start(ap, name);
    int n = _v_to_array(ap);
    va_end(ap);
    RiProjectionV(name, n, _V_names, _V_params);
}

RtVoid RiProjectionV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]) {
    // Inside a motion block only the first sample counts; a later one is
    // ignored entirely, before the level check.
    if (motion_guard()) return;
    if ((block_level & 7) > 3) {
        RMError(RIE_NOTOPTIONS, RIE_WARNING, "RiProjection called at bad level");
    }
    GOptions* o = options();
    if (o == nullptr) return;
    if (same(name, "orthographic")) {
        o->projection = 1;
    } else if (same(name, "perspective")) {
        o->projection = 0;
        for (int i = 0; i < n; ++i) {
            if (same(tokens[i], "fov")) {
                if (params[i] == nullptr) continue;
                const float fov = float_value(params[i]);
                if (finite_value("RiProjection", "field of view", fov, o->fov)) o->fov = fov;
            } else {
                RMError(RIE_BADTOKEN, RIE_ERROR,
                        "RiProjection: Invalid parameter for \"perspective\"");
            }
        }
    } else {
        QuillError(RIE_BADTOKEN, RIE_ERROR, "RiProjection: Invalid projection \"%s\"",
                   printable(name));
    }
}

RtVoid RiClipping(RtFloat hither, RtFloat yon) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    // One report for both distances: a second report on the same line would
    // be taken for a repeat and not shown.
    if (std::isfinite(hither)) o->near_clip = hither;
    if (std::isfinite(yon)) o->far_clip = yon;
    if (!std::isfinite(hither) || !std::isfinite(yon)) {
        QuillError(RIE_RANGE, RIE_ERROR,
                   "RiClipping: %g %g are not both finite numbers; %g %g in force", hither, yon,
                   o->near_clip, o->far_clip);
    }
}

RtVoid RiDepthOfField(RtFloat fstop, RtFloat focallength, RtFloat focaldistance) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    o->fstop = fstop;
    o->focal_length = focallength;
    o->focal_distance = focaldistance;
    o->depth_of_field = static_cast<double>(fstop) < static_cast<double>(5e37f);
    if (o->depth_of_field) {
        o->lens_diameter = focallength / fstop;
        o->lens_radius = o->lens_diameter / 2;
    }
}

RtVoid RiShutter(RtFloat opentime, RtFloat closetime) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    o->shutter_open = opentime;
    o->shutter_close = closetime;
}

// ---- Sampling and output ----

RtVoid RiPixelVariance(RtFloat variance) {
    if (GOptions* o = checked_options()) o->pixel_variance = variance;
}

RtVoid RiPixelSamples(RtFloat xsamples, RtFloat ysamples) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    // Rates below one are raised to one (NaN included), then truncated.
    o->xsamples = std::max(to_int(xsamples), 1);
    o->ysamples = std::max(to_int(ysamples), 1);
}

RtVoid RiPixelFilter(RtFilterFunc filter, RtFloat xwidth, RtFloat ywidth) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    o->filter = filter;
    o->filter_xwidth = xwidth;
    o->filter_ywidth = ywidth;
}

RtVoid RiExposure(RtFloat gain, RtFloat gamma) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    o->gain = gain;
    o->gamma = gamma;
    o->exposure_on = gain != 1.0f || gamma != 1.0f;
}

RtVoid RiQuantize(RtToken type, RtInt one, RtInt min, RtInt max, RtFloat ampl) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    if (same(type, "rgba")) {
        set_quantize(o->color_one, o->color_min, o->color_max, o->color_dither, one, min, max,
                     ampl);
    } else if (same(type, "z")) {
        set_quantize(o->depth_one, o->depth_min, o->depth_max, o->depth_dither, one, min, max,
                     ampl);
    } else {
        QuillError(RIE_BADTOKEN, RIE_WARNING, "RiQuantize given bad type \"%s\"", printable(type));
    }
}

RtVoid RiDisplay(RtToken name, RtToken type, RtToken mode, ...) {
    va_list ap;
    va_start(ap, mode);
    int n = _v_to_array(ap);
    va_end(ap);
    RiDisplayV(name, type, mode, n, _V_names, _V_params);
}

RtVoid RiDisplayV(RtToken name, RtToken type, RtToken mode, RtInt n, RtToken tokens[],
                  RtPointer params[]) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    if (name != nullptr) set_display_name(o, name);
    set_display_type(o, type);
    set_display_mode(o, mode);
    for (int i = 0; i < n; ++i) set_display_parameter(o, tokens[i], params[i]);
}

RtVoid RiHider(RtToken type, ...) {
    va_list ap;
    va_start(ap, type);
    int n = _v_to_array(ap);
    va_end(ap);
    RiHiderV(type, n, _V_names, _V_params);
}

RtVoid RiHiderV(RtToken type, RtInt, RtToken[], RtPointer[]) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    if (type == nullptr || same(type, "NULL")) {
        o->hider = HIDER_NULL;
    } else if (same(type, "hidden")) {
        o->hider = HIDER_HIDDEN;
    } else if (same(type, "paint")) {
        o->hider = HIDER_PAINT;
        RMError(RIE_UNIMPLEMENT, RIE_WARNING,
                "Painter's algorithm for hidden surface not supported");
    } else {
        QuillError(RIE_BADTOKEN, RIE_ERROR, "RiHider given bad type \"%s\"", type);
    }
}

RtVoid RiColorSamples(RtInt, RtFloat[], RtFloat[]) {
    check_option_level();
    RMError(RIE_UNIMPLEMENT, RIE_WARNING, "ColorSamples not currently implemented");
}

RtVoid RiRelativeDetail(RtFloat relativedetail) {
    GOptions* o = checked_options();
    if (o != nullptr &&
        finite_value("RiRelativeDetail", "detail", relativedetail, o->relative_detail)) {
        o->relative_detail = relativedetail;
    }
}

// ---- Implementation options ----

RtVoid RiOption(RtToken name, ...) {
    va_list ap;
    va_start(ap, name);
    int n = _v_to_array(ap);
    va_end(ap);
    RiOptionV(name, n, _V_names, _V_params);
}

RtVoid RiOptionV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]) {
    GOptions* o = checked_options();
    if (o == nullptr) return;
    if (same(name, "safetyfile")) {
        safetyfile = 1;
        return;
    }
    if (is_silent_family(name)) return;
    OptionFamily family = option_family(name);
    if (family == nullptr) {
        QuillError(RIE_BADTOKEN, RIE_WARNING, "RiOption: Unknown option type: \"%s\"",
                   printable(name));
        return;
    }
    for (int i = 0; i < n; ++i) {
        // A key without a value is treated like an unknown one.
        if (params[i] == nullptr || !family(o, tokens[i], params[i])) {
            QuillError(RIE_BADTOKEN, RIE_WARNING, "Unknown %s option \"%s\"", name,
                       printable(tokens[i]));
        }
    }
}

// ---- Search paths ----

int find_path(const char* name, const char* path, char* result, int result_size) {
    if (name == nullptr || result == nullptr || result_size <= 0) return 0;
    // A candidate is taken when it can be read; it is not opened here, since
    // opening a named pipe would wait for (and then lose) its writer.
    auto try_open = [&](const std::string& candidate) {
        if (candidate.size() >= static_cast<size_t>(result_size)) return false;
        if (access(candidate.c_str(), R_OK) != 0) return false;
        std::memcpy(result, candidate.c_str(), candidate.size() + 1);
        return true;
    };
    if (try_open(name)) return 1;
    if (path == nullptr || *path == '\0') return 0;
    const char* element = path;
    while (true) {
        const char* end = std::strchr(element, ':');
        std::string candidate(element, end ? end - element : std::strlen(element));
        if (candidate.empty() || candidate.back() != '/') candidate += '/';
        candidate += name;
        if (try_open(candidate)) return 1;
        if (end == nullptr) return 0;
        element = end + 1;
    }
}

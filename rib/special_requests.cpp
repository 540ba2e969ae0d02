// The requests whose arguments fit no argument code (Basis, Declare, Display,
// lights, objects, motion, error handlers, ...), the texture-making requests,
// structure comments, the ReadArchive request, the filter names, and the light and object
// number tables of the reader.
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "ri/options.h"
#include "ri/renderer.h"
#include "rib/inline_archives.h"
#include "rib/objects.h"
#include "rib/parameters.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/handles.h"
#include "support/memory.h"

namespace {

// Numbers a RIB file gives its lights, mapped to the handles the interface
// procedures returned, and the names it gives them ("key" in LightSource
// "spotlight" "key", as exporters write today: a departure from numbers
// only). They live for the whole run. Objects are kept by rib/objects.cpp.
HandleTable light_table;
std::unordered_map<std::string, RtLightHandle> light_names;

// Growable buffers of the reader for motion times, colour samples and
// structure-comment values.
float* motion_times = nullptr;
int motion_capacity = 0;
float* samples_first = nullptr;
int samples_first_capacity = 0;
float* samples_second = nullptr;
int samples_second_capacity = 0;
float* hint_values = nullptr;
int hint_capacity = 0;

bool read_string(char* text) {
    return RIBparse_quoted_string(text) == 0;
}

bool read_float(float* value) {
    char text[RIB_TOKEN_MAX];
    if (RIBparse_read_number(text) != 0) return false;
    *value = rib_atof(text);
    return true;
}

bool read_int(int* value) {
    char text[RIB_TOKEN_MAX];
    if (RIBparse_read_number(text) != 0) return false;
    *value = rib_atoi(text);
    return true;
}

// Reads a filter name and maps it; an unknown name is reported without text.
bool read_filter(RtFilterFunc* filter) {
    char name[RIB_TOKEN_MAX];
    if (!read_string(name)) return false;
    *filter = RIBparse_filter_function(name);
    if (!*filter) {
        RMError(RIE_BADTOKEN, RIE_ERROR, nullptr);
        return false;
    }
    return true;
}

// ---- Special requests ----

struct NamedBasis {
    const char* name;
    RtFloat (*basis)[4];
};

enum BasisRead { BASIS_OK, BASIS_UNKNOWN, BASIS_UNREADABLE };

// A basis is a quoted name or 16 floats; storage holds the floats.
BasisRead read_basis(RtBasis storage, RtFloat (**basis)[4]) {
    static const NamedBasis named[] = {{"bezier", RiBezierBasis},
                                       {"b-spline", RiBSplineBasis},
                                       {"catmull-rom", RiCatmullRomBasis},
                                       {"hermite", RiHermiteBasis},
                                       {"power", RiPowerBasis}};
    char text[RIB_TOKEN_MAX] = "";
    int code = read_RIB_token(text);
    if (code == TOKEN_STRING) {
        for (const NamedBasis& entry : named) {
            if (strcmp(entry.name, text) == 0) {
                *basis = entry.basis;
                return BASIS_OK;
            }
        }
        QuillError(RIE_SYNTAX, RIE_ERROR, "Bad basis name: \"%s\"", text);
        return BASIS_UNKNOWN;
    }
    RIBparse_return_token(text, code);
    if (RIBparse_fvector(16, &storage[0][0]) != 0) {
        RMError(RIE_SYNTAX, RIE_ERROR, "Bad basis");
        return BASIS_UNREADABLE;
    }
    *basis = storage;
    return BASIS_OK;
}

// An unknown basis name leaves the stream in step, so the other arguments are
// still read (and checked) before the request is dropped; an unreadable
// argument drops it at once.
void read_basis_request() {
    RtBasis ustorage, vstorage;
    RtFloat(*ubasis)[4] = nullptr;
    RtFloat(*vbasis)[4] = nullptr;
    int ustep = 0, vstep = 0;
    BasisRead u = read_basis(ustorage, &ubasis);
    if (u == BASIS_UNREADABLE || !read_int(&ustep)) return;
    BasisRead v = read_basis(vstorage, &vbasis);
    if (v == BASIS_UNREADABLE || !read_int(&vstep)) return;
    if (u == BASIS_OK && v == BASIS_OK) RiBasis(ubasis, ustep, vbasis, vstep);
}

// Declare is called even when a string is missing (the reader has reported it).
void read_declare() {
    char name[RIB_TOKEN_MAX] = "";
    char declaration[RIB_TOKEN_MAX] = "";
    RIBparse_quoted_string(name);
    RIBparse_quoted_string(declaration);
    RiDeclare(name, declaration);
}

void read_display() {
    char name[RIB_TOKEN_MAX], type[RIB_TOKEN_MAX], mode[RIB_TOKEN_MAX];
    if (!read_string(name) || !read_string(type) || !read_string(mode)) return;
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int n = RIBparse_parameter_list(tokens, values);
    if (n >= 0) RiDisplayV(name, type, mode, n, tokens, values);
}

void read_pixel_filter() {
    RtFilterFunc filter = nullptr;
    float xwidth, ywidth;
    if (read_filter(&filter) && read_float(&xwidth) && read_float(&ywidth)) {
        RiPixelFilter(filter, xwidth, ywidth);
    }
}

void read_quantize() {
    char type[RIB_TOKEN_MAX];
    int one, min, max;
    float amplitude;
    if (read_string(type) && read_int(&one) && read_int(&min) && read_int(&max) &&
        read_float(&amplitude)) {
        RiQuantize(type, one, min, max, amplitude);
    }
}

// Where a light's handle goes: under its number or under its name.
struct LightId {
    bool named;
    int number;
    std::string name;
};

void remember_light(const LightId& id, RtLightHandle handle) {
    if (id.named) {
        light_names[id.name] = handle;
    } else {
        light_table.set(id.number, handle);
    }
}

// A light's id: a quoted name, or a number read by the number reader
// (which reports what is wrong).
bool read_light_id(LightId* id) {
    char text[RIB_TOKEN_MAX];
    const int code = read_RIB_token(text);
    if (code == TOKEN_STRING) {
        *id = {true, 0, text};
        return true;
    }
    RIBparse_return_token(text, code);
    int number;
    if (!read_int(&number)) return false;
    *id = {false, number, std::string()};
    return true;
}

// LightSource insists on a string and then a plain (unbracketed) number or a
// name, with messages of its own.
void read_light_source() {
    char name[RIB_TOKEN_MAX], text[RIB_TOKEN_MAX];
    if (read_RIB_token(name) != TOKEN_STRING) {
        rib_syntax_error("Light source shader name missing");
        return;
    }
    const int code = read_RIB_token(text);
    if (code != TOKEN_NUMBER && code != TOKEN_STRING) {
        rib_syntax_error("Light id number missing");
        return;
    }
    const LightId id =
        code == TOKEN_STRING ? LightId{true, 0, text} : LightId{false, rib_atoi(text), ""};
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int n = RIBparse_parameter_list(tokens, values);
    if (n < 0) return;
    remember_light(id, RiLightSourceV(name, n, tokens, values));
}

// AreaLightSource has no messages of its own: the string and number readers
// report what is wrong.
void read_area_light_source() {
    char name[RIB_TOKEN_MAX];
    LightId id;
    if (!read_string(name) || !read_light_id(&id)) return;
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int n = RIBparse_parameter_list(tokens, values);
    if (n < 0) return;
    remember_light(id, RiAreaLightSourceV(name, n, tokens, values));
}

// An unknown number or name gives a null handle, passed on as it is.
void read_illuminate() {
    LightId id;
    int onoff;
    if (!read_light_id(&id) || !read_int(&onoff)) return;
    RtLightHandle handle = nullptr;
    if (id.named) {
        auto found = light_names.find(id.name);
        if (found != light_names.end()) handle = found->second;
    } else {
        handle = light_table.get(id.number);
    }
    RiIlluminate(handle, static_cast<RtBoolean>(onoff));
}

void read_motion_begin() {
    int n = 0;
    if (RIBparse_unsized_fvector(&n, &motion_times, &motion_capacity) == 0) {
        RiMotionBeginV(n, motion_times);
    }
}

void read_skew() {
    float v[7];
    if (RIBparse_fvector(7, v) == 0) RiSkew(v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
}

void read_geometric_approximation() {
    char type[RIB_TOKEN_MAX];
    float value;
    if (read_string(type) && read_float(&value)) RiGeometricApproximation(type, value);
}

void read_error_handler() {
    char name[RIB_TOKEN_MAX];
    if (!read_string(name)) return;
    if (strcmp(name, "ignore") == 0) {
        RiErrorHandler(RiErrorIgnore);
    } else if (strcmp(name, "print") == 0) {
        RiErrorHandler(RiErrorPrint);
    } else if (strcmp(name, "abort") == 0) {
        RiErrorHandler(RiErrorAbort);
    } else {
        RMError(RIE_BADTOKEN, RIE_WARNING, "Invalid error handler name");
    }
}

// The first list gives n; exactly n more values follow it.
void read_color_samples() {
    int n = 0;
    if (RIBparse_unsized_fvector(&n, &samples_first, &samples_first_capacity) != 0) return;
    if (RIBparse_fvector(n, &samples_second, &samples_second_capacity) != 0) return;
    RiColorSamples(n, samples_first, samples_second);
}

void read_archive_request() {
    char name[RIB_TOKEN_MAX];
    if (read_string(name)) RiReadArchive(name, nullptr, RI_NULL);
}

// TransformPoints is accepted without reading anything.
void ignore_request() {}

// ---- Texture-making requests ----

void read_make_texture_or_bump(bool bump) {
    char picture[RIB_TOKEN_MAX], texture[RIB_TOKEN_MAX], swrap[RIB_TOKEN_MAX], twrap[RIB_TOKEN_MAX];
    RtFilterFunc filter;
    float swidth, twidth;
    if (!read_string(picture) || !read_string(texture) || !read_string(swrap) ||
        !read_string(twrap) || !read_filter(&filter) || !read_float(&swidth) ||
        !read_float(&twidth)) {
        return;
    }
    if (bump) {
        RiMakeBump(picture, texture, swrap, twrap, filter, swidth, twidth, RI_NULL);
    } else {
        RiMakeTexture(picture, texture, swrap, twrap, filter, swidth, twidth, RI_NULL);
    }
}

void read_make_texture() {
    read_make_texture_or_bump(false);
}
void read_make_bump() {
    read_make_texture_or_bump(true);
}

void read_make_lat_long_environment() {
    char picture[RIB_TOKEN_MAX], texture[RIB_TOKEN_MAX];
    RtFilterFunc filter;
    float swidth, twidth;
    if (read_string(picture) && read_string(texture) && read_filter(&filter) &&
        read_float(&swidth) && read_float(&twidth)) {
        RiMakeLatLongEnvironment(picture, texture, filter, swidth, twidth, RI_NULL);
    }
}

void read_make_cube_face_environment() {
    char faces[6][RIB_TOKEN_MAX], texture[RIB_TOKEN_MAX];
    float fov, swidth, twidth;
    RtFilterFunc filter;
    for (char* face : faces) {
        if (!read_string(face)) return;
    }
    if (read_string(texture) && read_float(&fov) && read_filter(&filter) && read_float(&swidth) &&
        read_float(&twidth)) {
        RiMakeCubeFaceEnvironment(faces[0], faces[1], faces[2], faces[3], faces[4], faces[5],
                                  texture, fov, filter, swidth, twidth, RI_NULL);
    }
}

void read_make_shadow() {
    char picture[RIB_TOKEN_MAX], texture[RIB_TOKEN_MAX];
    if (read_string(picture) && read_string(texture)) RiMakeShadow(picture, texture, RI_NULL);
}

// ---- Dispatch by keyword ----

struct SpecialReader {
    const char* keyword;
    void (*read)();
};

const SpecialReader special_readers[] = {
    {"LightSource", read_light_source},
    {"AreaLightSource", read_area_light_source},
    {"Illuminate", read_illuminate},
    {"GeometricApproximation", read_geometric_approximation},
    {"Skew", read_skew},
    {"TransformPoints", ignore_request},
    {"Basis", read_basis_request},
    {"ObjectBegin", read_object_begin},
    {"ObjectEnd", read_object_end},
    {"ObjectInstance", read_object_instance},
    {"MotionBegin", read_motion_begin},
    {"Declare", read_declare},
    {"ReadArchive", read_archive_request},
    {"PixelFilter", read_pixel_filter},
    {"Quantize", read_quantize},
    {"Display", read_display},
    {"ColorSamples", read_color_samples},
    {"ErrorHandler", read_error_handler},
};

const SpecialReader texture_readers[] = {
    {"MakeShadow", read_make_shadow},
    {"MakeTexture", read_make_texture},
    {"MakeBump", read_make_bump},
    {"MakeLatLongEnvironment", read_make_lat_long_environment},
    {"MakeCubeFaceEnvironment", read_make_cube_face_environment},
};

template <size_t N>
void run_reader(const SpecialReader (&readers)[N], const char* keyword) {
    for (const SpecialReader& reader : readers) {
        if (strcmp(reader.keyword, keyword) == 0) {
            reader.read();
            return;
        }
    }
}

template <typename T>
void release_buffer(T** buffer, int* capacity) {
    if (*buffer) myfree(*buffer);
    *buffer = nullptr;
    *capacity = 0;
}

}  // namespace

void RIBparse_special_request(const char* keyword, REACTION*) {
    run_reader(special_readers, keyword);
}

// The texture-making procedures are called with an empty parameter list; a
// list given in the file is still read (and checked), so that a conforming
// request leaves no stray tokens behind.
void RIBparse_texture_request(const char* keyword, REACTION*) {
    run_reader(texture_readers, keyword);
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    RIBparse_parameter_list(tokens, values);
}

// Structure comments are accepted and have no effect; Include and
// CameraOrientation have their arguments read so that they do not come
// through as stray tokens.
void structural_hint(const char* word, const char*) {
    if (strcmp(word, "Include") == 0) {
        char name[RIB_TOKEN_MAX];
        RIBparse_quoted_string(name);
    } else if (strcmp(word, "CameraOrientation") == 0) {
        int n = 0;
        RIBparse_unsized_fvector(&n, &hint_values, &hint_capacity);
    } else {
        RIBparse_skip_line();
    }
}

RtFilterFunc RIBparse_filter_function(const char* name) {
    if (strcmp(name, "gaussian") == 0) return RiGaussianFilter;
    if (strcmp(name, "box") == 0) return RiBoxFilter;
    if (strcmp(name, "triangle") == 0) return RiTriangleFilter;
    if (strcmp(name, "catmull-rom") == 0) return RiCatmullRomFilter;
    if (strcmp(name, "sinc") == 0) return RiSincFilter;
    return nullptr;
}

void release_rib_tables() {
    light_table.clear();
    light_names.clear();
    release_objects();
    release_buffer(&motion_times, &motion_capacity);
    release_buffer(&samples_first, &samples_first_capacity);
    release_buffer(&samples_second, &samples_second_capacity);
    release_buffer(&hint_values, &hint_capacity);
    release_inline_archives();
    RIBparse_release_scratch();
}

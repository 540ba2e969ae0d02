// The request table and its keyword hash, the reading loop ParseRIB with frame
// selection and structure comments, and the dispatcher that reads a request's
// arguments by the row's argument code and calls the interface procedure.
#include "rib/requests.h"

#include <cstring>

#include "driver/globals.h"
#include "rib/archive_reads.h"
#include "rib/modern_geometry.h"
#include "rib/conditionals.h"
#include "rib/modern_requests.h"
#include "rib/parameters.h"
#include "rib/request_place.h"
#include "rib/rib_files.h"
#include "rib/token_scan.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/hashtable.h"
#include "support/report_output.h"

int drawing_on = 1;
int echo_requests = 0;
int rib_request_line = 0;

namespace {

bool reading_stopped = false;

}  // namespace

namespace {

template <typename F>
REACTION request_row(const char* keyword, F function, int code) {
    return {keyword, reinterpret_cast<RibProcedure>(function), code, nullptr, 0};
}

template <typename F>
REACTION geometry_row(const char* keyword, F function, int code) {
    return {keyword, reinterpret_cast<RibProcedure>(function), code, RIB_parse_geometry, 0};
}

template <typename F>
REACTION modern_geometry_row(const char* keyword, F function) {
    return {keyword, reinterpret_cast<RibProcedure>(function), 255, RIB_parse_modern_geometry, 0};
}

}  // namespace

// "Hider" names RiHider, the variadic form, under code 12; the dispatcher
// calls it with an empty list (see call_with_parameters).
// "PointsGeneralPolygons" names RiGeneralPolygonV: the geometry reader picks
// the procedure by keyword. ObjectBegin, ObjectEnd and ObjectInstance are
// read by rib/objects.cpp, which records definitions instead of calling
// RiObjectBegin and RiObjectEnd (ObjectEnd is therefore a special request).
REACTION reactions[] = {
    request_row("Translate", RiTranslate, 8),
    request_row("ConcatTransform", RiConcatTransform, 5),
    geometry_row("Polygon", RiPolygonV, 255),
    geometry_row("Cylinder", RiCylinderV, 14),
    geometry_row("Sphere", RiSphereV, 14),
    geometry_row("Cone", RiConeV, 13),
    request_row("AttributeBegin", RiAttributeBegin, 0),
    request_row("AttributeEnd", RiAttributeEnd, 0),
    request_row("TransformBegin", RiTransformBegin, 0),
    request_row("TransformEnd", RiTransformEnd, 0),
    request_row("Color", RiColor, 3),
    request_row("Opacity", RiOpacity, 3),
    request_row("Rotate", RiRotate, 9),
    request_row("Surface", RiSurfaceV, 12),
    request_row("Scale", RiScale, 8),
    geometry_row("Hyperboloid", RiHyperboloidV, 255),
    geometry_row("Paraboloid", RiParaboloidV, 14),
    geometry_row("Disk", RiDiskV, 13),
    geometry_row("Torus", RiTorusV, 255),
    request_row("Format", RiFormat, 11),
    request_row("SolidBegin", RiSolidBegin, 2),
    request_row("SolidEnd", RiSolidEnd, 0),
    request_row("LightSource", RiLightSourceV, 255),
    request_row("AreaLightSource", RiAreaLightSourceV, 255),
    request_row("Illuminate", RiIlluminate, 255),
    request_row("Atmosphere", RiAtmosphereV, 12),
    request_row("Interior", RiInteriorV, 12),
    request_row("Exterior", RiExteriorV, 12),
    request_row("TextureCoordinates", RiTextureCoordinates, 10),
    request_row("ShadingRate", RiShadingRate, 6),
    request_row("ShadingInterpolation", RiShadingInterpolation, 2),
    request_row("Matte", RiMatte, 1),
    request_row("Bound", RiBound, 4),
    request_row("Detail", RiDetail, 4),
    request_row("DetailRange", RiDetailRange, 9),
    request_row("GeometricApproximation", RiGeometricApproximation, 255),
    request_row("GeometricRepresentation", RiGeometricRepresentation, 2),
    request_row("Orientation", RiOrientation, 2),
    request_row("ReverseOrientation", RiReverseOrientation, 0),
    request_row("Sides", RiSides, 1),
    request_row("Identity", RiIdentity, 0),
    request_row("Transform", RiTransform, 5),
    request_row("Perspective", RiPerspective, 6),
    request_row("Skew", RiSkew, 255),
    request_row("Deformation", RiDeformationV, 12),
    request_row("Displacement", RiDisplacementV, 12),
    request_row("CoordinateSystem", RiCoordinateSystem, 2),
    request_row("CoordSysTransform", RiCoordSysTransform, 2),
    request_row("TransformPoints", RiTransformPoints, 255),
    request_row("Attribute", RiAttributeV, 12),
    geometry_row("GeneralPolygon", RiGeneralPolygonV, 255),
    geometry_row("PointsPolygons", RiPointsPolygonsV, 255),
    geometry_row("PointsGeneralPolygons", RiGeneralPolygonV, 255),
    request_row("Basis", RiBasis, 255),
    geometry_row("Patch", RiPatchV, 255),
    geometry_row("PatchMesh", RiPatchMeshV, 255),
    geometry_row("NuPatch", RiNuPatchV, 255),
    geometry_row("TrimCurve", RiTrimCurve, 255),
    request_row("Geometry", RiGeometryV, 12),
    request_row("ObjectBegin", RiObjectBegin, 255),
    request_row("ObjectEnd", RiObjectEnd, 255),
    request_row("ObjectInstance", RiObjectInstance, 255),
    request_row("MotionBegin", RiMotionBeginV, 255),
    request_row("MotionEnd", RiMotionEnd, 0),
    request_row("Declare", RiDeclare, 255),
    request_row("ReadArchive", RiReadArchive, 255),
    request_row("FrameBegin", RiFrameBegin, 1),
    request_row("FrameEnd", RiFrameEnd, 0),
    request_row("WorldBegin", RiWorldBegin, 0),
    request_row("WorldEnd", RiWorldEnd, 0),
    request_row("FrameAspectRatio", RiFrameAspectRatio, 6),
    request_row("ScreenWindow", RiScreenWindow, 9),
    request_row("CropWindow", RiCropWindow, 9),
    request_row("Projection", RiProjectionV, 12),
    request_row("Clipping", RiClipping, 7),
    request_row("DepthOfField", RiDepthOfField, 8),
    request_row("Shutter", RiShutter, 7),
    request_row("PixelVariance", RiPixelVariance, 6),
    request_row("PixelSamples", RiPixelSamples, 7),
    request_row("PixelFilter", RiPixelFilter, 255),
    request_row("Exposure", RiExposure, 7),
    request_row("Imager", RiImagerV, 12),
    request_row("Quantize", RiQuantize, 255),
    request_row("Display", RiDisplay, 255),
    request_row("Hider", RiHider, 12),
    request_row("ColorSamples", RiColorSamples, 255),
    request_row("RelativeDetail", RiRelativeDetail, 6),
    request_row("Option", RiOptionV, 12),
    request_row("MakeShadow", RiMakeShadow, 15),
    request_row("MakeTexture", RiMakeTexture, 15),
    request_row("MakeBump", RiMakeBump, 15),
    request_row("MakeLatLongEnvironment", RiMakeLatLongEnvironment, 15),
    request_row("MakeCubeFaceEnvironment", RiMakeCubeFaceEnvironment, 15),
    request_row("version", accept_version, 6),
    request_row("ErrorHandler", RiErrorHandler, 255),
    // Drawn requests of the modern interface, read by their own reader.
    modern_geometry_row("SubdivisionMesh", RiSubdivisionMeshV),
    modern_geometry_row("HierarchicalSubdivisionMesh", RiHierarchicalSubdivisionMeshV),
    modern_geometry_row("Curves", RiCurvesV),
    modern_geometry_row("NuCurves", RiNuCurvesV),
    modern_geometry_row("Points", RiPointsV),
    modern_geometry_row("Blobby", RiBlobbyV),
    // Newer requests, read by their own readers (rib/modern_requests.cpp):
    // conditional blocks, inline archives and procedurals, then the requests
    // that are read, checked and ignored.
    modern_request_row("IfBegin"),
    modern_request_row("ElseIf"),
    modern_request_row("Else"),
    modern_request_row("IfEnd"),
    modern_request_row("ArchiveBegin"),
    modern_request_row("ArchiveEnd"),
    modern_request_row("Procedural"),
    modern_request_row("Procedural2"),
    modern_request_row("ScopedCoordinateSystem"),
    modern_request_row("System"),
    modern_request_row("Resource"),
    modern_request_row("ResourceBegin"),
    modern_request_row("ResourceEnd"),
    modern_request_row("ShaderLayer"),
    modern_request_row("ConnectShaderLayers"),
    modern_request_row("DisplayChannel"),
    modern_request_row("Camera"),
    modern_request_row("ClippingPlane"),
    modern_request_row("MakeBrickMap"),
    modern_request_row("Bxdf"),
    modern_request_row("Pattern"),
    modern_request_row("Integrator"),
    modern_request_row("Light"),
    modern_request_row("DisplayFilter"),
    modern_request_row("SampleFilter"),
    modern_request_row("PixelSampleImager"),
    modern_request_row("Shader"),
    modern_request_row("EditBegin"),
    modern_request_row("EditEnd"),
    modern_request_row("EditAttributeBegin"),
    modern_request_row("EditAttributeEnd"),
    modern_request_row("EditWorldBegin"),
    modern_request_row("EditWorldEnd"),
    {nullptr, nullptr, 0, nullptr, 0},
};

REACTION RIB_hash_table[RIB_HASH_SLOTS];
REACTION* rxnPolygon = nullptr;
REACTION* rxnHyperboloid = nullptr;
REACTION* rxnCurve = nullptr;

namespace {

bool hash_built = false;
REACTION* rxnFrameBegin = nullptr;
REACTION* rxnFrameEnd = nullptr;
const char* current_searchpath = nullptr;

// ---- Argument codes ----

template <typename Signature>
Signature* procedure(const REACTION* row) {
    return reinterpret_cast<Signature*>(row->function);
}

bool is_procedure(const REACTION* row, RibProcedure function) {
    return row->function == function;
}

// Code 1: one integer. RiMatte takes the C binding's RtBoolean, not an int.
void call_with_integer(const char* keyword, const REACTION* row) {
    char text[RIB_TOKEN_MAX];
    if (RIBparse_read_number(text) != 0) {
        QuillError(RIE_SYNTAX, RIE_ERROR, "Integer expected after %s", keyword);
        return;
    }
    int value = rib_atoi(text);
    if (is_procedure(row, reinterpret_cast<RibProcedure>(RiMatte))) {
        RiMatte(static_cast<RtBoolean>(value));
    } else {
        procedure<void(RtInt)>(row)(value);
    }
}

void call_with_string(const REACTION* row) {
    char text[RIB_TOKEN_MAX];
    if (RIBparse_quoted_string(text) == 0) procedure<void(RtToken)>(row)(text);
}

// Codes 3, 4 and 5: the floats are passed as one array.
void call_with_array(const REACTION* row, int count) {
    float values[16];
    if (RIBparse_fvector(count, values) != 0) return;
    if (count == 16) {
        RtMatrix matrix;
        memcpy(matrix, values, sizeof matrix);
        procedure<void(RtMatrix)>(row)(matrix);
    } else {
        procedure<void(RtFloat*)>(row)(values);
    }
}

void call_with_one_float(const REACTION* row) {
    char text[RIB_TOKEN_MAX];
    if (RIBparse_read_number(text) == 0) procedure<void(RtFloat)>(row)(rib_atof(text));
}

// Codes 7 to 10: the floats are passed one by one.
void call_with_floats(const REACTION* row, int count) {
    float v[8];
    if (RIBparse_fvector(count, v) != 0) return;
    switch (count) {
        case 2:
            procedure<void(RtFloat, RtFloat)>(row)(v[0], v[1]);
            break;
        case 3:
            procedure<void(RtFloat, RtFloat, RtFloat)>(row)(v[0], v[1], v[2]);
            break;
        case 4:
            procedure<void(RtFloat, RtFloat, RtFloat, RtFloat)>(row)(v[0], v[1], v[2], v[3]);
            break;
        default:
            procedure<void(RtFloat, RtFloat, RtFloat, RtFloat, RtFloat, RtFloat, RtFloat, RtFloat)>(
                row)(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);
            break;
    }
}

// Code 11: integer, integer, float.
void call_with_int_int_float(const char* keyword, const REACTION* row) {
    char first[RIB_TOKEN_MAX], second[RIB_TOKEN_MAX], third[RIB_TOKEN_MAX];
    if (RIBparse_read_number(first) != 0 || RIBparse_read_number(second) != 0 ||
        RIBparse_read_number(third) != 0) {
        QuillError(RIE_SYNTAX, RIE_ERROR, "Syntax error on %s", keyword);
        return;
    }
    procedure<void(RtInt, RtInt, RtFloat)>(row)(rib_atoi(first), rib_atoi(second), rib_atof(third));
}

// Code 12: a name and a parameter list. RiHider is the variadic form and is
// called with an empty list: the parameters are read (and checked) but not
// passed, which is all RiHiderV would do with them anyway.
void call_with_parameters(const REACTION* row) {
    char name[RIB_TOKEN_MAX];
    if (RIBparse_quoted_string(name) != 0) return;
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int n = RIBparse_parameter_list(tokens, values);
    if (n < 0) return;
    if (is_procedure(row, reinterpret_cast<RibProcedure>(RiHider))) {
        RiHider(name, RI_NULL);
        return;
    }
    procedure<void(RtToken, RtInt, RtToken[], RtPointer[])>(row)(name, n, tokens, values);
}

// ---- Reading loop ----

void dispatch_row(const char* keyword, REACTION* row);

bool frame_selected(long frame) {
    return start_frame <= frame && frame <= end_frame;
}

// An identifier read at the top level: counts frames, decides whether the
// request is executed, and otherwise skips the rest of its line.
// Rows of recently read keywords, indexed by a cheap mix of the keyword's
// length and end letters, so that the common requests skip the keyword hash.
// Entries point at rows of the keyword hash, which is built once and never
// changes, and a keyword that has no row is not kept.
struct KeywordCacheEntry {
    const char* keyword;
    size_t length;
    REACTION* row;
};
KeywordCacheEntry keyword_cache[256];

KeywordCacheEntry& keyword_cache_entry(const char* word, size_t length) {
    const auto first = static_cast<unsigned char>(word[0]);
    const auto last = static_cast<unsigned char>(word[length - 1]);
    return keyword_cache[(length * 31 + first * 7 + last) & 255];
}

// The row kept for the length bytes at word (not NUL-terminated), or null
// when the cache has none: the word is then exactly the row's keyword.
REACTION* cached_request_row(const char* word, size_t length) {
    if (length == 0) return nullptr;
    const KeywordCacheEntry& entry = keyword_cache_entry(word, length);
    if (entry.row && entry.length == length && memcmp(entry.keyword, word, length) == 0) {
        return entry.row;
    }
    return nullptr;
}

REACTION* find_request_row(const char* word, size_t length) {
    if (length == 0) return match_identifier(word);
    if (REACTION* row = cached_request_row(word, length)) return row;
    KeywordCacheEntry& entry = keyword_cache_entry(word, length);
    REACTION* row = match_identifier(word);
    // A word with a NUL inside (a binary string) matches by its text up to
    // the NUL and is not kept: the cache compares whole lengths.
    if (row && strlen(row->keyword) == length) entry = {row->keyword, length, row};
    return row;
}

// A word that ended the input (no white space after it): a request there is
// not carried out, but a word that is no request is reported like any
// other, where its request would have been carried out.
void report_last_word(const char* word, size_t length, long frame) {
    if (find_request_row(word, length) != nullptr) return;
    if (drawing_on == 1 && (frame < 0 || frame_selected(frame))) dispatch_row(word, nullptr);
}

// The word is looked up where the scanner left it; only a word the cache
// does not know is copied out (into text, RIB_TOKEN_MAX bytes) for the
// keyword hash and the reports. A known one goes on as its row's keyword.
void select_and_dispatch(const RibTokenView& view, char* text, long* frame) {
    rib_request_line = RIB_lineno;
    const size_t length = static_cast<size_t>(view.length);
    // One keyword lookup serves both the frame counting and the dispatch.
    REACTION* row = cached_request_row(view.text, length);
    const char* word = row ? row->keyword : text;
    if (!row) {
        materialize_token(view, text);
        row = find_request_row(text, length);
    }
    bool frame_begin = row != nullptr && row == rxnFrameBegin;
    bool frame_end = row != nullptr && row == rxnFrameEnd;
    if (frame_begin) {
        ++*frame;
        drawing_on = frame_selected(*frame) ? 1 : 0;
    } else if (frame_end && drawing_on == 0) {
        drawing_on = 1;
    }
    bool wanted = drawing_on == 1 || frame_begin || frame_end;
    if (wanted && (*frame < 0 || frame_selected(*frame))) {
        dispatch_row(word, row);
    } else {
        RIBparse_skip_line();
    }
}

// A "#" token at the top level: "##" followed by a word is a structure
// comment; anything else is skipped to the end of the line.
void structure_comment(const char* searchpath) {
    if (RIBparse_lookahead() == '#' && !RIBparse_at_eof()) {
        RIBparse_advance();
        int c = RIBparse_lookahead();
        if (!RIBparse_at_eof() && ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))) {
            char word[RIB_TOKEN_MAX];
            if (read_RIB_token(word) == TOKEN_IDENTIFIER) {
                structural_hint(word, searchpath);
                return;
            }
        }
    }
    RIBparse_skip_line();
}

void report_stray(int code) {
    if (drawing_on == 1 && code != ' ' && code != '\n' && code != '\t') {
        char note[64];
        const int length = snprintf(note, sizeof note, "read character %d  \"%c\"", code, code);
        write_note(note, static_cast<size_t>(length));
    }
}

// Reads tokens until end of input, an end byte, or the FrameBegin of the
// first frame after the selected range.
void read_requests(const char* searchpath) {
    char token[RIB_TOKEN_MAX];
    long frame = -1;
    do {
        RibTokenView view;
        int code = scan_RIB_token(&view);
        // A word that meets the end of input may have been cut there and is
        // dropped; a token of the binary encoding is whole once its last byte
        // is read, so a binary file's last request is still carried out.
        if (code == TOKEN_EOF || (RIBparse_at_eof() && !RIBparse_token_was_binary())) {
            if (code == TOKEN_IDENTIFIER) {
                materialize_token(view, token);
                report_last_word(token, static_cast<size_t>(view.length), frame);
            }
            return;
        }
        switch (code) {
            case '\n':
            case '\r':
            case TOKEN_NUMBER:
                break;
            case TOKEN_HASH:
                structure_comment(searchpath);
                break;
            case TOKEN_IDENTIFIER:
                select_and_dispatch(view, token, &frame);
                break;
            default:
                report_stray(code);
                break;
        }
    } while (frame <= end_frame && !reading_stopped);
}

}  // namespace

// ---- Keyword hash ----

// The keyword hash is the ELF hash, the same as the symbol table's.
uint32_t rib_keyword_hash(const char* keyword) {
    return pjw_hash(keyword);
}

void make_RIB_hash_table() {
    if (hash_built) return;
    hash_built = true;
    for (REACTION& slot : RIB_hash_table) slot = REACTION{nullptr, nullptr, 0, nullptr, 0};
    for (const REACTION* r = reactions; r->keyword; ++r) {
        int slot = static_cast<int>(rib_keyword_hash(r->keyword) % RIB_HASH_SLOTS);
        while (RIB_hash_table[slot].keyword) slot = (slot + 1) % RIB_HASH_SLOTS;
        RIB_hash_table[slot] = *r;
        RIB_hash_table[slot].slot = slot;
    }
    rxnPolygon = match_identifier("Polygon");
    rxnHyperboloid = match_identifier("Hyperboloid");
    rxnCurve = match_identifier("Curve");
    rxnFrameBegin = match_identifier("FrameBegin");
    rxnFrameEnd = match_identifier("FrameEnd");
}

REACTION* match_identifier(const char* keyword) {
    int slot = static_cast<int>(rib_keyword_hash(keyword) % RIB_HASH_SLOTS);
    // The table is far from full, so a free slot always ends the probe.
    while (RIB_hash_table[slot].keyword) {
        if (strcmp(RIB_hash_table[slot].keyword, keyword) == 0) return &RIB_hash_table[slot];
        slot = (slot + 1) % RIB_HASH_SLOTS;
    }
    return nullptr;
}

char* strlwr(char* s) {
    for (char* p = s; *p; ++p) {
        if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p - 'A' + 'a');
    }
    return s;
}

// ---- Reading a stream ----

namespace {

// Readies the scratch buffer, the echo level and the keyword hash.
void prepare_reading(int echo) {
    RIBparse_check_scratchsize(128000);
    RIB_echo = echo;
    make_RIB_hash_table();
}

// Counts the line of the stream just opened as line: the whole reader state
// is moved out, its line counter set, and moved back in.
void start_counting_lines_at(int line) {
    RibStreamState state;
    RIBparse_save_state(&state);
    state.line = line;
    RIBparse_restore_state(&state);
}

// Streams being read, the outermost first: archives, and anything else
// read in the middle of a stream, are read inside the stream of the file
// the program was given.
int streams_open = 0;

// Reads an open stream to its end (or past the last selected frame). The
// outermost stream starts a fresh budget of archive reads.
int read_stream(FILE* f, const char* name, const char* searchpath, int echo, int first_line) {
    if (echo >= 2) fprintf(stderr, "[%s]\n", name);
    if (RIBparse_open_stream(f, name) != 0) return -1;
    if (first_line != 1) start_counting_lines_at(first_line);
    if (streams_open++ == 0) archive_budget_file_begins();
    const char* outer_searchpath = current_searchpath;
    current_searchpath = searchpath;
    conditionals_stream_begin();
    if (end_frame >= -1) read_requests(searchpath);
    conditionals_stream_end();
    current_searchpath = outer_searchpath;
    RIBparse_close_stream();
    --streams_open;
    return 0;
}

}  // namespace

int ParseRIB(const char* filename, const char* searchpath, int echo, int complain) {
    prepare_reading(echo);
    FILE* f = stdin;
    if (filename) {
        f = open_rib_file(filename, RMDEBUG >= 2 || (complain && echo));
        if (!f) return -1;
    }
    const SourcePlacement in_itself(nullptr, 0);
    int result = read_stream(f, filename ? filename : "stdin", searchpath, echo, 1);
    if (filename) fclose(f);
    return result;
}

int ParseRIB_stream(FILE* f, const char* name, const char* searchpath, int echo, int first_line) {
    prepare_reading(echo);
    return read_stream(f, name, searchpath, echo, first_line);
}

void RIBparse_stop_reading() {
    reading_stopped = true;
}

void RIBparse_resume_reading() {
    reading_stopped = false;
}

bool RIBparse_reading_stopped() {
    return reading_stopped;
}

const char* RIBparse_searchpath() {
    return current_searchpath;
}

void RIBparse_dispatch(const char* keyword) {
    rib_request_line = RIB_lineno;
    dispatch_row(keyword, match_identifier(keyword));
}

namespace {

// Reads the arguments of the request whose row was looked up for keyword
// (null when there is none) and calls its procedure.
void dispatch_row(const char* keyword, REACTION* row) {
    if (!row) {
        QuillError(RIE_SYNTAX, RIE_ERROR, "Could not identify token %s", keyword);
        return;
    }
    const RequestScope request(row->keyword);
    if (row->parse) {
        row->parse(keyword, row);
        return;
    }
    switch (row->code) {
        case 0:
            procedure<void()>(row)();
            break;
        case 1:
            call_with_integer(keyword, row);
            break;
        case 2:
            call_with_string(row);
            break;
        case 3:
            call_with_array(row, 3);
            break;
        case 4:
            call_with_array(row, 6);
            break;
        case 5:
            call_with_array(row, 16);
            break;
        case 6:
            call_with_one_float(row);
            break;
        case 7:
        case 8:
        case 9:
            call_with_floats(row, row->code - 5);
            break;
        case 10:
            call_with_floats(row, 8);
            break;
        case 11:
            call_with_int_int_float(keyword, row);
            break;
        case 12:
            call_with_parameters(row);
            break;
        case 15:
            RIBparse_texture_request(keyword, row);
            break;
        case 255:
            RIBparse_special_request(keyword, row);
            break;
        default:
            break;
    }
}

}  // namespace

void accept_version(float) {}

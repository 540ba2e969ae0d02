// Inline archives and procedurals. ArchiveBegin records the tokens of the
// requests up to its ArchiveEnd as RIB text (nothing is carried out then);
// ReadArchive replays a recorded archive through the reader, under the name
// of the file it was recorded from and with that file's line numbers, before
// it looks for a file of that name. Procedural "DelayedReadArchive" reads
// its archive like ReadArchive inside an attribute block, unless its bound
// is out of sight; "RunProgram" and "DynamicLoad" are never run: their
// bound is drawn as a box.
#include "rib/inline_archives.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "driver/globals.h"
#include "math/transform.h"
#include "preview/bound_box.h"
#include "ri/attributes.h"
#include "ri/options.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "rib/modern_requests.h"
#include "rib/parameters.h"
#include "rib/request_place.h"
#include "rib/recorded_requests.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/inline_declarations.h"

namespace {

// Bytes all recorded archives may hold together; an archive that would
// pass it is reported and not kept.
constexpr size_t RECORDED_BYTES_MAX = size_t(64) << 20;
// Line numbers are kept by putting the lines before the archive in front of
// its text when it is replayed, up to this many; an archive further down
// its file is replayed with lines counted from its ArchiveBegin.
constexpr int LINE_PADDING_MAX = 1 << 16;

struct RecordedArchive {
    std::string file;  // the stream it was recorded from
    int first_line;    // line of its ArchiveBegin
    std::string text;  // the requests as RIB text, newlines where the lines broke
    // Where its requests are placed when replayed: the file and the shift
    // from the stream's line count to the editor's (comment lines included).
    std::string place_file;
    int place_shift;
};

std::map<std::string, RecordedArchive> archives;
size_t recorded_bytes = 0;

std::string replay_name(const RecordedArchive& archive, const char* name) {
    std::string label = archive.file + " [archive \"" + name + "\"";
    if (archive.first_line > LINE_PADDING_MAX) {
        label += " from line " + std::to_string(archive.first_line);
    }
    return label + "]";
}

}  // namespace

void read_archive_begin() {
    char name[RIB_TOKEN_MAX];
    if (RIBparse_quoted_string(name) != 0) return;
    RecordedArchive archive;
    archive.file = RIB_filename ? RIB_filename : "";
    archive.first_line = RIB_lineno;
    archive.place_file = current_source_file();
    archive.place_shift = current_source_line() - RIB_lineno;
    int line = RIB_lineno;
    bool keep = true;
    const size_t room = RECORDED_BYTES_MAX - recorded_bytes;
    if (record_requests("ArchiveBegin", "ArchiveEnd", &archive.text, &line, &keep, room) ==
        RecordEnd::EndOfStream) {
        QuillError(RIE_SYNTAX, RIE_ERROR, "ArchiveBegin \"%s\" without ArchiveEnd; not kept", name);
        return;
    }
    if (!keep) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Inline archive \"%s\" too large; not kept", name);
        return;
    }
    auto old = archives.find(name);
    if (old != archives.end()) {
        recorded_bytes -= old->second.text.size();
        archives.erase(old);
    }
    recorded_bytes += archive.text.size();
    archives.emplace(name, std::move(archive));
}

// An ArchiveEnd met while reading (not recording) has no ArchiveBegin.
void read_archive_end() {
    QuillError(RIE_SYNTAX, RIE_ERROR, "ArchiveEnd without ArchiveBegin");
}

bool inline_archive_defined(const char* name) {
    return name != nullptr && archives.count(name) != 0;
}

namespace {

// The newlines put in front of the archive's text to keep its line numbers.
size_t line_padding(const RecordedArchive& archive) {
    return archive.first_line <= LINE_PADDING_MAX ? size_t(std::max(archive.first_line - 1, 0)) : 0;
}

}  // namespace

long long inline_archive_size(const char* name) {
    if (name == nullptr) return 0;
    auto found = archives.find(name);
    if (found == archives.end()) return 0;
    return static_cast<long long>(line_padding(found->second) + found->second.text.size() + 1);
}

// The text and the place are copied for the replay: a replay may record an
// archive of the same name over the one being read, which frees the record.
void replay_inline_archive(const char* name, const char* searchpath, int echo) {
    auto found = archives.find(name);
    if (found == archives.end()) return;
    const RecordedArchive& archive = found->second;
    std::string text(line_padding(archive), '\n');
    text += archive.text;
    text += '\n';
    const std::string label = replay_name(archive, name);
    FILE* stream = fmemopen(&text[0], text.size(), "r");
    if (stream == nullptr) {
        QuillError(RIE_NOMEM, RIE_ERROR, "Cannot replay archive \"%s\"", name);
        return;
    }
    const bool padded = archive.first_line <= LINE_PADDING_MAX;
    const int shift = archive.place_shift + (padded ? 0 : archive.first_line - 1);
    const std::string place_file = archive.place_file;
    const SourcePlacement placement(place_file.c_str(), shift);
    ParseRIB_stream(stream, label.c_str(), searchpath, echo);
    std::fclose(stream);
}

void release_inline_archives() {
    archives.clear();
    recorded_bytes = 0;
}

// ---- Procedural ----

namespace {

// A bracketed list of strings (or one string); false after a report.
bool read_procedural_strings(std::vector<std::string>* strings) {
    char text[RIB_TOKEN_MAX];
    int code = read_RIB_token(text);
    if (code == TOKEN_STRING) {
        strings->push_back(text);
        return true;
    }
    if (code != '[') {
        RIBparse_return_token(text, code);
        rib_syntax_error("Quoted string expected");
        return false;
    }
    while ((code = read_RIB_token(text)) == TOKEN_STRING) {
        if (strings->size() < 64) strings->push_back(text);
    }
    if (code == ']') return true;
    RIBparse_return_token(text, code);
    rib_syntax_error("Missing ']'");
    return false;
}

// Whether the bound (xmin xmax ymin ymax zmin zmax, in object space) lies
// wholly outside what the camera sees, so that its archive can be left
// unread: its corners, taken to camera space as drawing takes points, all
// lie beyond one side of the viewing volume (in front of the near or behind
// the far plane, or past one of the four planes through the eye and the
// screen's edges, widened by a pixel). The box is convex, so none of it
// can be seen then. Outside the world nothing is culled, nor under the dump
// options, which print the geometry whatever the camera sees, nor in a
// check, which reads every archive.
bool bound_off_screen(const float bound[6]) {
    // A null camera or current transformation is the identity.
    if (renderer == nullptr || (block_level & BLOCK_WORLD) == 0 || dump_diced_rib != 0 ||
        check_only) {
        return false;
    }
    const GOptions& o = *renderer;
    const bool perspective = o.projection == 0;
    const float half_width = std::fabs(xstep) * float(o.xres / 2 + 1);
    const float half_height = std::fabs(ystep) * float(o.yres / 2 + 1);
    const float near = std::max(o.near_clip, 0.1f);
    // Bits of the sides a corner lies beyond; a side all corners share culls.
    unsigned shared = ~0u;
    for (int corner = 0; corner < 8; corner++) {
        const float p[3] = {bound[corner & 1], bound[2 + ((corner >> 1) & 1)],
                            bound[4 + ((corner >> 2) & 1)]};
        float world[3], c[3];
        transform_p(p, curxform, world);
        transform_p(world, o.camera, c);
        const float xlimit = perspective ? half_width * c[2] : half_width;
        const float ylimit = perspective ? half_height * c[2] : half_height;
        unsigned beyond = 0;
        if (c[2] < near) beyond |= 1;
        if (c[2] > o.far_clip) beyond |= 2;
        if (c[0] > xlimit) beyond |= 4;
        if (c[0] < -xlimit) beyond |= 8;
        if (c[1] > ylimit) beyond |= 16;
        if (c[1] < -ylimit) beyond |= 32;
        shared &= beyond;
    }
    return shared != 0;
}

}  // namespace

namespace {

// Reads the archive inside an attribute block, unless its bound is out of
// sight (which the delay allows).
void read_delayed_archive(const char* name, const float bound[6]) {
    if (bound != nullptr && bound_off_screen(bound)) return;
    RiAttributeBegin();
    RiReadArchiveV(name, nullptr, 0, nullptr, nullptr);
    RiAttributeEnd();
}

// Never run: a previewer does not start programs or load code named by a
// scene file. Its bound is drawn instead, as a box.
void leave_program_unrun(const float bound[6]) {
    draw_bound_box(bound);
}

}  // namespace

void read_procedural() {
    char type[RIB_TOKEN_MAX];
    std::vector<std::string> arguments;
    float bound[6];
    if (RIBparse_quoted_string(type) != 0 || !read_procedural_strings(&arguments) ||
        RIBparse_fvector(6, bound) != 0) {
        return;
    }
    const std::string kind = type;
    if (kind == "DelayedReadArchive") {
        if (arguments.empty()) {
            rib_syntax_error("DelayedReadArchive needs an archive name");
            return;
        }
        read_delayed_archive(arguments[0].c_str(), bound);
    } else if (kind == "RunProgram" || kind == "DynamicLoad") {
        leave_program_unrun(bound);
    } else {
        QuillError(RIE_BADTOKEN, RIE_ERROR, "Unknown procedural \"%s\"", type);
    }
}

// Procedural2 names its generator and its bound type, and passes the rest
// as a parameter list: "DelayedReadArchive2" reads the archive named by
// "filename" (within "bound" when given); the others are programs, not run.
void read_procedural2() {
    char generator[RIB_TOKEN_MAX], bound_kind[RIB_TOKEN_MAX];
    if (RIBparse_quoted_string(generator) != 0 || RIBparse_quoted_string(bound_kind) != 0) return;
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    const int n = RIBparse_parameter_list(tokens, values);
    if (n < 0) return;
    const char* filename = nullptr;
    const float* bound = nullptr;
    for (int i = 0; i < n; i++) {
        const Declaration* decl = parameter_declaration(tokens[i]);
        if (decl == nullptr) continue;
        if (std::strcmp(tokens[i], "filename") == 0 && decl->type == DECL_STRING) {
            filename = *static_cast<char* const*>(values[i]);
        } else if (std::strcmp(tokens[i], "bound") == 0 && decl->type == DECL_FLOAT &&
                   decl->count == 6) {
            bound = static_cast<const float*>(values[i]);
        }
    }
    if (std::strcmp(generator, "DelayedReadArchive2") != 0) {
        if (bound != nullptr) leave_program_unrun(bound);
        return;
    }
    if (filename == nullptr) {
        rib_syntax_error("DelayedReadArchive2 needs a \"string filename\"");
        return;
    }
    // The list lives in the scratch buffer, which the archive reuses.
    const std::string name = filename;
    float bound_copy[6];
    if (bound != nullptr) std::memcpy(bound_copy, bound, sizeof bound_copy);
    read_delayed_archive(name.c_str(), bound != nullptr ? bound_copy : nullptr);
}

// Requests of the newer interface that a wireframe has no use for (shading
// networks, resources, cameras, channels, filters, clipping planes, brick
// maps, edits): their arguments and parameter lists are read and checked
// like any other, so that nothing after them is misread, and then dropped.
// ScopedCoordinateSystem names a coordinate system like CoordinateSystem.
// System is never run. Also the keyword dispatch of all the newer requests.
#include "rib/modern_requests.h"

#include <cstring>

#include "rib/parameters.h"
#include "rib/tokenizer.h"
#include "support/error.h"

namespace {

// A request's arguments, one letter each: s a string, f a number, S one
// string or a bracketed list of strings, p the parameter list.
struct AcceptedRequest {
    const char* keyword;
    const char* arguments;
};

const AcceptedRequest accepted_requests[] = {
    {"Resource", "ssp"},
    {"ResourceBegin", ""},
    {"ResourceEnd", ""},
    {"ShaderLayer", "sssp"},
    {"ConnectShaderLayers", "sssss"},
    {"DisplayChannel", "sp"},
    {"Camera", "sp"},
    {"ClippingPlane", "ffffff"},
    {"MakeBrickMap", "Ssp"},
    {"Bxdf", "ssp"},
    {"Pattern", "ssp"},
    {"Integrator", "ssp"},
    {"Light", "ssp"},
    {"DisplayFilter", "ssp"},
    {"SampleFilter", "ssp"},
    {"PixelSampleImager", "ssp"},
    {"Shader", "ssp"},
    {"EditBegin", "sp"},
    {"EditEnd", ""},
    {"EditAttributeBegin", "s"},
    {"EditAttributeEnd", ""},
    {"EditWorldBegin", "sp"},
    {"EditWorldEnd", ""},
};

bool read_string_list() {
    char text[RIB_TOKEN_MAX];
    int code = read_RIB_token(text);
    if (code == TOKEN_STRING) return true;
    if (code != '[') {
        RIBparse_return_token(text, code);
        rib_syntax_error("Quoted string expected");
        return false;
    }
    while ((code = read_RIB_token(text)) == TOKEN_STRING) {
    }
    if (code == ']') return true;
    RIBparse_return_token(text, code);
    rib_syntax_error("Missing ']'");
    return false;
}

bool read_argument(char kind, char* text) {
    switch (kind) {
        case 's':
            return RIBparse_quoted_string(text) == 0;
        case 'f':
            return RIBparse_read_number(text) == 0;
        case 'S':
            return read_string_list();
        default: {
            RtToken tokens[RIB_PARAM_MAX];
            RtPointer values[RIB_PARAM_MAX];
            return RIBparse_parameter_list(tokens, values) >= 0;
        }
    }
}

// Reads the arguments in order; the first that is missing has been
// reported and ends the request.
void read_arguments(const char* arguments) {
    char text[RIB_TOKEN_MAX];
    for (const char* kind = arguments; *kind; ++kind) {
        if (!read_argument(*kind, text)) return;
    }
}

// The system keeps the name as CoordinateSystem does; it is not dropped at
// the end of the enclosing block, which a wireframe can live with.
void read_scoped_coordinate_system() {
    char name[RIB_TOKEN_MAX];
    if (RIBparse_quoted_string(name) == 0) RiCoordinateSystem(name);
}

// A command line for the shell is never run; the first one is reported,
// the others are read silently.
void read_system() {
    static bool reported = false;
    char command[RIB_TOKEN_MAX];
    if (RIBparse_quoted_string(command) != 0) return;
    if (!reported) {
        reported = true;
        QuillError(RIE_UNIMPLEMENT, RIE_WARNING, "System \"%s\" ignored: commands are never run",
                   command);
    }
}

struct NamedReader {
    const char* keyword;
    void (*read)();
};

const NamedReader readers[] = {
    {"IfBegin", read_if_begin},
    {"ElseIf", read_else_if},
    {"Else", read_else},
    {"IfEnd", read_if_end},
    {"ArchiveBegin", read_archive_begin},
    {"ArchiveEnd", read_archive_end},
    {"Procedural", read_procedural},
    {"Procedural2", read_procedural2},
    {"ScopedCoordinateSystem", read_scoped_coordinate_system},
    {"System", read_system},
};

}  // namespace

void RIBparse_modern_request(const char* keyword, REACTION*) {
    for (const NamedReader& reader : readers) {
        if (std::strcmp(reader.keyword, keyword) == 0) {
            reader.read();
            return;
        }
    }
    for (const AcceptedRequest& request : accepted_requests) {
        if (std::strcmp(request.keyword, keyword) == 0) {
            read_arguments(request.arguments);
            return;
        }
    }
}

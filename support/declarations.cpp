// Interned tokens and parameter declarations: the token table and the
// declaration list, the declaration grammar of RiDeclare, the redeclaration
// warning, the standard identifiers and the RI_* token globals.
#include "support/declarations.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "rib/requests.h"
#include "support/error.h"
#include "support/memory.h"

// Declared at RiBegin: each holds its plain name until then and the interned
// token afterwards.
RtToken RI_INTENSITY = "intensity", RI_LIGHTCOLOR = "lightcolor", RI_FROM = "from", RI_TO = "to",
        RI_CONEANGLE = "coneangle", RI_CONEDELTAANGLE = "conedeltaangle",
        RI_BEAMDISTRIBUTION = "beamdistribution", RI_KA = "Ka", RI_KD = "Kd", RI_KS = "Ks",
        RI_KR = "Kr", RI_ROUGHNESS = "roughness", RI_TEXTURENAME = "texturename",
        RI_SPECULARCOLOR = "specularcolor", RI_MINDISTANCE = "mindistance",
        RI_MAXDISTANCE = "maxdistance", RI_BACKGROUND = "background", RI_DISTANCE = "distance",
        RI_AMPLITUDE = "amplitude", RI_N = "N", RI_NP = "Np", RI_P = "P", RI_PZ = "Pz",
        RI_PW = "Pw", RI_CS = "Cs", RI_OS = "Os", RI_S = "s", RI_T = "t", RI_ST = "st",
        RI_FOV = "fov";
RtToken _RI___NONDIFFUSE = "__nondiffuse", _RI___NONSPECULAR = "__nonspecular";
RtToken _RI_BOX = "box", _RI_CATMULL_ROM = "catmull-rom", _RI_GAUSSIAN = "gaussian",
        _RI_TRIANGLE = "triangle", _RI_SINC = "sinc", _RI_FILTER = "filter", _RI_WIDTH = "width",
        _RI_SWIDTH = "swidth", _RI_TWIDTH = "twidth", _RI_FILL = "fill", _RI_FIDELITY = "fidelity",
        _RI_SAMPLES = "samples", _RI_BLUR = "blur", _RI_SBLUR = "sblur", _RI_TBLUR = "tblur",
        _RI_BIAS = "bias", _RI_LERP = "lerp";

// Never interned: callers compare these by content.
RtToken RI_BILINEAR = "bilinear", RI_BICUBIC = "bicubic", RI_PERIODIC = "periodic",
        RI_NONPERIODIC = "nonperiodic", RI_WORLD = "world", RI_PERSPECTIVE = "perspective",
        RI_ORTHOGRAPHIC = "orthographic", RI_HIDDEN = "hidden", RI_PAINT = "paint", RI_RGB = "rgb",
        RI_RGBA = "rgba", RI_RGBZ = "rgbz", RI_RGBAZ = "rgbaz", RI_A = "a", RI_Z = "z",
        RI_AZ = "az", RI_FILE = "file", RI_FRAMEBUFFER = "framebuffer", RI_ORIGIN = "origin",
        RI_PRIMITIVE = "primitive", RI_INTERSECTION = "intersection", RI_UNION = "union",
        RI_DIFFERENCE = "difference", RI_INSIDE = "inside", RI_OUTSIDE = "outside", RI_LH = "lh",
        RI_RH = "rh", RI_CONSTANT = "constant", RI_SMOOTH = "smooth", RI_FLATNESS = "flatness";

// Bytes per value of each type code. A string value counts as one 4-byte
// word here, as the sizes were set for 32-bit pointers; wherever string
// values are actually stored, real pointers are stored.
int param_sizes[10] = {0, 4, 12, 12, 4, 4, 12, 12, 16, 64};

namespace {

// The memory counters wrap rather than overflow on an enormous run.
void add_bytes(int& counter, size_t bytes) {
    counter =
        static_cast<int>(static_cast<unsigned int>(counter) + static_cast<unsigned int>(bytes));
}

// A token table entry owns its interned string: tokens live as long as the
// table, which is the whole run.
class TokenEntry : public HashTableEntry {
  public:
    explicit TokenEntry(char* copy) : HashTableEntry(copy) {}
    ~TokenEntry() override { myfree(const_cast<char*>(name)); }
};

}  // namespace

// The token table is defined first so that it is destroyed last: the
// declarations' names point into it. Both start with 5003 buckets and grow
// with the number of names, since a file may declare any amount of them.
HashTable token_table(5003, true);
DeclarationList declaration_list(5003, true);
int token_table_totalmem = 0;
int declaration_list_totalmem = 0;

// A null name has nothing to intern and gives a null token.
RtToken NewToken(const char* name) {
    if (name == nullptr) return nullptr;
    if (HashTableEntry* entry = token_table.find(name)) return entry->name;
    size_t length = std::strlen(name);
    char* copy = static_cast<char*>(myalloc(length + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, name, length + 1);
    token_table.insert(new TokenEntry(copy), 0);
    add_bytes(token_table_totalmem, length + 1 + sizeof(TokenEntry));
    return copy;
}

RtToken RiDeclare(const char* name, const char* declaration) {
    if (declaration != nullptr && declaration[0] != '\0') {
        return declaration_list.add(name, declaration);
    }
    return NewToken(name);
}

// ---- Declaration ----

Declaration::Declaration(const char* token) : HashTableEntry(token), type(0), detail(0), count(0) {}

Declaration::~Declaration() = default;

int Declaration::bytesize() const {
    if (type >= sizeof(param_sizes) / sizeof(param_sizes[0])) return 0;
    return count * param_sizes[type];
}

// A matrix (code 9) has no name here: it is accepted and sized, but prints
// with an empty type name.
const char* Declaration::type_name(int code) {
    static const char* const names[] = {"",        "float",  "point",  "color", "string",
                                        "integer", "vector", "normal", "hpoint"};
    if (code < 0 || code >= static_cast<int>(sizeof(names) / sizeof(names[0]))) return "";
    return names[code];
}

const char* Declaration::detailname(int code) {
    static const char* const names[] = {"uniform",  "varying",     "vertex",
                                        "constant", "facevarying", "facevertex"};
    if (code < 0 || code >= static_cast<int>(sizeof(names) / sizeof(names[0]))) return "";
    return names[code];
}

void Declaration::stringize(char* buffer) const {
    stringize(buffer, detail, type, count);
}

void Declaration::stringize(char* buffer, int detail, int type, int count) {
    int n =
        std::snprintf(buffer, DECLARATION_STRING_MAX, "%s %s", detailname(detail), type_name(type));
    if (n < 0 || n >= DECLARATION_STRING_MAX) return;
    char* end = buffer + n;
    size_t room = static_cast<size_t>(DECLARATION_STRING_MAX - n);
    if (count >= 2) {
        std::snprintf(end, room, "[%d]", count);
    } else if (count < 0) {
        std::snprintf(end, room, "[]");
    }
}

// ---- The declaration grammar ----

namespace {

struct Keyword {
    const char* word;
    int code;
};

// Consumes the first keyword that is a prefix of *text; no separator needed.
int take_prefix(const char*& text, const Keyword* keywords, size_t n, int none) {
    for (size_t i = 0; i < n; ++i) {
        size_t length = std::strlen(keywords[i].word);
        if (std::strncmp(text, keywords[i].word, length) == 0) {
            text += length;
            return keywords[i].code;
        }
    }
    return none;
}

// The array length as atoi reads it (leading white space and a sign allowed,
// no closing bracket needed). Out-of-range numbers are clamped to what the
// 16-bit count field can hold rather than wrapped.
int read_array_length(const char* text) {
    long value = std::strtol(text, nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, SHRT_MIN, SHRT_MAX));
}

}  // namespace

// Beyond the four classes of the original grammar, the classes "facevarying"
// and "facevertex" are read too: files declare texture coordinates with them
// (Declare "st" "facevarying float[2]"), and without them such a declaration
// read as one with no type, warned of a redeclaration and then rejected
// every use of the name.
ParsedDeclaration parse_declaration(const char* text) {
    static const Keyword classes[] = {
        {"uniform", CLASS_UNIFORM},         {"varying", CLASS_VARYING},
        {"vertex", CLASS_VERTEX},           {"constant", CLASS_CONSTANT},
        {"facevarying", CLASS_FACEVARYING}, {"facevertex", CLASS_FACEVERTEX}};
    static const Keyword types[] = {
        {"float", DECL_FLOAT},   {"integer", DECL_INTEGER}, {"point", DECL_POINT},
        {"color", DECL_COLOR},   {"string", DECL_STRING},   {"vector", DECL_VECTOR},
        {"normal", DECL_NORMAL}, {"hpoint", DECL_HPOINT},   {"matrix", DECL_MATRIX}};
    ParsedDeclaration parsed;
    parsed.detail = take_prefix(text, classes, 6, CLASS_UNIFORM);
    while (*text == ' ') ++text;
    parsed.type = take_prefix(text, types, 9, DECL_NONE);
    if (*text == '[') parsed.count = read_array_length(text + 1);
    return parsed;
}

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// The words of RiDeclare's grammar plus the newer ones. Longer words come
// before their prefixes ("integer" before "int").
const Keyword inline_classes[] = {
    {"uniform", CLASS_UNIFORM},         {"varying", CLASS_VARYING},
    {"vertex", CLASS_VERTEX},           {"constant", CLASS_CONSTANT},
    {"facevarying", CLASS_FACEVARYING}, {"facevertex", CLASS_FACEVERTEX}};
const Keyword inline_types[] = {
    {"float", DECL_FLOAT},   {"integer", DECL_INTEGER}, {"int", DECL_INTEGER},
    {"bool", DECL_INTEGER},  {"point", DECL_POINT},     {"color", DECL_COLOR},
    {"string", DECL_STRING}, {"vector", DECL_VECTOR},   {"normal", DECL_NORMAL},
    {"hpoint", DECL_HPOINT}, {"matrix", DECL_MATRIX}};

// A keyword that is a whole word: followed by a blank (or by "[" after a
// type, for the array length).
int take_word(const char*& text, const Keyword* keywords, size_t n, bool array_allowed) {
    for (size_t i = 0; i < n; ++i) {
        size_t length = std::strlen(keywords[i].word);
        if (std::strncmp(text, keywords[i].word, length) != 0) continue;
        const char next = text[length];  // inside the text: the word matched
        if (is_blank(next) || (array_allowed && next == '[')) {
            text += length;
            return keywords[i].code;
        }
    }
    return -1;
}

// "[n]" with 1 <= n <= the largest count a declaration holds.
bool take_array_length(const char*& text, int* count) {
    if (*text != '[') return true;
    char* end = nullptr;
    long value = std::strtol(text + 1, &end, 10);
    if (end == text + 1 || *end != ']' || value < 1 || value > SHRT_MAX) return false;
    *count = static_cast<int>(value);
    text = end + 1;
    return true;
}

void skip_blanks(const char*& text) {
    while (is_blank(*text)) ++text;
}

}  // namespace

bool parse_inline_declaration_words(const char* text, ParsedDeclaration* parsed,
                                    const char** rest) {
    // A declaration has a blank after its type word; a plain name, which is
    // what nearly every list holds, has none and is known at once.
    const char* blank = text;
    while (*blank != '\0' && !is_blank(*blank)) ++blank;
    if (*blank == '\0') return false;
    const size_t nclasses = sizeof inline_classes / sizeof inline_classes[0];
    const size_t ntypes = sizeof inline_types / sizeof inline_types[0];
    skip_blanks(text);
    ParsedDeclaration result;
    int detail = take_word(text, inline_classes, nclasses, false);
    if (detail >= 0) {
        result.detail = detail;
        skip_blanks(text);
    }
    // A "reference" parameter names the output it is connected to: its
    // value is a string whatever the type.
    static const Keyword reference[] = {{"reference", 1}};
    const bool is_reference = take_word(text, reference, 1, false) == 1;
    if (is_reference) skip_blanks(text);
    result.type = take_word(text, inline_types, ntypes, true);
    if (is_reference && result.type >= 0) result.type = DECL_STRING;
    if (result.type < 0 || !take_array_length(text, &result.count) || !is_blank(*text)) {
        return false;
    }
    skip_blanks(text);
    // The name is one word.
    if (*text == '\0' || std::strpbrk(text, " \t") != nullptr) return false;
    *parsed = result;
    *rest = text;
    return true;
}

namespace {

void redeclaration_warning(const char* name, const Declaration* old, const ParsedDeclaration& now) {
    char old_text[DECLARATION_STRING_MAX];
    char new_text[DECLARATION_STRING_MAX];
    old->stringize(old_text);
    Declaration::stringize(new_text, now.detail, now.type, now.count);
    QuillError(RIE_CONSISTENCY, RIE_WARNING, "\"%s\" (%s) redeclared as %s", name, old_text,
               new_text);
}

void store(Declaration* record, const ParsedDeclaration& parsed) {
    record->type = static_cast<unsigned char>(parsed.type);
    record->detail = static_cast<unsigned char>(parsed.detail);
    record->count = static_cast<short>(parsed.count);
}

}  // namespace

// A null name declares nothing and gives a null token; a null declaration
// reads as an empty one (uniform, no type, count 1).
RtToken DeclarationList::add(const char* name, const char* declaration) {
    if (name == nullptr) return nullptr;
    ParsedDeclaration parsed = parse_declaration(declaration ? declaration : "");
    if (Declaration* old = lookup(name)) {
        if (old->type != parsed.type || old->count != parsed.count) {
            redeclaration_warning(name, old, parsed);
        }
        store(old, parsed);
        return old->name;
    }
    RtToken token = NewToken(name);
    if (token == nullptr) return nullptr;
    Declaration* record = new Declaration(token);
    insert(record, 0);
    add_bytes(declaration_list_totalmem, sizeof(Declaration));
    store(record, parsed);
    return token;
}

namespace {

Declaration* declaration_cache[256];

size_t declaration_cache_slot(const char* name, size_t length) {
    const auto first = static_cast<unsigned char>(name[0]);
    const auto last = static_cast<unsigned char>(name[length - 1]);
    return (length * 31 + first * 7 + last) & 255;
}

}  // namespace

Declaration* find_declaration(const char* name) {
    return find_declaration(name, name ? strlen(name) : 0);
}

Declaration* find_declaration(const char* name, size_t length) {
    if (name == nullptr || name[0] == '\0') return declaration_list.lookup(name);
    Declaration*& cached = declaration_cache[declaration_cache_slot(name, length)];
    if (cached && strcmp(cached->name, name) == 0) return cached;
    Declaration* found = declaration_list.lookup(name);
    if (found) cached = found;
    return found;
}

int DeclarationList::size(const char* name) {
    Declaration* record = lookup(name);
    return record ? record->bytesize() : 0;
}

// ---- The standard identifiers ----

namespace {

struct StandardToken {
    RtToken* global;
    const char* declaration;
};

struct StandardNames {
    const char* declaration;
    const char* names[8];  // up to the first null
};

void declare_global(RtToken* global, const char* declaration) {
    RtToken token = RiDeclare(*global, declaration);
    if (token != nullptr) *global = token;
}

void declare_standard_tokens() {
    static const StandardToken tokens[] = {
        {&RI_INTENSITY, "float"},
        {&RI_LIGHTCOLOR, "color"},
        {&RI_FROM, "point"},
        {&RI_TO, "point"},
        {&RI_CONEANGLE, "float"},
        {&RI_CONEDELTAANGLE, "float"},
        {&RI_BEAMDISTRIBUTION, "float"},
        {&RI_KA, "float"},
        {&RI_KD, "float"},
        {&RI_KS, "float"},
        {&RI_KR, "float"},
        {&RI_ROUGHNESS, "float"},
        {&RI_TEXTURENAME, "string"},
        {&RI_SPECULARCOLOR, "color"},
        {&RI_MINDISTANCE, "float"},
        {&RI_MAXDISTANCE, "float"},
        {&RI_BACKGROUND, "color"},
        {&RI_DISTANCE, "float"},
        {&RI_AMPLITUDE, "float"},
        {&RI_N, "varying normal"},
        {&RI_NP, "point"},
        {&RI_P, "vertex point"},
        {&RI_PZ, "vertex float"},
        {&RI_PW, "vertex hpoint"},
        {&RI_CS, "varying color"},
        {&RI_OS, "varying color"},
        {&RI_S, "varying float"},
        {&RI_T, "varying float"},
        {&RI_ST, "varying float[2]"},
        {&RI_FOV, "float"},
    };
    for (const StandardToken& t : tokens) declare_global(t.global, t.declaration);
}

// Option and attribute names the program accepts in parameter lists.
void declare_option_names() {
    static const StandardNames groups[] = {
        {"integer", {"look_behind", "patch_maxlevel", "patch_minlevel"}},
        {"float", {"patch_multiplier"}},
        {"integer", {"verbose", "maxsamples", "minsamples", "use_hierarchy"}},
        {"float", {"branch_ratio", "max_branch_ratio"}},
        {"integer", {"max_raylevel", "debug"}},
        {"float", {"patchsize", "elemsize", "minsize"}},
        {"integer", {"has_caustics", "has_shadows"}},
        {"string",
         {"include", "texture", "shader", "serverresource", "resource", "casts_shadows",
          "shadows"}},
        {"integer", {"shadowrays"}},
        {"float", {"minshadowbias", "maxshadowbias"}},
        {"string", {"zonal"}},
        {"color", {"averagecolor", "emissioncolor", "refractioncolor"}},
        {"float", {"refractionindex"}},
        {"integer[2]", {"origin"}},
        {"string", {"verbosity"}},
        {"integer", {"steps", "minpatchsamples"}},
        {"string", {"cache"}},
        {"integer", {"prmanspecular", "cooktorrancespecular", "truedisplacement"}},
        {"string", {"name", "shadinggroup"}},
        {"float", {"displacement"}},
        {"integer", {"gridsize"}},
        {"integer[2]", {"bucketsize"}},
        {"string", {"algorithm", "interleave"}},
        {"integer", {"binary", "eyesplits", "jitter"}},
        {"float", {"bias0", "bias1", "zlerp"}},
        {"integer", {"texturememory", "geommemory"}},
        {"string", {"coordinatesystem"}},
        {"float", {"sphere"}},
        {"integer", {"enable gaussian", "enable lerp", "disable", "automatic", "pdisc", "pdisk"}},
        {"float[2]", {"colorclamp"}},
        {"integer", {"endofframe", "merge"}},
        {"string", {"sense"}},
        {"integer", {"nsamples"}},
        // Names of today's primitives and hider, declared as the standard
        // declares them so that their lists are read without reports.
        {"varying float", {"width"}},
        {"constant float", {"constantwidth"}},
        {"constant normal", {"constantnormal"}},
        {"string", {"depthfilter"}},
    };
    for (const StandardNames& group : groups) {
        for (const char* name : group.names) {
            if (name == nullptr) break;
            RiDeclare(name, group.declaration);
        }
    }
}

// Filter and texture names that are interned but carry no declaration.
void intern_filter_names() {
    static RtToken* const globals[] = {
        &_RI_BOX,   &_RI_CATMULL_ROM, &_RI_GAUSSIAN, &_RI_TRIANGLE, &_RI_SINC,     &_RI_FILTER,
        &_RI_WIDTH, &_RI_SWIDTH,      &_RI_TWIDTH,   &_RI_FILL,     &_RI_FIDELITY, &_RI_SAMPLES,
        &_RI_BLUR,  &_RI_SBLUR,       &_RI_TBLUR,    &_RI_BIAS,     &_RI_LERP,
    };
    for (RtToken* global : globals) declare_global(global, nullptr);
}

}  // namespace

// Run by every renderer's constructor. A second run finds every record with
// its type and count and only rewrites the class, so it prints nothing unless
// a standard name was redeclared to another type in between.
void DeclareStandardIdentifiers() {
    int saved_echo = echo_requests;
    echo_requests = 0;
    declare_standard_tokens();
    declare_option_names();
    declare_global(&_RI___NONDIFFUSE, "varying float");
    declare_global(&_RI___NONSPECULAR, "varying float");
    intern_filter_names();
    // The newer name of the archive search path, and the procedural path:
    // declared so that the plain names are read as strings.
    declaration_list.add("archive", "string");
    declaration_list.add("procedural", "string");
    echo_requests = saved_echo;
}

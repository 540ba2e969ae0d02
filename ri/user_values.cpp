// Option "user" and Attribute "user" values. Options live for the run of
// the interface; attributes are kept in one layer per attribute block, so
// that a value set inside a block is gone after its AttributeEnd.
#include "ri/user_values.h"

#include <cstring>
#include <map>
#include <vector>

#include "support/error.h"
#include "support/inline_declarations.h"

namespace {

// Most names one table holds: the names come from the file.
constexpr size_t USER_NAMES_MAX = 4096;
// Deepest attribute nesting followed; deeper blocks share the last layer
// (the attribute stack itself stops far earlier).
constexpr size_t USER_LAYERS_MAX = 1024;

typedef std::map<std::string, UserValue> UserTable;

UserTable options;
std::vector<UserTable> attribute_layers(1);
size_t layers_beyond = 0;  // blocks opened past USER_LAYERS_MAX

// The value of one parameter as its declaration types it.
bool typed_value(RtToken token, RtPointer value, UserValue* out) {
    const Declaration* decl = parameter_declaration(token);
    if (decl == nullptr || value == nullptr) return false;
    if (decl->type == DECL_STRING) {
        const char* text = *static_cast<const char* const*>(value);
        out->is_string = true;
        out->text = text ? text : "";
        return true;
    }
    if (decl->type == DECL_INTEGER) {
        int v;
        std::memcpy(&v, value, sizeof v);
        out->number = v;
        return true;
    }
    if (decl->type == DECL_NONE) return false;
    float v;  // float, and the first component of the other numeric types
    std::memcpy(&v, value, sizeof v);
    out->number = v;
    return true;
}

void store(UserTable& table, const char* family, RtInt n, RtToken tokens[], RtPointer values[]) {
    for (RtInt i = 0; i < n; i++) {
        if (tokens == nullptr || values == nullptr || tokens[i] == nullptr) return;
        UserValue value;
        if (!typed_value(tokens[i], values[i], &value)) {
            QuillError(RIE_BADTOKEN, RIE_WARNING, "%s \"user\" \"%s\" has no usable type; ignored",
                       family, tokens[i]);
            continue;
        }
        if (table.size() >= USER_NAMES_MAX && table.find(tokens[i]) == table.end()) {
            QuillError(RIE_LIMIT, RIE_WARNING, "Too many user values; \"%s\" ignored", tokens[i]);
            continue;
        }
        table[tokens[i]] = value;
    }
}

}  // namespace

void set_user_options(RtInt n, RtToken tokens[], RtPointer values[]) {
    store(options, "Option", n, tokens, values);
}

void set_user_attributes(RtInt n, RtToken tokens[], RtPointer values[]) {
    store(attribute_layers.back(), "Attribute", n, tokens, values);
}

void user_attributes_push() {
    if (attribute_layers.size() < USER_LAYERS_MAX) {
        attribute_layers.emplace_back();
    } else {
        ++layers_beyond;
    }
}

void user_attributes_pop() {
    if (layers_beyond > 0) {
        --layers_beyond;
    } else if (attribute_layers.size() > 1) {
        attribute_layers.pop_back();
    }
}

bool find_user_value(const std::string& name, UserValue* out) {
    for (auto layer = attribute_layers.rbegin(); layer != attribute_layers.rend(); ++layer) {
        auto found = layer->find(name);
        if (found != layer->end()) {
            *out = found->second;
            return true;
        }
    }
    auto found = options.find(name);
    if (found == options.end()) return false;
    *out = found->second;
    return true;
}

void clear_user_values() {
    options.clear();
    attribute_layers.assign(1, UserTable());
    layers_beyond = 0;
}

// Retained objects. The requests between ObjectBegin and its ObjectEnd are
// recorded as RIB text and nothing is drawn where they stand (the RenderMan
// way, and a departure from drawing object blocks in place, which showed
// nothing of a scene built from instances); each ObjectInstance reads the
// recorded text again inside an attribute block, so the object is drawn
// under the transformation and attributes current at the instance, exactly
// as if its requests stood there. Objects may be defined anywhere (before
// WorldBegin too) and live for the whole run, like the light numbers.
//
// Handles are numbers (ObjectBegin 1, ObjectBegin 1.0) or strings
// (ObjectBegin "name", as exporters write today); a number and a string are
// different handles. An ObjectInstance inside a definition is recorded like
// any request and looks its handle up when it is drawn. Recording shares
// its text form with the inline archives (rib/recorded_requests.h), and the
// replay reads that text through the reader like an inline archive, with
// the file's own line numbers in its reports.
//
// Bounds: the recorded objects hold at most object_bytes_max bytes in all;
// instances nest at most OBJECT_DEPTH_MAX deep and never inside themselves;
// a run draws at most object_nested_instances_max instances inside other
// instances, and object_nested_bytes_max bytes of their text (objects that
// each instance the one before twice, thirty deep, would otherwise draw a
// billion copies). Each bound is reported once and the stream goes on. A
// million instances written in a file cost a million small readings: linear
// in time, nothing kept per instance.
#include "rib/objects.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ri/attributes.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "rib/recorded_requests.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "support/error.h"

size_t object_bytes_max = size_t(128) << 20;
long long object_nested_instances_max = 2000000;
long long object_nested_bytes_max = 1LL << 30;

namespace {

struct ObjectHandle {
    std::string key;    // "#" and the number, or "$" and the string: one map for both
    std::string label;  // as reports name it: 7 or "name"
    int number;
    bool is_number;
};

struct RecordedObject {
    std::shared_ptr<const std::string> text;  // the requests, ending in a newline
    int file;                                 // index in file_names
    int first_line;                           // line of the first recorded token
};

std::unordered_map<std::string, RecordedObject> objects;
std::vector<std::string> file_names;
std::unordered_map<std::string, int> file_numbers;
size_t object_bytes = 0;
bool objects_over_bound = false;  // an object has not been kept for want of room

// Instances being drawn, outermost first; what the run (counted by
// interface_runs) has drawn inside instances; and which of the bounds on
// nesting have been reported in the outermost instance under way.
std::vector<std::string> drawing;
long budget_run = -1;
long long nested_instances = 0;
long long nested_bytes = 0;
bool nested_budget_spent = false;
bool nested_depth_reported = false;

size_t charged_bytes(const std::string& key, const RecordedObject& object) {
    return object.text->size() + key.size() + OBJECT_RECORD_BYTES;
}

// Bytes a file name costs the first time an object of that file is kept
// (it is kept once, in a list and in its index).
size_t file_name_bytes(const std::string& file) {
    return file_numbers.count(file) != 0 ? 0 : 2 * file.size() + OBJECT_RECORD_BYTES;
}

int file_index(const std::string& file) {
    auto found = file_numbers.find(file);
    if (found != file_numbers.end()) return found->second;
    const int index = static_cast<int>(file_names.size());
    file_names.push_back(file);
    file_numbers.emplace(file, index);
    return index;
}

// A handle is a quoted string or a number (read as an integer); false after
// the number reader's report.
bool read_handle(ObjectHandle* handle) {
    char text[RIB_TOKEN_MAX];
    const int code = read_RIB_token(text);
    if (code == TOKEN_STRING) {
        handle->key = std::string("$") + text;
        handle->label = std::string("\"") + text + "\"";
        handle->is_number = false;
        return true;
    }
    RIBparse_return_token(text, code);
    if (RIBparse_read_number(text) != 0) return false;
    handle->number = rib_atoi(text);
    handle->key = "#" + std::to_string(handle->number);
    handle->label = std::to_string(handle->number);
    handle->is_number = true;
    return true;
}

void report_unknown(const ObjectHandle& handle) {
    if (handle.is_number) {
        QuillError(RIE_BADHANDLE, RIE_ERROR, "Unknown object handle %d", handle.number);
    } else {
        QuillError(RIE_BADHANDLE, RIE_ERROR, "Unknown object handle %s", handle.label.c_str());
    }
}

void forget_object(const ObjectHandle& handle) {
    auto old = objects.find(handle.key);
    if (old == objects.end()) return;
    object_bytes -= charged_bytes(old->first, old->second);
    objects.erase(old);
}

void report_not_kept(const ObjectHandle& handle) {
    if (!objects_over_bound) {
        QuillError(RIE_LIMIT, RIE_ERROR,
                   "Object %s not kept: objects would hold more than %zu bytes (later ones that "
                   "do not fit are not kept either)",
                   handle.label.c_str(), object_bytes_max);
    }
    objects_over_bound = true;
}

// Keeps the object, recorded from file, under its handle in place of an
// earlier one of the same handle, when the bound leaves room for it. One
// that is not kept takes the earlier one with it: the handle then names
// nothing.
void keep_object(const ObjectHandle& handle, std::string text, const std::string& file,
                 int first_line) {
    auto old = objects.find(handle.key);
    const size_t freed = old != objects.end() ? charged_bytes(old->first, old->second) : 0;
    const size_t needed = text.size() + handle.key.size() + OBJECT_RECORD_BYTES;
    const size_t file_bytes = file_name_bytes(file);
    if (object_bytes - freed + needed + file_bytes > object_bytes_max) {
        report_not_kept(handle);
        forget_object(handle);
        return;
    }
    object_bytes = object_bytes - freed + needed + file_bytes;
    RecordedObject object{std::make_shared<const std::string>(std::move(text)), file_index(file),
                          first_line};
    if (old != objects.end()) {
        old->second = std::move(object);
    } else {
        objects.emplace(handle.key, std::move(object));
    }
}

// ---- Drawing an instance ----

// Counts an instance inside another against the run's budget; false
// (after one report) when it is spent, or when the instance would nest too
// deeply or inside itself.
bool may_draw(const ObjectHandle& handle, size_t bytes) {
    if (budget_run != interface_runs) {
        budget_run = interface_runs;
        nested_instances = nested_bytes = 0;
        nested_budget_spent = false;
    }
    if (drawing.empty()) {
        nested_depth_reported = false;
        return true;
    }
    for (const std::string& key : drawing) {
        if (key != handle.key) continue;
        if (!nested_depth_reported) {
            QuillError(RIE_NESTING, RIE_ERROR, "ObjectInstance %s inside itself; not drawn",
                       handle.label.c_str());
        }
        nested_depth_reported = true;
        return false;
    }
    if (drawing.size() >= static_cast<size_t>(OBJECT_DEPTH_MAX)) {
        if (!nested_depth_reported) {
            QuillError(RIE_LIMIT, RIE_ERROR, "ObjectInstance nested more than %d deep: %s skipped",
                       OBJECT_DEPTH_MAX, handle.label.c_str());
        }
        nested_depth_reported = true;
        return false;
    }
    if (nested_budget_spent) return false;
    nested_instances++;
    nested_bytes += static_cast<long long>(bytes);
    if (nested_instances <= object_nested_instances_max &&
        nested_bytes <= object_nested_bytes_max) {
        return true;
    }
    nested_budget_spent = true;
    QuillError(RIE_LIMIT, RIE_ERROR,
               "ObjectInstance: instances inside instances exceed %lld instances or %lld bytes "
               "in this run; %s and all later ones inside instances skipped",
               object_nested_instances_max, object_nested_bytes_max, handle.label.c_str());
    return false;
}

// Closes what the object left open, down to the levels of the instance's
// own attribute block (attribute levels, then transformation levels). A
// level that will not close (a frame's floor) ends the closing.
void close_levels_above(int attributes, int transforms) {
    for (int depth; (depth = attribute_stack_depth()) > attributes;) {
        RiAttributeEnd();
        if (attribute_stack_depth() >= depth) break;
    }
    for (int depth; (depth = transform_stack_depth()) > transforms;) {
        RiTransformEnd();
        if (transform_stack_depth() >= depth) break;
    }
}

// Reads the object's text as a stream of its own inside an attribute block,
// exactly as if the requests stood there: an AttributeEnd too many in the
// object closes the instance's block (and the block is then not closed
// again), as it would in place. Levels the object leaves open are closed,
// so that the scene after the instance is read at its own level.
void draw_instance(const ObjectHandle& handle, const RecordedObject& object) {
    const std::shared_ptr<const std::string> text = object.text;
    const std::string label = file_names[size_t(object.file)] + " [object " + handle.label + "]";
    FILE* stream = fmemopen(const_cast<char*>(text->data()), text->size(), "r");
    if (stream == nullptr) {
        QuillError(RIE_NOMEM, RIE_ERROR, "Cannot draw object %s", handle.label.c_str());
        return;
    }
    RibStreamState saved;
    const int echo = RIB_echo;
    RIBparse_save_state(&saved);
    RiAttributeBegin();
    const int attributes = attribute_stack_depth();
    const int transforms = transform_stack_depth();
    drawing.push_back(handle.key);
    ParseRIB_stream(stream, label.c_str(), RIBparse_searchpath(), echo, object.first_line);
    drawing.pop_back();
    std::fclose(stream);
    RIBparse_restore_state(&saved);
    RIB_echo = echo;
    close_levels_above(attributes, transforms);
    if (attribute_stack_depth() == attributes) RiAttributeEnd();
}

}  // namespace

void read_object_begin() {
    ObjectHandle handle;
    if (!read_handle(&handle)) return;
    std::string text;
    int line = RIB_lineno;
    const int first_line = line;
    bool keep = true;
    const size_t room = object_bytes_max - std::min(object_bytes, object_bytes_max);
    const std::string file = RIB_filename != nullptr ? RIB_filename : "";
    if (record_requests("ObjectBegin", "ObjectEnd", &text, &line, &keep, room) ==
        RecordEnd::EndOfStream) {
        QuillError(RIE_SYNTAX, RIE_ERROR, "ObjectBegin %s without ObjectEnd; not kept",
                   handle.label.c_str());
        return;
    }
    if (!keep) {
        report_not_kept(handle);
        forget_object(handle);
        return;
    }
    // A request last in the text is read only when white space follows it.
    text += '\n';
    keep_object(handle, std::move(text), file, first_line);
}

// An ObjectEnd met while reading (not recording) closes no definition.
void read_object_end() {
    QuillError(RIE_NESTING, RIE_ERROR, "ObjectEnd without ObjectBegin");
}

void read_object_instance() {
    ObjectHandle handle;
    if (!read_handle(&handle)) return;
    auto found = objects.find(handle.key);
    if (found == objects.end()) {
        // Once objects have been dropped for want of room, a handle not
        // found is most likely one of them, already reported.
        if (!objects_over_bound) report_unknown(handle);
        return;
    }
    const RecordedObject object = found->second;
    if (!may_draw(handle, object.text->size())) return;
    draw_instance(handle, object);
}

void release_objects() {
    objects.clear();
    file_names.clear();
    file_numbers.clear();
    object_bytes = 0;
    objects_over_bound = false;
    drawing.clear();
    budget_run = -1;
}

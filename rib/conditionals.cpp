// IfBegin, ElseIf, Else and IfEnd. A condition that holds lets the reader go
// on through its branch; the other branches are skipped token by token
// (nested blocks counted) without being carried out. A condition that does
// not parse is reported and its branch read as if it held. Variables come
// from Option and Attribute "user" ($user:name) and the frame number
// ($Frame).
#include "rib/conditionals.h"

#include <string>
#include <vector>

#include "ri/options.h"
#include "ri/renderer.h"
#include "ri/user_values.h"
#include "rib/condition_expression.h"
#include "rib/modern_requests.h"
#include "rib/tokenizer.h"
#include "support/error.h"

namespace {

// Deepest nesting of blocks kept; deeper ones are reported and their
// branches all read.
constexpr size_t IF_DEPTH_MAX = 1024;

struct IfBlock {
    bool taken;     // a branch of this block has been chosen
    bool else_met;  // its Else has been read: no ElseIf or Else may follow
};

std::vector<IfBlock> blocks;
size_t blocks_beyond = 0;    // blocks past IF_DEPTH_MAX, read whole
std::vector<size_t> floors;  // the depth at which each open stream began

size_t floor_of_stream() {
    return floors.empty() ? 0 : floors.back();
}

bool block_open_in_stream() {
    return blocks_beyond > 0 || blocks.size() > floor_of_stream();
}

// $Frame, and user values by "user:name" (or a plain name).
bool lookup_variable(const std::string& name, ConditionValue* value) {
    if (name == "Frame") {
        if (renderer == nullptr) return false;
        value->is_string = false;
        value->number = static_cast<double>(renderer->frame_number);
        return true;
    }
    const std::string prefix = "user:";
    std::string key =
        name.compare(0, prefix.size(), prefix) == 0 ? name.substr(prefix.size()) : name;
    UserValue user;
    if (!find_user_value(key, &user)) return false;
    value->is_string = user.is_string;
    value->text = user.text;
    value->number = user.number;
    return true;
}

// Reads the condition string of keyword and evaluates it; a missing string
// (reported by the reader) or a malformed condition counts as true.
bool read_condition(const char* keyword) {
    char text[RIB_TOKEN_MAX];
    if (RIBparse_quoted_string(text) != 0) return true;
    std::string error;
    ConditionResult result = evaluate_condition(text, lookup_variable, &error);
    if (result == ConditionResult::Malformed) {
        QuillError(RIE_SYNTAX, RIE_ERROR, "%s \"%s\": %s; read as true", keyword, text,
                   error.c_str());
        return true;
    }
    return result == ConditionResult::True;
}

enum class BranchEnd { ElseIf, Else, IfEnd, EndOfStream };

// Skips tokens up to the ElseIf, Else or IfEnd of the current block.
BranchEnd skip_branch() {
    char token[RIB_TOKEN_MAX];
    int nested = 0;
    for (;;) {
        int code = read_RIB_token(token);
        if (code == TOKEN_EOF || code == TOKEN_END || RIBparse_at_eof()) {
            return BranchEnd::EndOfStream;
        }
        if (code != TOKEN_IDENTIFIER) continue;
        const std::string word = token;
        if (word == "IfBegin") {
            ++nested;
        } else if (word == "IfEnd") {
            if (nested == 0) return BranchEnd::IfEnd;
            --nested;
        } else if (nested == 0 && word == "ElseIf") {
            return BranchEnd::ElseIf;
        } else if (nested == 0 && word == "Else") {
            return BranchEnd::Else;
        }
    }
}

// An ElseIf or a second Else after the Else of its block is reported; the
// block has chosen its branch by then (the Else is always taken when no
// branch before it was), so what follows is skipped up to the IfEnd.
// Returns whether the word came after the Else.
bool after_else(const char* keyword) {
    IfBlock& block = blocks.back();
    if (!block.else_met) return false;
    QuillError(RIE_SYNTAX, RIE_ERROR, "%s after Else; the rest of the block skipped", keyword);
    return true;
}

// Skips branches of the innermost block until one is chosen or the block
// ends. Conditions after a chosen branch are read but not evaluated.
void skip_to_chosen_branch() {
    for (;;) {
        switch (skip_branch()) {
            case BranchEnd::IfEnd:
                blocks.pop_back();
                return;
            case BranchEnd::EndOfStream:
                return;  // the end of the stream reports the open block
            case BranchEnd::Else:
                if (after_else("Else")) break;
                blocks.back().else_met = true;
                if (!blocks.back().taken) {
                    blocks.back().taken = true;
                    return;
                }
                break;
            case BranchEnd::ElseIf: {
                if (after_else("ElseIf") || blocks.back().taken) {
                    char text[RIB_TOKEN_MAX];
                    RIBparse_quoted_string(text);
                } else if (read_condition("ElseIf")) {
                    blocks.back().taken = true;
                    return;
                }
                break;
            }
        }
    }
}

void report_unopened(const char* keyword) {
    QuillError(RIE_SYNTAX, RIE_ERROR, "%s without IfBegin", keyword);
}

}  // namespace

void read_if_begin() {
    const bool holds = read_condition("IfBegin");
    if (blocks_beyond > 0 || blocks.size() >= IF_DEPTH_MAX) {
        if (blocks_beyond++ == 0) RMError(RIE_LIMIT, RIE_ERROR, "IfBegin nested too deeply");
        return;
    }
    blocks.push_back(IfBlock{holds, false});
    if (!holds) skip_to_chosen_branch();
}

// Met while reading a chosen branch: the rest of the block is skipped.
void read_else_if() {
    char text[RIB_TOKEN_MAX];
    if (!block_open_in_stream()) {
        report_unopened("ElseIf");
        RIBparse_quoted_string(text);
        return;
    }
    RIBparse_quoted_string(text);
    if (blocks_beyond > 0) return;
    after_else("ElseIf");
    skip_to_chosen_branch();
}

void read_else() {
    if (!block_open_in_stream()) {
        report_unopened("Else");
        return;
    }
    if (blocks_beyond > 0) return;
    if (!after_else("Else")) blocks.back().else_met = true;
    skip_to_chosen_branch();
}

void read_if_end() {
    if (!block_open_in_stream()) {
        report_unopened("IfEnd");
    } else if (blocks_beyond > 0) {
        --blocks_beyond;
    } else {
        blocks.pop_back();
    }
}

void conditionals_stream_begin() {
    floors.push_back(blocks.size());
}

void conditionals_stream_end() {
    const size_t floor = floor_of_stream();
    if (blocks.size() > floor || blocks_beyond > 0) {
        QuillError(RIE_SYNTAX, RIE_ERROR, "IfBegin without IfEnd (%zu open at the end of %s)",
                   blocks.size() - floor + blocks_beyond, RIB_filename ? RIB_filename : "input");
        blocks.resize(floor);
        blocks_beyond = 0;
    }
    if (!floors.empty()) floors.pop_back();
}

// The stack of requests under way, kept by the dispatcher, and the placement
// of replayed archives in the files they were recorded from.
#include "rib/request_place.h"

#include "rib/tokenizer.h"
#include "support/error.h"

namespace {

std::vector<RequestPlace> under_way;
uint64_t next_serial = 0;

// While an inline archive is replayed: its file and the shift of its lines.
const char* placed_file = nullptr;
int placed_shift = 0;

}  // namespace

const std::vector<RequestPlace>& requests_under_way() {
    return under_way;
}

const char* current_source_file() {
    if (placed_file != nullptr) return placed_file;
    return RIB_filename != nullptr ? RIB_filename : "";
}

int current_source_line() {
    return RIBparse_source_line() + placed_shift;
}

// Archives nest at most a few dozen deep, so the stack stays small; it is
// popped by the scope, whatever the request did in between.
// The place is written field by field into the stack's own slot: a whole
// record built aside and copied in was read back before its parts were
// stored, which stalled every request.
RequestScope::RequestScope(const char* keyword) {
    RequestPlace& place = under_way.emplace_back();
    place.keyword = keyword;
    place.file = current_source_file();
    place.line = current_source_line();
    place.serial = next_serial++;
}

RequestScope::~RequestScope() {
    under_way.pop_back();
}

SourcePlacement::SourcePlacement(const char* file, int line_shift)
    : saved_file_(placed_file), saved_shift_(placed_shift) {
    placed_file = file;
    placed_shift = file != nullptr ? line_shift : 0;
}

SourcePlacement::~SourcePlacement() {
    placed_file = saved_file_;
    placed_shift = saved_shift_;
}

// libFuzzer entry for the RIB reader: every input is read as one RIB file by
// a freshly begun interface whose errors are ignored, and the interface is
// then reset, so that each input starts from the same state.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "driver/globals.h"
#include "preview/x11_previewer.h"
#include "ri/renderer.h"
#include "rib/archive_reads.h"
#include "rib/objects.h"
#include "rib/requests.h"

namespace {

// Spoils every occurrence of the request name ErrorHandler, so that an input
// cannot install the printing or aborting handler, whose severe reports end
// the process.
void neutralise_error_handler(std::vector<char>& bytes) {
    static const char word[] = "ErrorHandler";
    const size_t length = sizeof word - 1;
    for (size_t i = 0; i + length <= bytes.size(); i++) {
        if (std::memcmp(&bytes[i], word, length) == 0) bytes[i] = 'X';
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    std::vector<char> input(data, data + size);
    neutralise_error_handler(input);

    wait_for_last_frame = 0;
    x11_window_enabled = 0;  // the reader is under test, not the window
    // Archives that read each other twice at every level are cut off by a
    // byte budget; a small one keeps such inputs within the time limit.
    archive_bytes_max = 16 << 20;
    // Objects that instance the one before twice, the same way.
    object_nested_instances_max = 2000;
    object_nested_bytes_max = 16 << 20;
    drawing_on = 1;
    reset_interface_state();
    RiBegin(nullptr);
    RiErrorHandler(RiErrorIgnore);
    FILE* stream = fmemopen(input.data(), input.size(), "r");
    if (stream != nullptr) {
        ParseRIB_stream(stream, "fuzz.rib", "", 0);
        std::fclose(stream);
    }
    reset_interface_state();
    release_rib_tables();
    return 0;
}

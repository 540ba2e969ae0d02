// Reader benchmark: reads each RIB file named on the command line several
// times through ParseRIB and prints the median throughput per file.
//
// Usage: tracery_bench [-n REPEATS] [-draw] FILE...
// By default the primitives are not drawn (the geometry reader still reads
// and checks every list), so that the figure is the reader's alone; -draw
// calls the interface procedures as the program does.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "driver/globals.h"
#include "preview/x11_previewer.h"
#include "ri/renderer.h"
#include "rib/parameters.h"
#include "rib/requests.h"

namespace {

// Primitives that passed the reader's checks in the last read.
long primitives_read = 0;

void skip_primitive(const RibGeometryCall&) {
    primitives_read++;
}

double file_megabytes(const char* path) {
    struct stat info;
    if (stat(path, &info) != 0) return -1.0;
    return double(info.st_size) / 1e6;
}

// Seconds taken by one read of path by a freshly begun interface.
double timed_read(const char* path) {
    reset_interface_state();
    RiBegin(nullptr);
    RiErrorHandler(RiErrorIgnore);
    primitives_read = 0;
    const auto start = std::chrono::steady_clock::now();
    ParseRIB(path, "", 0, 1);
    const auto stop = std::chrono::steady_clock::now();
    reset_interface_state();
    return std::chrono::duration<double>(stop - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

int usage() {
    std::fprintf(stderr, "usage: tracery_bench [-n REPEATS] [-draw] FILE...\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    int repeats = 5;
    bool draw = false;
    int first = 1;
    for (; first < argc && argv[first][0] == '-'; first++) {
        if (std::strcmp(argv[first], "-n") == 0 && first + 1 < argc) {
            repeats = std::max(1, std::atoi(argv[++first]));
        } else if (std::strcmp(argv[first], "-draw") == 0) {
            draw = true;
        } else {
            return usage();
        }
    }
    if (first == argc) return usage();

    wait_for_last_frame = 0;
    x11_window_enabled = 0;  // reading is measured, not drawing
    if (!draw) rib_geometry_hook = skip_primitive;
    // The reader's own messages would only slow the reading down.
    if (std::freopen("/dev/null", "w", stderr) == nullptr) return 1;

    int status = 0;
    for (int i = first; i < argc; i++) {
        const double megabytes = file_megabytes(argv[i]);
        if (megabytes <= 0) {
            std::printf("%-24s unreadable or empty\n", argv[i]);
            status = 1;
            continue;
        }
        std::vector<double> rates;
        for (int r = 0; r < repeats; r++) rates.push_back(megabytes / timed_read(argv[i]));
        std::printf("%-24s %8.1f MB/s  (median of %d reads of %.1f MB", argv[i], median(rates),
                    repeats, megabytes);
        if (!draw) std::printf(", %ld primitives", primitives_read);
        std::printf(")\n");
        std::fflush(stdout);
    }
    return status;
}

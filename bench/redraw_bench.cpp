// The interactive window's redraw, timed: reads a RIB file as tracery -i
// does (every frame drawn into the window and kept), then draws the last
// frame again through a free camera turning a little each time, as a drag
// does, each redraw waited for until the X server has drawn it. Prints the
// frame's size, the store's bytes per point and per segment, and the
// redraw times.
//
//   tracery_redraw_bench [-n REDRAWS] [-server PID] [tracery options] FILE
//
// Needs an X display. tools/run_redraw_bench.py runs it on a virtual one
// with both pinned to one processor. With the X server's process number the
// processor time both spend on a redraw is printed too: on a machine that
// others share it is what the wall time would be on a quiet one.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "driver/command_line.h"
#include "preview/frame_store.h"
#include "preview/interactive_view.h"
#include "preview/kept_drawing.h"
#include "preview/x11_window.h"
#include "preview/x11_previewer.h"
#include "rib/requests.h"

namespace {

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0.0 : v[v.size() / 2];
}

size_t index_bytes(const KeptFrame& f) {
    return f.indices.size() * sizeof(uint32_t);
}

// Seconds of processor time this process has used.
double own_cpu_seconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// Seconds of processor time process pid has used (user and system), from
// /proc; 0 when it cannot be read.
double process_cpu_seconds(long pid) {
    if (pid <= 0) return 0.0;
    const std::string path = "/proc/" + std::to_string(pid) + "/stat";
    std::FILE* f = std::fopen(path.c_str(), "r");
    if (f == nullptr) return 0.0;
    char text[4096];
    const size_t n = std::fread(text, 1, sizeof text - 1, f);
    std::fclose(f);
    text[n] = '\0';
    // The fields after the command name (which is in parentheses).
    const char* p = std::strrchr(text, ')');
    if (p == nullptr) return 0.0;
    unsigned long long utime = 0, stime = 0;
    if (std::sscanf(p + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu", &utime,
                    &stime) != 2) {
        return 0.0;
    }
    return double(utime + stime) / double(sysconf(_SC_CLK_TCK));
}

}  // namespace

int main(int argc, char** argv) {
    int redraws = 50;
    long server = 0;
    int first = 1;
    for (;;) {
        if (first + 1 < argc && std::strcmp(argv[first], "-n") == 0) {
            redraws = std::max(1, std::atoi(argv[first + 1]));
        } else if (first + 1 < argc && std::strcmp(argv[first], "-server") == 0) {
            server = std::atol(argv[first + 1]);
        } else {
            break;
        }
        first += 2;
    }
    if (first >= argc) {
        std::fprintf(stderr, "usage: tracery_redraw_bench [-n REDRAWS] [options] FILE\n");
        return 2;
    }
    // The program's own command line, as tracery would see it.
    std::vector<char*> args = {argv[0]};
    for (int k = first; k < argc; ++k) args.push_back(argv[k]);

    FrameStore store(~size_t(0));
    WindowHold hold;
    kept_frames = &store;
    window_hold = &hold;
    const auto read_start = std::chrono::steady_clock::now();
    run_once(int(args.size()), args.data());
    store.end_reading();
    const double read_seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - read_start).count();
    if (!hold.window || store.frame_count() == 0) {
        std::fprintf(stderr, "nothing was drawn\n");
        return 1;
    }
    const KeptFrame& frame = store.frame(store.frame_count() - 1);
    const size_t points = frame.points.size() / 3, segments = frame.segment_count();

    ViewCamera camera, start;
    InteractiveView view(*hold.window, store, camera, nullptr);
    float min[3], max[3];
    frame.bound(min, max);
    const WorldPoint pivot = {(min[0] + max[0]) / 2.0, (min[1] + max[1]) / 2.0,
                              (min[2] + max[2]) / 2.0};
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("segments %zu points %zu primitives %zu\n", segments, points,
                frame.primitives.size());
    std::printf("store %.1f MB: %.2f bytes a segment (%.2f of indices), 12 a point\n",
                frame.bytes() / 1e6, double(frame.bytes()) / double(segments),
                double(index_bytes(frame)) / double(segments));
    std::printf("read and drawn %.2f s, peak memory %.1f MB\n", read_seconds,
                usage.ru_maxrss / 1024.0);

    // Each way of redrawing turns the camera by the same steps.
    auto measure = [&](const char* label, auto redraw) {
        std::vector<double> times;
        const double own_before = own_cpu_seconds(), server_before = process_cpu_seconds(server);
        for (int k = 0; k < redraws; ++k) {
            camera.orbit(start, frame.view, pivot, 0.5 * (k + 1), 0.25 * (k + 1));
            const auto t0 = std::chrono::steady_clock::now();
            redraw();
            times.push_back(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        }
        const double own_ms = 1000.0 * (own_cpu_seconds() - own_before) / redraws;
        const double server_ms = 1000.0 * (process_cpu_seconds(server) - server_before) / redraws;
        const double ms = 1000.0 * median(times);
        std::printf("%-22s wall median %6.1f ms (%5.1f a second)", label, ms, 1000.0 / ms);
        if (server > 0) {
            std::printf("; processor %5.1f ms here + %5.1f ms server = %5.1f ms", own_ms, server_ms,
                        own_ms + server_ms);
        }
        std::printf("\n");
    };
    measure("redraw", [&] { view.redraw(); });
    // The window's sink reads whether to cull when it is made.
    setenv("TRACERY_WINDOW_CULLING", "off", 1);
    measure("redraw without cull", [&] { view.redraw(); });
    unsetenv("TRACERY_WINDOW_CULLING");
    struct NullSink : LineSink {
        void segment(int, int, int, int) override {}
        void segments(const RasterSegment*, size_t) override {}
    } null_sink;
    measure("lines made, not sent",
            [&] { draw_kept_frame(frame, camera.projection(frame.view), null_sink); });
    kept_frames = nullptr;
    window_hold = nullptr;
    hold.window.reset();
    release_rib_tables();
    return 0;
}

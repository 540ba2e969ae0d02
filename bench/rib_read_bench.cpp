// Reader benchmark: times the whole program reading each RIB file beside the
// floor of RIB reading (a program that only splits tokens and converts the
// numbers), and prints for each file both times, their ratio and the
// program's peak memory.
//
// Usage: tracery_bench -floor FLOOR -program TRACERY [-n REPEATS] FILE...
// The program runs as `TRACERY -nowait FILE` and the floor as `FLOOR FILE`,
// each from the file's folder, without a start-up file, with their output
// thrown away; the program draws into its window, so run it under an X
// server (tools/run_bench.sh starts a virtual one). The two run in turn, REPEATS times each (default
// 5), so that a change of the machine's speed hits both alike; times are the
// processes' own processor time (user + system), the ratio is the median of
// the ratios of the pairs (floor time / program time: 1 means the program
// reads as fast as the floor), and peak memory is the largest resident size
// of the program over its runs.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct RunResult {
    bool ok = false;
    double seconds = 0;  // user + system
    long peak_kib = 0;
};

double file_megabytes(const char* path) {
    struct stat info;
    if (stat(path, &info) != 0) return -1.0;
    return double(info.st_size) / 1e6;
}

std::string folder_of(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string base_of(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Runs argv from folder with its output discarded and returns its processor
// time and peak resident size, as the system accounts for that one child.
RunResult run(const std::vector<std::string>& args, const std::string& folder) {
    RunResult result;
    pid_t child = fork();
    if (child < 0) return result;
    if (child == 0) {
        int null = open("/dev/null", O_RDWR);
        if (null >= 0) {
            dup2(null, 0);
            dup2(null, 1);
            dup2(null, 2);
        }
        if (chdir(folder.c_str()) != 0) _exit(127);
        setenv("HOME", "/nonexistent", 1);
        std::vector<char*> argv;
        for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    struct rusage usage;
    if (wait4(child, &status, 0, &usage) != child) return result;
    result.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    result.seconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    result.peak_kib = usage.ru_maxrss;
    return result;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

// An absolute path to a program given relative to the starting folder, since
// the runs change folder.
std::string absolute(const char* path) {
    char* resolved = realpath(path, nullptr);
    if (resolved == nullptr) return path;
    std::string out = resolved;
    std::free(resolved);
    return out;
}

int usage() {
    std::fprintf(stderr,
                 "usage: tracery_bench -floor FLOOR -program TRACERY [-n REPEATS] FILE...\n");
    return 2;
}

// Times one file; false when a run failed.
bool bench_file(const char* path, const std::string& floor, const std::string& program,
                int repeats) {
    const double megabytes = file_megabytes(path);
    if (megabytes <= 0) {
        std::printf("%-28s unreadable or empty\n", path);
        return false;
    }
    const std::string folder = folder_of(path), name = base_of(path);
    std::vector<double> floor_times, program_times, ratios;
    long peak_kib = 0;
    for (int r = 0; r < repeats; r++) {
        RunResult f = run({floor, name}, folder);
        RunResult p = run({program, "-nowait", name}, folder);
        if (!f.ok || !p.ok) {
            std::printf("%-28s a run failed (floor %s, program %s)\n", path, f.ok ? "ok" : "failed",
                        p.ok ? "ok" : "failed");
            return false;
        }
        floor_times.push_back(f.seconds);
        program_times.push_back(p.seconds);
        ratios.push_back(p.seconds > 0 ? f.seconds / p.seconds : 0.0);
        peak_kib = std::max(peak_kib, p.peak_kib);
    }
    const double program_time = median(program_times);
    std::printf("%-28s %7.1f %9.3f %9.3f %7.2f %9.1f %9.1f\n", path, megabytes, median(floor_times),
                program_time, median(ratios), program_time > 0 ? megabytes / program_time : 0.0,
                double(peak_kib) / 1024.0);
    std::fflush(stdout);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    int repeats = 5;
    std::string floor, program;
    int first = 1;
    for (; first < argc && argv[first][0] == '-'; first++) {
        if (first + 1 >= argc) return usage();
        if (std::strcmp(argv[first], "-n") == 0) {
            repeats = std::max(1, std::atoi(argv[++first]));
        } else if (std::strcmp(argv[first], "-floor") == 0) {
            floor = absolute(argv[++first]);
        } else if (std::strcmp(argv[first], "-program") == 0) {
            program = absolute(argv[++first]);
        } else {
            return usage();
        }
    }
    if (first == argc || floor.empty() || program.empty()) return usage();

    std::printf("%-28s %7s %9s %9s %7s %9s %9s\n", "file", "MB", "floor s", "program s", "ratio",
                "MB/s", "peak MiB");
    int status = 0;
    for (int i = first; i < argc; i++) {
        if (!bench_file(argv[i], floor, program, repeats)) status = 1;
    }
    std::printf("(processor seconds, medians of %d runs each; ratio = floor / program)\n", repeats);
    return status;
}

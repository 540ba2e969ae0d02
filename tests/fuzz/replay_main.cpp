// A plain main for a fuzz target's entry function: runs LLVMFuzzerTestOneInput
// once on every file named (directories are walked), so that saved fuzzing
// inputs are replayed by the normal test suite without a fuzzing compiler.
// Prints the number of inputs replayed; a fault ends the run as it would the
// fuzzer (a crash, or a sanitizer report in a sanitizer build).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

namespace {

void collect(const fs::path& path, std::vector<fs::path>& files) {
    if (fs::is_directory(path)) {
        for (const auto& entry : fs::recursive_directory_iterator(path)) {
            if (entry.is_regular_file()) files.push_back(entry.path());
        }
    } else {
        files.push_back(path);
    }
}

// Source files and notes that live beside the inputs are not inputs.
bool is_input(const fs::path& path) {
    std::string ext = path.extension().string();
    return ext != ".cpp" && ext != ".h" && ext != ".md" && ext != ".txt";
}

}  // namespace

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    // The dumps an input asks for are not wanted here; reports still show.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) collect(argv[i], files);
    std::sort(files.begin(), files.end());
    int replayed = 0;
    for (const fs::path& file : files) {
        if (!is_input(file)) continue;
        std::ifstream in(file, std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        std::fprintf(stderr, "replaying %s\n", file.string().c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++replayed;
    }
    std::fprintf(stderr, "%d inputs replayed\n", replayed);
    return 0;
}

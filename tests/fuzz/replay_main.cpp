// Runs LLVMFuzzerTestOneInput over saved inputs, so that every build (gcc
// included) checks the corpus of each fuzz target. Arguments: files or
// folders; folders are read one level deep, in name order. Fails when no
// input was found, so that a missing corpus is noticed.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace {

std::vector<std::filesystem::path> inputs(int argc, char **argv) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path arg(argv[i]);
        std::error_code ec;
        if (std::filesystem::is_directory(arg, ec)) {
            std::vector<std::filesystem::path> here;
            for (const auto &entry : std::filesystem::directory_iterator(arg, ec))
                if (entry.is_regular_file())
                    here.push_back(entry.path());
            std::sort(here.begin(), here.end());
            files.insert(files.end(), here.begin(), here.end());
        } else if (std::filesystem::is_regular_file(arg, ec)) {
            files.push_back(arg);
        } else {
            std::fprintf(stderr, "no such input: %s\n", argv[i]);
        }
    }
    return files;
}

} // namespace

int main(int argc, char **argv) {
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> files = inputs(argc, argv);
    for (const auto &file : files) {
        std::ifstream in(file, std::ios::binary);
        std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
        // A copy of exactly the input's size, so that reading one byte too
        // far is seen by the sanitizers.
        std::vector<uint8_t> exact(data);
        exact.shrink_to_fit();
        LLVMFuzzerTestOneInput(exact.empty() ? nullptr : exact.data(), exact.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}

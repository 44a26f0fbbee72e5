// Runs a fuzz target over files, without a fuzzer: what was found once stays found.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i]))
            files.push_back(argv[i]);
        else
            for (const auto& entry : fs::directory_iterator(argv[i]))
                files.push_back(entry.path());
    }
    for (const fs::path& path : files) {
        std::fprintf(stderr, "%s\n", path.c_str());
        std::ifstream stream(path, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    return files.empty();
}

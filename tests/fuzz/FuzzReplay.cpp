// Runs a fuzz target's LLVMFuzzerTestOneInput once on each file named, or on
// each file of each folder named, in name order, where libFuzzer is not
// linked. Exits 1 when there was nothing to run, so that a missing corpus
// cannot pass for a clean one; a fault ends the program as it would end the
// fuzzer.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::filesystem::path> inputsOf(const std::filesystem::path& arg) {
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(arg)) {
        for (const auto& entry : std::filesystem::directory_iterator(arg))
            if (entry.is_regular_file())
                files.push_back(entry.path());
        std::sort(files.begin(), files.end());
    } else if (std::filesystem::is_regular_file(arg)) {
        files.push_back(arg);
    }
    return files;
}

} // namespace

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& file : inputsOf(argv[i])) {
            std::ifstream in(file, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                          std::istreambuf_iterator<char>());
            // A fault would name no input otherwise.
            std::fprintf(stderr, "%s\n", file.c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    std::printf("%zu inputs run\n", count);
    return count > 0 ? 0 : 1;
}

#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace fuzzsupport {

/// A folder of this process's own, in memory where the machine has /dev/shm
/// (a fuzzer writes a file per input), removed when the process ends
/// normally. A run that dies leaves it behind for the reproduction.
class Scratch {
public:
    Scratch() {
        const std::filesystem::path base = std::filesystem::is_directory("/dev/shm")
                                               ? std::filesystem::path("/dev/shm")
                                               : std::filesystem::temp_directory_path();
        std::string pattern = (base / "tavrix-fuzz-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            std::abort();
        dir = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string path(const std::string& name) const { return dir + "/" + name; }

    /// Writes `size` bytes to `name`, replacing what was there.
    void write(const std::string& name, const void* data, size_t size) const {
        std::ofstream out(path(name), std::ios::binary | std::ios::trunc);
        out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
        if (!out)
            std::abort();
    }
    void write(const std::string& name, const std::string& text) const {
        write(name, text.data(), text.size());
    }

    std::string dir;
};

} // namespace fuzzsupport

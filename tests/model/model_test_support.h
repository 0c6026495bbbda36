#pragma once
// Helpers of the model tests: a scratch folder that is removed again, and file access by UTF-8
// path on both platforms.
#include <atomic>
#include <filesystem>
#include <string>

#include "platform/clock.h"
#include "platform/file_io.h"

class ScratchFolder {
public:
    ScratchFolder() {
        static std::atomic<int> counter{0};
        const auto unique = std::to_string(platform::MonotonicMicroseconds()) + "-" + std::to_string(counter++);
        path_ = std::filesystem::temp_directory_path() / ("kestrel-model-" + unique);
        std::filesystem::create_directories(path_);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    // A path inside the folder, as UTF-8.
    std::string File(const std::string& name) const {
        const auto u8 = (path_ / name).u8string();
        return std::string(u8.begin(), u8.end());
    }
    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

inline std::string ReadText(const std::string& path) {
    std::string text;
    platform::ReadWholeFile(path, text);
    return text;
}

inline void WriteText(const std::string& path, const std::string& text) { platform::WriteFileReplacing(path, text); }

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/file_io.h"

namespace platform {
namespace {

bool WriteAll(int fd, const std::string& content) {
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool ReadWholeFile(const std::string& path, std::string& content) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat info {};
    if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
        ::close(fd);
        return false;
    }
    std::string data;
    char buffer[65536];
    bool ok = true;
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) ok = false;
        if (n <= 0) break;
        data.append(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    if (ok) content = std::move(data);
    return ok;
}

bool WriteFileReplacing(const std::string& path, const std::string& content) {
    const std::string temp = path + ".tmp";
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    // The data reaches the disk before the rename makes it the file, so even a power loss leaves
    // the old or the new content.
    const bool written = WriteAll(fd, content) && ::fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || ::rename(temp.c_str(), path.c_str()) != 0) {
        ::unlink(temp.c_str());
        return false;
    }
    return true;
}

bool CopyFileOverwriting(const std::string& from, const std::string& to) {
    std::string content;
    if (!ReadWholeFile(from, content)) return false;
    return WriteFileReplacing(to, content);
}

bool FileExists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

bool RemoveFile(const std::string& path) { return ::unlink(path.c_str()) == 0; }

std::FILE* OpenFile(const std::string& path, const char* mode) { return std::fopen(path.c_str(), mode); }

}  // namespace platform

#include <windows.h>
#include <algorithm>

#include "platform/win32/wide_text.h"
#include "platform/file_io.h"

namespace platform {
namespace {


struct FileHandle {
    HANDLE h;
    explicit FileHandle(HANDLE handle) : h(handle) {}
    ~FileHandle() {
        if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    bool Close() {
        const bool ok = CloseHandle(h) != 0;
        h = INVALID_HANDLE_VALUE;
        return ok;
    }
};

}  // namespace

bool ReadWholeFile(const std::string& path, std::string& content) {
    FileHandle file(CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.h == INVALID_HANDLE_VALUE) return false;
    std::string data;
    char buffer[65536];
    for (;;) {
        DWORD n = 0;
        if (!ReadFile(file.h, buffer, sizeof buffer, &n, nullptr)) return false;
        if (n == 0) break;
        data.append(buffer, n);
    }
    content = std::move(data);
    return true;
}

bool WriteFileReplacing(const std::string& path, const std::string& content) {
    const std::wstring target = Wide(path);
    const std::wstring temp = target + L".tmp";
    FileHandle file(CreateFileW(temp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.h == INVALID_HANDLE_VALUE) return false;
    bool ok = true;
    size_t done = 0;
    while (ok && done < content.size()) {
        const DWORD chunk = static_cast<DWORD>(std::min<size_t>(content.size() - done, 1u << 20));
        DWORD n = 0;
        ok = WriteFile(file.h, content.data() + done, chunk, &n, nullptr) && n == chunk;
        done += n;
    }
    ok = ok && FlushFileBuffers(file.h);
    ok = file.Close() && ok;
    if (!ok || !MoveFileExW(temp.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        DeleteFileW(temp.c_str());
        return false;
    }
    return true;
}

bool CopyFileOverwriting(const std::string& from, const std::string& to) {
    return CopyFileW(Wide(from).c_str(), Wide(to).c_str(), FALSE) != 0;
}

bool FileExists(const std::string& path) { return GetFileAttributesW(Wide(path).c_str()) != INVALID_FILE_ATTRIBUTES; }

bool RemoveFile(const std::string& path) { return DeleteFileW(Wide(path).c_str()) != 0; }

std::FILE* OpenFile(const std::string& path, const char* mode) { return _wfopen(Wide(path).c_str(), Wide(mode).c_str()); }

}  // namespace platform

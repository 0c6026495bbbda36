#pragma once
// The platform seam for whole-file reads and writes. Paths are UTF-8 (converted to UTF-16 at the
// Win32 call). A write goes to a temporary file in the same folder that is then renamed over the
// target, so a process that dies mid-write leaves either the old file or the new one, never a
// truncated one.
#include <cstdio>
#include <string>

namespace platform {

// False when the file cannot be opened or read.
bool ReadWholeFile(const std::string& path, std::string& content);
// Writes `content` to "<path>.tmp" and renames it over `path` (MoveFileExW with
// MOVEFILE_REPLACE_EXISTING on Windows, rename elsewhere). False, with `path` untouched, when the
// temporary file cannot be written or the rename fails.
bool WriteFileReplacing(const std::string& path, const std::string& content);
// Copies `from` over `to` (CopyFileW on Windows). False when `from` cannot be read or `to` cannot
// be written.
bool CopyFileOverwriting(const std::string& from, const std::string& to);
// std::fopen for a UTF-8 path (_wfopen on Windows, where fopen takes the ANSI code page).
std::FILE* OpenFile(const std::string& path, const char* mode);
bool FileExists(const std::string& path);
bool RemoveFile(const std::string& path);

}  // namespace platform

// Reads back the resources of a built Windows program, the way Windows itself reads them: the
// application manifest (RT_MANIFEST 1, printed byte for byte), the version information through
// GetFileVersionInfoW (the numbers and every string Explorer's Details tab shows) and the icon
// groups (each image's size and colour depth, and whether the RT_ICON it names is really there).
//
//   read_resources FILE manifest|version|icons
//
// Exit code 0 when the part asked for was found, 1 when not, 2 for a usage error.
#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

void Print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

std::string Utf8(const std::wstring& wide) {
    if (wide.empty()) return {};
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0, nullptr,
                                         nullptr);
    std::string text(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(), size, nullptr, nullptr);
    return text;
}

HMODULE LoadAsData(const std::wstring& file) {
    return LoadLibraryExW(file.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
}

bool PrintManifest(const std::wstring& file) {
    HMODULE module = LoadAsData(file);
    if (module == nullptr) return false;
    HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));  // RT_MANIFEST
    bool found = false;
    if (resource != nullptr) {
        const DWORD size = SizeofResource(module, resource);
        const void* bytes = LockResource(LoadResource(module, resource));
        if (bytes != nullptr) {
            Print(std::string(static_cast<const char*>(bytes), size));
            found = true;
        }
    }
    FreeLibrary(module);
    return found;
}

bool PrintVersion(const std::wstring& file) {
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeW(file.c_str(), &handle);
    if (size == 0) return false;
    std::vector<char> data(size);
    if (!GetFileVersionInfoW(file.c_str(), 0, size, data.data())) return false;
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) || fixed == nullptr) {
        return false;
    }
    char numbers[160];
    auto part = [](DWORD value, bool high) { return static_cast<unsigned>(high ? HIWORD(value) : LOWORD(value)); };
    std::snprintf(numbers, sizeof(numbers), "FileVersion (fixed): %u.%u.%u.%u\nProductVersion (fixed): %u.%u.%u.%u\n",
                  part(fixed->dwFileVersionMS, true), part(fixed->dwFileVersionMS, false),
                  part(fixed->dwFileVersionLS, true), part(fixed->dwFileVersionLS, false),
                  part(fixed->dwProductVersionMS, true), part(fixed->dwProductVersionMS, false),
                  part(fixed->dwProductVersionLS, true), part(fixed->dwProductVersionLS, false));
    Print(numbers);
    struct Translation {
        WORD language, codePage;
    }* translation = nullptr;
    if (!VerQueryValueW(data.data(), L"\\VarFileInfo\\Translation", reinterpret_cast<void**>(&translation), &length) ||
        length < sizeof(Translation)) {
        return false;
    }
    wchar_t block[64];
    std::swprintf(block, 64, L"\\StringFileInfo\\%04x%04x\\", translation->language, translation->codePage);
    char code[32];
    std::snprintf(code, sizeof(code), "Translation: %04x%04x\n", translation->language, translation->codePage);
    Print(code);
    for (const wchar_t* name : {L"CompanyName", L"FileDescription", L"FileVersion", L"InternalName", L"LegalCopyright",
                                L"OriginalFilename", L"ProductName", L"ProductVersion"}) {
        wchar_t* value = nullptr;
        UINT chars = 0;
        const std::wstring path = std::wstring(block) + name;
        if (VerQueryValueW(data.data(), path.c_str(), reinterpret_cast<void**>(&value), &chars) && value != nullptr) {
            Print(Utf8(name) + ": " + Utf8(value) + "\n");
        } else {
            Print(Utf8(name) + ": (missing)\n");
        }
    }
    return true;
}

#pragma pack(push, 2)
struct GroupIconEntry {
    BYTE width, height, colorCount, reserved;
    WORD planes, bitCount;
    DWORD bytesInRes;
    WORD id;
};
struct GroupIconHeader {
    WORD reserved, type, count;
};
#pragma pack(pop)

struct IconSearch {
    HMODULE module;
    int groups = 0;
};

BOOL CALLBACK PrintIconGroup(HMODULE module, LPCWSTR, LPWSTR name, LONG_PTR parameter) {
    auto& search = *reinterpret_cast<IconSearch*>(parameter);
    HRSRC resource = FindResourceW(module, name, MAKEINTRESOURCEW(14));  // RT_GROUP_ICON
    const auto* bytes = static_cast<const BYTE*>(LockResource(LoadResource(module, resource)));
    const DWORD size = SizeofResource(module, resource);
    if (bytes == nullptr || size < sizeof(GroupIconHeader)) return TRUE;
    const auto& header = *reinterpret_cast<const GroupIconHeader*>(bytes);
    std::string line = "icon group ";
    line += IS_INTRESOURCE(name) ? std::to_string(reinterpret_cast<ULONG_PTR>(name)) : Utf8(name);
    line += ": " + std::to_string(header.count) + " images:";
    const auto* entries = reinterpret_cast<const GroupIconEntry*>(bytes + sizeof(GroupIconHeader));
    for (WORD i = 0; i < header.count && sizeof(GroupIconHeader) + (i + 1) * sizeof(GroupIconEntry) <= size; ++i) {
        const GroupIconEntry& entry = entries[i];
        HRSRC image = FindResourceW(module, MAKEINTRESOURCEW(entry.id), MAKEINTRESOURCEW(3));  // RT_ICON
        const bool present = image != nullptr && SizeofResource(module, image) == entry.bytesInRes;
        char text[64];
        std::snprintf(text, sizeof(text), " %dx%dx%u%s", entry.width == 0 ? 256 : entry.width,
                      entry.height == 0 ? 256 : entry.height, static_cast<unsigned>(entry.bitCount),
                      present ? "" : "(image missing)");
        line += text;
    }
    Print(line + "\n");
    ++search.groups;
    return TRUE;
}

bool PrintIcons(const std::wstring& file) {
    HMODULE module = LoadAsData(file);
    if (module == nullptr) return false;
    IconSearch search{module};
    EnumResourceNamesW(module, MAKEINTRESOURCEW(14), PrintIconGroup, reinterpret_cast<LONG_PTR>(&search));
    FreeLibrary(module);
    return search.groups > 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    _setmode(_fileno(stdout), _O_BINARY);  // the manifest byte for byte, lines ending in "\n"
    if (argc != 3) {
        std::fputs("usage: read_resources FILE manifest|version|icons\n", stderr);
        return 2;
    }
    const std::wstring file = argv[1];
    const std::wstring part = argv[2];
    bool found;
    if (part == L"manifest") {
        found = PrintManifest(file);
    } else if (part == L"version") {
        found = PrintVersion(file);
    } else if (part == L"icons") {
        found = PrintIcons(file);
    } else {
        std::fputs("usage: read_resources FILE manifest|version|icons\n", stderr);
        return 2;
    }
    if (!found) std::fprintf(stderr, "read_resources: no %ls in %ls\n", part.c_str(), file.c_str());
    return found ? 0 : 1;
}

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sstream>
#include <vector>

#include "platform/file_io.h"
#include "platform/settings_store.h"

namespace platform {
namespace {

std::mutex g_locationMutex;
std::string g_location;  // empty: the default

struct Value {
    bool isDword = false;
    uint32_t dword = 0;
    std::string text;
};
using Values = std::map<std::string, Value>;

std::string ConfigFolder() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg != nullptr && xdg[0] == '/') return std::string(xdg) + "/kestrel";
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") + "/.config/kestrel";
}

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool MakeFolders(const std::string& folder) {
    if (folder.empty()) return true;
    for (size_t i = 1; i <= folder.size(); ++i) {
        if (i == folder.size() || folder[i] == '/') {
            const std::string part = folder.substr(0, i);
            if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
        }
    }
    return true;
}

std::string Escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') out += "\\\\";
        else if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else out += c;
    }
    return out;
}

std::string Unescape(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            const char next = text[++i];
            out += next == 'n' ? '\n' : next == 'r' ? '\r' : next;
        } else {
            out += text[i];
        }
    }
    return out;
}

// Lines that do not parse are skipped.
Values ParseValues(const std::string& content) {
    Values values;
    std::istringstream lines(content);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t eq = line.find('=');
        if (eq == std::string::npos || eq == 0) continue;
        const std::string name = line.substr(0, eq);
        const std::string rest = line.substr(eq + 1);
        Value value;
        if (rest.rfind("REG_DWORD:", 0) == 0) {
            const std::string digits = rest.substr(10);
            char* end = nullptr;
            errno = 0;
            const unsigned long long number = std::strtoull(digits.c_str(), &end, 10);
            if (digits.empty() || *end != '\0' || errno != 0 || number > 0xFFFFFFFFull || digits[0] == '-') continue;
            value.isDword = true;
            value.dword = static_cast<uint32_t>(number);
        } else if (rest.rfind("REG_SZ:", 0) == 0) {
            value.text = Unescape(rest.substr(7));
        } else {
            continue;
        }
        values[name] = value;
    }
    return values;
}

class FileSettingsKey : public SettingsKey {
public:
    FileSettingsKey(std::string path, Values values, bool writable)
        : path_(std::move(path)), values_(std::move(values)), writable_(writable) {}

    ~FileSettingsKey() override {
        if (!writable_ || !dirty_) return;
        std::string content;
        for (const auto& [name, value] : order_) {
            content += name + "=" + (value.isDword ? "REG_DWORD:" + std::to_string(value.dword)
                                                   : "REG_SZ:" + Escape(value.text)) + "\n";
        }
        // Values of the old file that were not written this time are kept after the new ones.
        for (const auto& [name, value] : values_) {
            bool written = false;
            for (const auto& entry : order_) written = written || entry.first == name;
            if (written) continue;
            content += name + "=" + (value.isDword ? "REG_DWORD:" + std::to_string(value.dword)
                                                   : "REG_SZ:" + Escape(value.text)) + "\n";
        }
        WriteFileReplacing(path_, content);
    }

    bool QueryDword(const char* name, uint32_t& value) override {
        const auto it = values_.find(name);
        if (it == values_.end() || !it->second.isDword) return false;
        value = it->second.dword;
        return true;
    }

    bool QueryString(const char* name, std::string& value) override {
        const auto it = values_.find(name);
        if (it == values_.end() || it->second.isDword) return false;
        value = it->second.text;
        return true;
    }

    void SetDword(const char* name, uint32_t value) override {
        Value v;
        v.isDword = true;
        v.dword = value;
        Set(name, v);
    }

    void SetString(const char* name, const std::string& value) override {
        Value v;
        v.text = value;
        Set(name, v);
    }

private:
    void Set(const std::string& name, const Value& value) {
        for (auto& entry : order_) {
            if (entry.first == name) {
                entry.second = value;
                dirty_ = true;
                return;
            }
        }
        order_.emplace_back(name, value);
        dirty_ = true;
    }

    std::string path_;
    Values values_;  // as read
    std::vector<std::pair<std::string, Value>> order_;  // as written, in order
    bool writable_;
    bool dirty_ = false;
};

}  // namespace

std::string SettingsLocation() {
    std::lock_guard<std::mutex> lock(g_locationMutex);
    return g_location.empty() ? ConfigFolder() + "/settings" : g_location;
}

void SetSettingsLocation(const std::string& location) {
    std::lock_guard<std::mutex> lock(g_locationMutex);
    g_location = location;
}

std::unique_ptr<SettingsKey> OpenSettingsForRead() {
    const std::string path = SettingsLocation();
    std::string content;
    if (!ReadWholeFile(path, content)) return nullptr;
    return std::make_unique<FileSettingsKey>(path, ParseValues(content), false);
}

std::unique_ptr<SettingsKey> OpenSettingsForWrite() {
    const std::string path = SettingsLocation();
    if (!MakeFolders(FolderOf(path))) return nullptr;
    std::string content;
    ReadWholeFile(path, content);
    return std::make_unique<FileSettingsKey>(path, ParseValues(content), true);
}

}  // namespace platform

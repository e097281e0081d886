#include "PowerFactorLoader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>

#include "AppInfoUtil.h"
#include "CString.h"
#include "Log.h"
#include "LogTexts.h"
#include "ReadableFile.h"

namespace powermeter {

namespace {

constexpr const char kFallbackDirectory[] =
    "/opt/usr/apps/com.veltrix.tv.wex-framework/shared/res/";
constexpr const char kDataFileName[] = "energy_factors.dat";

// A whole file in one buffer, not zero-filled first.
struct FileText {
    std::unique_ptr<char[]> data;
    size_t size = 0;
};

// Reads the file in one go (more reads only if it grows meanwhile). False when it cannot be
// opened; a read error ends the text where it happened, as it ends a stream, and so does a
// buffer that cannot be had (the loader never throws).
bool read_whole_file(const std::string& path, FileText& text) {
    // A FIFO or a device counts as a data set that cannot be opened: it could block the open
    // or be read without end. The type is the opened file's, so the probe is the open itself.
    mode_t type = 0;
    const int fd = common::OpenWithoutBlocking(path, &type);
    if (fd < 0) {
        return false;
    }
    if (common::IsSpecialType(type)) {
        close(fd);
        return false;
    }
    struct stat info {};
    size_t capacity =
        fstat(fd, &info) == 0 && info.st_size > 0 ? static_cast<size_t>(info.st_size) + 1 : 4096;
    text.data.reset(new (std::nothrow) char[capacity]);
    text.size = 0;
    while (text.data) {
        if (text.size == capacity) {
            std::unique_ptr<char[]> bigger(new (std::nothrow) char[capacity * 2]);
            if (!bigger) {
                break;
            }
            std::memcpy(bigger.get(), text.data.get(), text.size);
            text.data = std::move(bigger);
            capacity *= 2;
        }
        const ssize_t n = read(fd, text.data.get() + text.size, capacity - text.size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        text.size += static_cast<size_t>(n);
    }
    close(fd);
    return true;
}

// Splits text into lines as std::getline does: at '\n', with no empty line after a final one.
class Lines {
  public:
    Lines(const char* begin, size_t size) : next_(begin), end_(begin + size) {}
    bool Next(std::string_view& line) {
        if (next_ == end_) {
            return false;
        }
        const char* stop = static_cast<const char*>(std::memchr(next_, '\n', end_ - next_));
        const char* const line_end = stop != nullptr ? stop : end_;
        line = std::string_view(next_, line_end - next_);
        next_ = stop != nullptr ? stop + 1 : end_;
        return true;
    }

  private:
    const char* next_;
    const char* const end_;
};

}  // namespace

bool PowerFactorLoader::Load(PowerFactors& out) {
    std::string panel;
    if (!get_panel_type(panel)) {
        ELOGE("[Energy] Failed to get panel type");
        return false;
    }
    std::string sw;
    if (!get_sw_model(sw)) {
        ELOGE("[Energy] Failed to get sw model");
        return false;
    }
    return Load(panel, sw, out);
}

bool PowerFactorLoader::Load(const std::string& panel_type, const std::string& sw_model,
                             PowerFactors& out) {
    if (!validate_panel_type(panel_type)) {
        ELOGE("[Energy] Invalid Panel Type");
        return false;
    }
    std::vector<PowerFactors> candidates = make_candidates(sw_model);
    if (candidates.empty()) {
        ELOGE("[Energy] No matched SW Model");
        return false;
    }
    return find_one_with_panel_type(candidates, panel_type, out);
}

std::vector<PowerFactors> PowerFactorLoader::make_candidates(const std::string& sw_model) {
    ELOGI("[Energy] Find a power factors for %s", sw_model.c_str());
    std::vector<PowerFactors> candidates;
    const std::string path = get_data_file_path();
    FileText text;
    if (!read_whole_file(path, text)) {
        ELOGE("[Energy] Cannot open to %s", path.c_str());
        return candidates;
    }
    Lines lines(text.data.get(), text.size);
    std::string_view line;
    version_.assign(lines.Next(line) ? line : std::string_view());
    print_version();
    // Every row is checked (and a bad one reported) without copying; only a row of this SW
    // model is parsed into a record.
    std::string_view row_sw_model;
    while (lines.Next(line)) {
        if (!PowerFactors::Screen(line, row_sw_model) || row_sw_model != sw_model) {
            continue;
        }
        PowerFactors row;
        row.Parse(std::string(line));
        candidates.push_back(row);
        ELOGD("[Energy] candidate panel type");
        row.PrintInfo();
    }
    return candidates;
}

bool PowerFactorLoader::find_one_with_panel_type(std::vector<PowerFactors>& candidates,
                                                 const std::string& panel_type, PowerFactors& out) {
    ELOGE("[Energy] Find a power factors for %s", panel_type.c_str());
    if (find_same_panel_type(candidates, panel_type, out)) {
        return true;
    }
    if (find_similar_panel_type(candidates, panel_type, out)) {
        return true;
    }
    ELOGE("[Energy] there is no proper factors");
    return false;
}

bool PowerFactorLoader::find_same_panel_type(std::vector<PowerFactors>& candidates,
                                             const std::string& panel_type, PowerFactors& out) {
    for (const PowerFactors& candidate : candidates) {
        if (candidate.IsSamePanelType(panel_type)) {
            out = candidate;
            return true;
        }
    }
    return false;
}

bool PowerFactorLoader::find_similar_panel_type(std::vector<PowerFactors>& candidates,
                                                const std::string& panel_type, PowerFactors& out) {
    for (const PowerFactors& candidate : candidates) {
        if (candidate.IsSimilarPanelType(panel_type)) {
            out = candidate;
            return true;
        }
    }
    return false;
}

bool PowerFactorLoader::find_one_with_panel_type(const std::string& panel_type, PowerFactors& out) {
    ELOGI("[Energy] Find a power factors for %s", panel_type.c_str());
    const std::string path = get_data_file_path();
    // As in Load: a FIFO or a device counts as a file that cannot be opened.
    std::ifstream in;
    if (!common::IsSpecialFile(path)) {
        in.open(path);
    }
    if (!in.is_open()) {
        ELOGE("[Energy] Cannot open to %s", path.c_str());
        return false;
    }
    std::getline(in, version_);
    print_version();
    PowerFactors similar;
    bool have_similar = false;
    std::string line;
    while (std::getline(in, line)) {
        if (!out.Parse(line)) {
            continue;
        }
        if (out.IsSamePanelType(panel_type)) {
            return true;
        }
        if (!have_similar && out.IsSimilarPanelType(panel_type)) {
            similar = out;
            have_similar = true;
        }
    }
    out = similar;
    return out.IsValid();
}

bool PowerFactorLoader::get_sw_model(std::string& sw) {
    try {
        sw = get_system_info(SYSTEM_INFO_KEY_MODEL, "sw model");
    } catch (const std::runtime_error& e) {
        ELOGE("[Energy] %s", e.what());
        return false;
    }
    ELOGI("%s%s", logtext::kSwModel, sw.c_str());
    return true;
}

bool PowerFactorLoader::get_panel_type(std::string& panel) {
    try {
        panel = get_system_info(SYSTEM_INFO_KEY_PANEL_TYPE_STRING, "panel type");
    } catch (const std::runtime_error& e) {
        ELOGE("[Energy] %s", e.what());
        return false;
    }
    ELOGI("%s%s", logtext::kPanelType, panel.c_str());
    return true;
}

std::string PowerFactorLoader::get_system_info(system_info_key_e key, const char* label) {
    char* value = nullptr;
    const int code = system_info_get_value_string(key, &value);
    std::string text = common::TakeString(value);
    if (code != SYSTEM_INFO_ERROR_NONE) {
        throw std::runtime_error(make_error_msg(label, code));
    }
    return text;
}

std::string PowerFactorLoader::get_system_info(const char* key) {
    char* value = nullptr;
    const int code = system_info_get_custom_string(key, &value);
    std::string text = common::TakeString(value);
    if (code != SYSTEM_INFO_ERROR_NONE) {
        throw std::runtime_error(make_error_msg(key, code));
    }
    return text;
}

std::string PowerFactorLoader::make_error_msg(const char* label, int code) {
    return std::string("fail to get ") + label + ": " + std::to_string(code);
}

std::string PowerFactorLoader::get_data_file_path() {
    const std::string dir = AppInfoUtil::GetSharedResourcePath();
    ELOGD("[Energy] data file path %s", dir.c_str());
    return (dir.empty() ? std::string(kFallbackDirectory) : dir) + kDataFileName;
}

bool PowerFactorLoader::validate_panel_type(const std::string& p) {
    return p.size() > 8;
}

void PowerFactorLoader::PrintVersion() const {
    print_version();
}

void PowerFactorLoader::print_version() const {
    ELOGI("[Energy] Data File Version: %s", version_.c_str());
}

}  // namespace powermeter

#include "TestSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testsupport {

std::vector<uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

std::string ReadText(const std::string& path) {
    auto bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
}

void WriteText(const std::string& path, const std::string& text) {
    WriteBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
}

void FlipByte(const std::string& path, size_t offset, uint8_t mask) {
    auto bytes = ReadBytes(path);
    if (offset >= bytes.size()) {
        throw std::out_of_range("FlipByte offset past the end of " + path);
    }
    bytes[offset] ^= mask;
    WriteBytes(path, bytes);
}

void CutTo(const std::string& path, size_t size) {
    if (truncate(path.c_str(), static_cast<off_t>(size)) != 0) {
        throw std::runtime_error("cannot truncate " + path);
    }
}

void PlantTrailing(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::app);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

void PutU32(std::vector<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

void PutF64(std::vector<uint8_t>& out, double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    for (int i = 0; i < 8; ++i) {
        out.push_back(static_cast<uint8_t>(bits >> (8 * i)));
    }
}

void SimTest::SetUp() {
    tvsim::Reset();
    tvsim::SetLogEcho(false);
    tvsim::SetLogObserver(nullptr);
    tvsim::ClearLog();
    wexfhost::Reset();
    mark_ = tvsim::LogMark();
}

void SimTest::TearDown() {
    tvsim::Reset();
    wexfhost::Reset();
}

bool SimTest::Logged(int priority, const std::string& tag, const std::string& message) const {
    return tvsim::Logged(priority, tag, message, mark_);
}

size_t SimTest::CountLogged(int priority, const std::string& tag,
                            const std::string& message) const {
    return tvsim::CountLogged(priority, tag, message, mark_);
}

std::vector<std::string> SimTest::Messages(const std::string& tag) const {
    std::vector<std::string> out;
    for (const auto& line : tvsim::LinesSince(mark_)) {
        if (line.tag == tag) {
            out.push_back(line.Message());
        }
    }
    return out;
}

}  // namespace testsupport

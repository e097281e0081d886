#include "TestSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testsupport {

Bytes ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

std::string ReadText(const std::string& path) {
    const Bytes bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

static void Write(const std::string& path, const Bytes& bytes, std::ios::openmode mode) {
    std::ofstream out(path, std::ios::binary | mode);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
}

void WriteBytes(const std::string& path, const Bytes& bytes) {
    Write(path, bytes, std::ios::trunc);
}

void WriteText(const std::string& path, const std::string& text) {
    WriteBytes(path, Bytes(text.begin(), text.end()));
}

void FlipByte(const std::string& path, size_t offset, uint8_t mask) {
    Bytes bytes = ReadBytes(path);
    bytes.at(offset) ^= mask;
    WriteBytes(path, bytes);
}

void CutTo(const std::string& path, size_t size) {
    if (truncate(path.c_str(), static_cast<off_t>(size)) != 0) {
        throw std::runtime_error("cannot truncate " + path);
    }
}

void PlantTrailing(const std::string& path, const Bytes& bytes) {
    Write(path, bytes, std::ios::app);
}

bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

void PutU32(Bytes& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

void PutF64(Bytes& out, double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    PutU32(out, static_cast<uint32_t>(bits));
    PutU32(out, static_cast<uint32_t>(bits >> 32));
}

void CleanWorld::Reset() {
    // Enabling restarts the count of virtual waits; disabling releases any parked wait.
    vclock::Enable(0);
    vclock::Disable();
    tvsim::Reset();
    tvsim::SetLogEcho(false);
    tvsim::SetLogObserver(nullptr);
    tvsim::SetLogRetention(200000);
    tvsim::ClearLog();
    wexfhost::Reset();
    wexfhost::SetNotificationObserver(nullptr);
    wexfhost::SetEventObserver(nullptr);
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

std::vector<std::string> SimTest::Catalogue(const std::string& tag, uint64_t since) const {
    std::vector<std::string> out;
    for (const auto& line : tvsim::LinesSince(since)) {
        if (line.tag == tag) {
            out.push_back(std::string(1, tvsim::PriorityName(line.priority)[0]) + " " +
                          line.Message());
        }
    }
    return out;
}

}  // namespace testsupport

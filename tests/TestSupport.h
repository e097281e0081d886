// Shared test helpers: a fixture that puts the simulated world back in its default state,
// a temporary directory, byte-level file helpers and log catalogues.
#pragma once

#include <dlog.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TempDir.h"
#include "VirtualClock.h"
#include "tvsim/Simulator.h"
#include "wexfhost/FrameworkHost.h"

namespace testsupport {

// A fresh directory under $TMPDIR or /tmp, removed with everything in it on destruction.
using TempDir = hostkit::TempDir;

using Bytes = std::vector<uint8_t>;
Bytes ReadBytes(const std::string& path);
std::string ReadText(const std::string& path);
void WriteBytes(const std::string& path, const Bytes& bytes);
void WriteText(const std::string& path, const std::string& text);
// XOR the byte at `offset` with `mask`.
void FlipByte(const std::string& path, size_t offset, uint8_t mask = 0xFF);
// Cut the file to `size` bytes.
void CutTo(const std::string& path, size_t size);
// Append `bytes` after the end of the file.
void PlantTrailing(const std::string& path, const Bytes& bytes);
bool Exists(const std::string& path);
// Little-endian encoders for building binary files by hand.
void PutU32(Bytes& out, uint32_t v);
void PutF64(Bytes& out, double v);

// Puts the simulated TV (values, failures, log sink), the framework host and the virtual
// clock back in their defaults when made and again when destroyed, so that every test starts
// from the same world whether it runs alone or after others in one process.
class CleanWorld {
  public:
    CleanWorld() { Reset(); }
    ~CleanWorld() { Reset(); }
    CleanWorld(const CleanWorld&) = delete;
    CleanWorld& operator=(const CleanWorld&) = delete;
    static void Reset();
};

class SimTest : public ::testing::Test {
  protected:
    bool Logged(int priority, const std::string& tag, const std::string& message) const;
    size_t CountLogged(int priority, const std::string& tag, const std::string& message) const;
    // Messages (after the "<file> : <function>(<line>)  " prefix) logged in this test with
    // this tag, in order.
    std::vector<std::string> Messages(const std::string& tag) const;
    // The same as "<P> <message>" with P = E, I or D for the priority: a component's log
    // catalogue, compared as a whole.
    std::vector<std::string> Catalogue(const std::string& tag, uint64_t since) const;
    std::vector<std::string> Catalogue(const std::string& tag) const {
        return Catalogue(tag, mark_);
    }

    CleanWorld world_;
    uint64_t mark_ = tvsim::LogMark();
};

}  // namespace testsupport

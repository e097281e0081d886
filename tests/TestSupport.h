// Shared test helpers: a fixture that resets the simulated TV and the framework host, a
// temporary directory, and byte-level file helpers.
#pragma once

#include <dlog.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TempDir.h"
#include "tvsim/Simulator.h"
#include "wexfhost/FrameworkHost.h"

namespace testsupport {

// A fresh directory under $TMPDIR or /tmp, removed with everything in it on destruction.
using TempDir = hostkit::TempDir;

std::vector<uint8_t> ReadBytes(const std::string& path);
std::string ReadText(const std::string& path);
void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes);
void WriteText(const std::string& path, const std::string& text);
// XOR the byte at `offset` with `mask`.
void FlipByte(const std::string& path, size_t offset, uint8_t mask = 0xFF);
// Cut the file to `size` bytes.
void CutTo(const std::string& path, size_t size);
// Append `bytes` after the end of the file.
void PlantTrailing(const std::string& path, const std::vector<uint8_t>& bytes);
bool Exists(const std::string& path);

// Little-endian encoders for building binary files by hand.
void PutU32(std::vector<uint8_t>& out, uint32_t v);
void PutF64(std::vector<uint8_t>& out, double v);

// Resets the simulated TV, its log and the framework host before each test.
class SimTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    // Was this message (after the "<file> : <function>(<line>)  " prefix) logged in this test?
    bool Logged(int priority, const std::string& tag, const std::string& message) const;
    size_t CountLogged(int priority, const std::string& tag, const std::string& message) const;
    // Messages logged in this test with this tag, in order.
    std::vector<std::string> Messages(const std::string& tag) const;
    uint64_t mark_ = 0;
};

}  // namespace testsupport

// An input file read by a host program: opened without blocking, refused unless it is a regular
// file, and read with a size bound. A FIFO would block the open or the read, a device such as
// /dev/zero would never end, and a directory is no file to parse; each gets one clear reason
// instead. energy-sim and energy-factors read every input file through this class.
#pragma once

#include <cstdint>
#include <streambuf>
#include <string>
#include <vector>

namespace hostkit {

class InputFile : public std::streambuf {
  public:
    // Opens `path` with O_NONBLOCK (so a FIFO without a writer does not block), checks with
    // fstat that it is a regular file of at most `max_bytes`, then clears O_NONBLOCK for
    // ordinary reads. On failure ok() is false and error() says why.
    InputFile(const std::string& path, uint64_t max_bytes);
    ~InputFile() override;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    bool ok() const { return error_.empty(); }
    // "No such file or directory", "not a regular file", "larger than 16 MiB", a read error.
    const std::string& error() const { return error_; }

    // The whole file; false (with error()) when it cannot be read or exceeds the bound.
    bool ReadAll(std::string* text);

  protected:
    // As a stream buffer it reads in blocks and ends (with error()) at the bound, even if the
    // file grows while it is read.
    int_type underflow() override;

  private:
    int fd_ = -1;
    uint64_t max_bytes_;
    uint64_t read_ = 0;
    std::string error_;
    std::vector<char> buffer_;
};

// `bytes` as the bound is stated in messages and help texts: "16 MiB", "512 KiB", "100 bytes".
std::string SizeText(uint64_t bytes);

// Opens and checks `path` as InputFile does, without reading it: for a file that another
// component reads (a library for dlopen). Returns "" when it is a regular file of at most
// `max_bytes`, else the reason.
std::string CheckInputFile(const std::string& path, uint64_t max_bytes);

}  // namespace hostkit

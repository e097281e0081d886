#include "InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace hostkit {

namespace {
constexpr size_t kBlock = 64 * 1024;
}  // namespace

std::string SizeText(uint64_t bytes) {
    if (bytes >= (1u << 20) && bytes % (1u << 20) == 0) {
        return std::to_string(bytes >> 20) + " MiB";
    }
    if (bytes >= (1u << 10) && bytes % (1u << 10) == 0) {
        return std::to_string(bytes >> 10) + " KiB";
    }
    return std::to_string(bytes) + " bytes";
}

InputFile::InputFile(const std::string& path, uint64_t max_bytes) : max_bytes_(max_bytes) {
    fd_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd_ < 0) {
        error_ = std::strerror(errno);
        return;
    }
    struct stat st {};
    if (fstat(fd_, &st) != 0) {
        error_ = std::strerror(errno);
    } else if (!S_ISREG(st.st_mode)) {
        error_ = "not a regular file";
    } else if (static_cast<uint64_t>(st.st_size) > max_bytes_) {
        error_ = "larger than " + SizeText(max_bytes_);
    } else {
        const int flags = fcntl(fd_, F_GETFL);
        if (flags < 0 || fcntl(fd_, F_SETFL, flags & ~O_NONBLOCK) != 0) {
            error_ = std::strerror(errno);
        }
    }
}

InputFile::~InputFile() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

InputFile::int_type InputFile::underflow() {
    if (!ok()) {
        return traits_type::eof();
    }
    buffer_.resize(kBlock);
    ssize_t n;
    do {
        n = read(fd_, buffer_.data(), buffer_.size());
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        error_ = std::strerror(errno);
        return traits_type::eof();
    }
    if (n == 0) {
        return traits_type::eof();
    }
    read_ += static_cast<uint64_t>(n);
    if (read_ > max_bytes_) {  // the file grew past the bound while it was read
        error_ = "larger than " + SizeText(max_bytes_);
        return traits_type::eof();
    }
    setg(buffer_.data(), buffer_.data(), buffer_.data() + n);
    return traits_type::to_int_type(buffer_[0]);
}

bool InputFile::ReadAll(std::string* text) {
    text->clear();
    while (underflow() != traits_type::eof()) {
        text->append(eback(), egptr());
        setg(nullptr, nullptr, nullptr);
    }
    return ok();
}

std::string CheckInputFile(const std::string& path, uint64_t max_bytes) {
    return InputFile(path, max_bytes).error();
}

}  // namespace hostkit

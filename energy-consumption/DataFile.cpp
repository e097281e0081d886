#include "DataFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "AppInfoUtil.h"
#include "ReadableFile.h"

namespace powermeter {

namespace {

constexpr const char kFileName[] = "energy_log.dat";
constexpr const char kTempSuffix[] = ".tmp";

// Writes all `size` bytes to `fd`, across short writes and interruptions.
bool WriteFully(int fd, const char* buffer, size_t size) {
    while (size > 0) {
        const ssize_t n = ::write(fd, buffer, size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        buffer += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Flushes the directory holding `file`, so that a rename in it reaches the disk too.
void SyncDirectoryOf(const std::string& file) {
    const size_t slash = file.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        (void)fsync(fd);  // the new file is in place either way; this only hastens it to disk
        ::close(fd);
    }
}

}  // namespace

// The data path carries its trailing separator, so the name is appended directly.
DataFile::DataFile() : path(AppInfoUtil::GetDataPath() + kFileName) {}

DataFile::~DataFile() {
    close_file();
}

bool DataFile::IsExist() {
    return is_exist();
}

bool DataFile::is_exist() {
    return access(path.c_str(), F_OK) == 0;
}

// Anything but a regular file: a FIFO would block, and the rest is no log. A file that cannot
// be opened is not special: the stream's own open reports it.
bool DataFile::is_special_file() {
    const mode_t type = common::FileTypeOf(path);
    return type != 0 && type != S_IFREG;
}

bool DataFile::is_file_symbolic_link() {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) {
        return false;
    }
    return S_ISLNK(st.st_mode);
}

// In-place writes follow a link in the file's place, so a full rewrite replaces the file it
// names rather than the link. A link to nothing is replaced by the new file itself, as there
// is no file to keep.
std::string DataFile::write_target() {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
        return path;
    }
    std::string target(resolved);
    std::free(resolved);
    return target;
}

void DataFile::Remove() {
    close_file();
    // Only a regular file is the log's to delete; a FIFO or directory of that name is not.
    if (!is_special_file()) {
        std::remove(path.c_str());
    }
}

void DataFile::Close() {
    close_file();
}

void DataFile::close_file() {
    if (stream.is_open()) {
        // A failed close leaves the failure state set and nothing else.
        stream.close();
    }
}

void DataFile::create_file() {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out.is_open()) {
        throw std::runtime_error("failed to create the date file");
    }
    const char zero_count[4] = {0, 0, 0, 0};
    out.write(zero_count, sizeof(zero_count));
    out.close();
}

void DataFile::Open(bool create) {
    // Only a regular file is opened or created: a FIFO would block, anything else is no log.
    if (is_special_file()) {
        stream.setstate(std::ios::failbit);
        throw_exception_when_stream_is_not_opened();
    }
    if (create) {
        create_file();
    }
    stream.open(path, std::ios::binary | std::ios::in | std::ios::out);
    if (!stream.is_open()) {
        stream.setstate(std::ios::failbit);
    }
    throw_exception_when_stream_is_not_opened();
}

void DataFile::throw_exception_when_stream_is_not_opened() {
    if (!stream.is_open()) {
        throw std::runtime_error("the data file is not opened");
    }
}

void DataFile::SeekToEnd() {
    throw_exception_when_stream_is_not_opened();
    stream.seekg(0, std::ios::end);
    if (stream.fail() || stream.bad()) {
        throw std::runtime_error("failed to move to the end of the data file");
    }
}

void DataFile::SeekFromBeg(unsigned int position) {
    throw_exception_when_stream_is_not_opened();
    stream.seekg(static_cast<std::streamoff>(position), std::ios::beg);
    if (stream.fail()) {
        throw std::runtime_error("failed to seekg in the data file");
    }
}

void DataFile::Write(char* buffer, unsigned int size) {
    throw_exception_when_stream_is_not_opened();
    stream.write(buffer, static_cast<std::streamsize>(size));
    // Flushed at once so that a failing device is reported by this call rather than lost in
    // the destructor's close, and so that every write reaches the file in the order issued.
    stream.flush();
    if (stream.fail() || stream.bad()) {
        throw std::runtime_error("failed to wrtie data to the data file");
    }
}

void DataFile::Replace(const char* buffer, unsigned int size) {
    close_file();
    // As Open: a FIFO, directory or device in the file's place is left as it is.
    if (is_special_file()) {
        throw std::runtime_error("the data file is not opened");
    }
    const std::string target = write_target();
    const std::string temp_path = target + kTempSuffix;
    // A temporary file that a killed rewrite left behind is dropped, whatever it holds.
    ::unlink(temp_path.c_str());
    const int fd =
        ::open(temp_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) {
        throw std::runtime_error("failed to create the date file");
    }
    bool written = WriteFully(fd, buffer, size) && fsync(fd) == 0;
    written = ::close(fd) == 0 && written;
    // Renamed only once every byte is on the disk; on any failure the old file stays as it was.
    if (!written || std::rename(temp_path.c_str(), target.c_str()) != 0) {
        ::unlink(temp_path.c_str());
        throw std::runtime_error("failed to wrtie data to the data file");
    }
    SyncDirectoryOf(target);
}

void DataFile::Read(char* buffer, unsigned int size) {
    throw_exception_when_stream_is_not_opened();
    stream.read(buffer, static_cast<std::streamsize>(size));
    if (stream.fail() || stream.bad() || stream.gcount() != static_cast<std::streamsize>(size)) {
        throw std::runtime_error("failed to read data from the data file");
    }
}

}  // namespace powermeter

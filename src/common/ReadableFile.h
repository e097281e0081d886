// Opening a data file that the platform's directories hold, for reading.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace common {

// True when `path` names a FIFO, a device or a socket: a blocking open of a FIFO with no
// writer waits for ever, and a device can be read without end. The probe opens without
// blocking and takes the type from what it opened. A missing file or a directory is not
// special: the caller's own open and read report those as before.
inline bool IsSpecialFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat info {};
    const bool special =
        fstat(fd, &info) == 0 && (S_ISFIFO(info.st_mode) || S_ISCHR(info.st_mode) ||
                                  S_ISBLK(info.st_mode) || S_ISSOCK(info.st_mode));
    close(fd);
    return special;
}

}  // namespace common

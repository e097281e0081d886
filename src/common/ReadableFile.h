// Probing a file that the platform's directories hold before reading it. A blocking open of a
// FIFO with no writer waits for ever and a device can be read without end, so every probe
// opens without blocking and takes the type from the file it opened, not from the name.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace common {

// Opens `path` for reading without blocking; the descriptor (still non-blocking, the caller
// closes it), or -1. `*type` gets the file's type bits (S_IFREG, S_IFIFO, ...), 0 on failure.
inline int OpenWithoutBlocking(const std::string& path, mode_t* type) {
    *type = 0;
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat info {};
    if (fd >= 0 && fstat(fd, &info) == 0) {
        *type = info.st_mode & S_IFMT;
    }
    return fd;
}

// The type bits of what `path` names, or 0 when it cannot be opened.
inline mode_t FileTypeOf(const std::string& path) {
    mode_t type = 0;
    const int fd = OpenWithoutBlocking(path, &type);
    if (fd >= 0) {
        close(fd);
    }
    return type;
}

// True for the type bits of a FIFO, a device or a socket. An unknown type (0) or a directory
// is not special: the caller's own open and read report those.
inline bool IsSpecialType(mode_t type) {
    return type != 0 && type != S_IFREG && type != S_IFDIR;
}

// True when `path` names a FIFO, a device or a socket.
inline bool IsSpecialFile(const std::string& path) {
    return IsSpecialType(FileTypeOf(path));
}

}  // namespace common

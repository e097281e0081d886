// Ownership of strings that the platform hands out with malloc.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

namespace common {

struct FreeDeleter {
    void operator()(void* p) const noexcept { std::free(p); }
};

// Owns one malloc'ed C string; frees it on every path.
using CString = std::unique_ptr<char, FreeDeleter>;

// Takes ownership of `text`, returns its copy (empty for NULL) and frees it.
inline std::string TakeString(char* text) {
    CString owned(text);
    return owned ? std::string(owned.get()) : std::string();
}

}  // namespace common

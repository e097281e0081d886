// FUZZ_TARGET(Name) { ... } defines one fuzz entry point over (data, size).
// In a libFuzzer build it becomes LLVMFuzzerTestOneInput; in the unit-test binary it is
// registered by name, and the corpus test runs it over fuzz/corpus/<Name>/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace fuzz {

using Entry = int (*)(const uint8_t* data, size_t size);

inline std::map<std::string, Entry>& Registry() {
    static std::map<std::string, Entry> registry;
    return registry;
}

inline bool Register(const char* name, Entry entry) {
    Registry()[name] = entry;
    return true;
}

}  // namespace fuzz

#if defined(EC_LIBFUZZER)
#define FUZZ_TARGET(Name)                                                     \
    static int Name##_entry(const uint8_t* data, size_t size);                \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { \
        return Name##_entry(data, size);                                      \
    }                                                                         \
    static int Name##_entry(const uint8_t* data, size_t size)
#else
#define FUZZ_TARGET(Name)                                                                          \
    static int Name##_entry(const uint8_t* data, size_t size);                                     \
    [[maybe_unused]] static const bool Name##_registered = ::fuzz::Register(#Name, &Name##_entry); \
    static int Name##_entry(const uint8_t* data, size_t size)
#endif

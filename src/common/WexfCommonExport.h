// The support library is built with hidden visibility: only declarations marked
// WEXF_COMMON_API are exported from libwexf-common.so, and they make up its public API.
#pragma once

#if defined(__GNUC__)
#define WEXF_COMMON_API __attribute__((visibility("default")))
#else
#define WEXF_COMMON_API
#endif

// The support library is built with hidden visibility: only declarations marked
// WEXF_COMMON_API are exported from libwexf-common.so, and they make up its public API.
// WEXF_COMMON_LOCAL keeps a private helper of an exported class out of the exports.
#pragma once

#if defined(__GNUC__)
#define WEXF_COMMON_API __attribute__((visibility("default")))
#define WEXF_COMMON_LOCAL __attribute__((visibility("hidden")))
#else
#define WEXF_COMMON_API
#define WEXF_COMMON_LOCAL
#endif

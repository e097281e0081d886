// Directories and identity of the application that hosts the plug-in.
#pragma once

#include <string>

#include "WexfCommonExport.h"

class WEXF_COMMON_API AppInfoUtil {
  public:
    // Each returns the platform's text unchanged (a directory ends in "/"), or "" when the
    // platform has none. They never throw.
    static std::string GetDataPath();
    static std::string GetSharedResourcePath();
    static std::string GetSharedDataPath();
    static std::string GetResourcePath();
    static std::string GetId();
    static std::string GetAppVersion();
    static std::string GetRootPath(std::string package);
};

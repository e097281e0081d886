// Facts about the TV from the platform's system information.
#pragma once

#include <system_info.h>

#include <string>

#include "WexfCommonExport.h"

class WEXF_COMMON_API SystemInfoUtil {
  public:
    static bool getStringFromSystemInfo(system_info_key_e key, std::string& out);
    static std::string GetLocaleSet();
    // Two-digit model year, or -1 when it cannot be read.
    static int GetTVYear();
    static std::string GetModelName();
    static std::string GetPanelType();
    // Whether the energy service can be offered on this set (model year, region, data set).
    static bool IsSupportEnergyService();
};

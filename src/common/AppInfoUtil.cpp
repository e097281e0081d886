#include "AppInfoUtil.h"

#include <app_common.h>
#include <package_info.h>

#include "CString.h"
#include "Log.h"

namespace {

// Runs a "char** out" platform query and returns its text, or "" when it fails.
std::string QueryOut(int (*query)(char**)) {
    char* text = nullptr;
    int ret = query(&text);
    common::CString owned(text);
    if (ret != APP_ERROR_NONE || !owned) {
        return std::string();
    }
    return std::string(owned.get());
}

}  // namespace

std::string AppInfoUtil::GetDataPath() {
    return common::TakeString(app_get_data_path());
}

std::string AppInfoUtil::GetSharedResourcePath() {
    return common::TakeString(app_get_shared_resource_path());
}

std::string AppInfoUtil::GetSharedDataPath() {
    return common::TakeString(app_get_shared_data_path());
}

std::string AppInfoUtil::GetResourcePath() {
    return common::TakeString(app_get_resource_path());
}

std::string AppInfoUtil::GetId() {
    return QueryOut(&app_get_id);
}

std::string AppInfoUtil::GetAppVersion() {
    char* text = nullptr;
    int ret = app_get_version(&text);
    common::CString owned(text);
    if (ret != APP_ERROR_NONE || !owned) {
        CLOGE("Fail to get app version");
        return std::string();
    }
    return std::string(owned.get());
}

std::string AppInfoUtil::GetRootPath(std::string package) {
    package_info_h info = nullptr;
    int err = package_info_create(package.c_str(), &info);
    if (err != PACKAGE_MANAGER_ERROR_NONE) {
        CLOGE("package_info_create failed err[%d] package_info[%p] pkg_id[%s]", err,
              static_cast<void*>(info), package.c_str());
        return std::string();
    }
    std::unique_ptr<package_info_s, int (*)(package_info_h)> handle(info, &package_info_destroy);

    char* path = nullptr;
    err = package_info_get_root_path(info, &path);
    common::CString owned(path);
    if (err != PACKAGE_MANAGER_ERROR_NONE || !owned) {
        CLOGE("package_info_get_root_path failed err[%d] appRootPath[%p]", err,
              static_cast<void*>(path));
        return std::string();
    }
    CLOGI("package_info_get_root_path packageName:%s  appRootPath[%s]", package.c_str(),
          owned.get());
    return std::string(owned.get());
}

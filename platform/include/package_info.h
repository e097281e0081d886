/* Package information. */
#ifndef PLATFORM_PACKAGE_INFO_H_
#define PLATFORM_PACKAGE_INFO_H_

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    PACKAGE_MANAGER_ERROR_NONE = 0,
    PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE = -0x01150000 | 0x71,
    PACKAGE_MANAGER_ERROR_IO_ERROR = -5,
    PACKAGE_MANAGER_ERROR_INVALID_PARAMETER = -22,
} package_manager_error_e;

typedef struct package_info_s* package_info_h;

int package_info_create(const char* package, package_info_h* package_info);
/* Stores a malloc'ed path in *path (the caller frees it). */
int package_info_get_root_path(package_info_h package_info, char** path);
int package_info_destroy(package_info_h package_info);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_PACKAGE_INFO_H_ */

/* System information: facts about the device, by fixed key or by custom key name. */
#ifndef PLATFORM_SYSTEM_INFO_H_
#define PLATFORM_SYSTEM_INFO_H_

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    SYSTEM_INFO_ERROR_NONE = 0,
    SYSTEM_INFO_ERROR_NO_SUCH_KEY = -2,
    SYSTEM_INFO_ERROR_IO_ERROR = -5,
    SYSTEM_INFO_ERROR_OUT_OF_MEMORY = -12,
    SYSTEM_INFO_ERROR_INVALID_PARAMETER = -22,
} system_info_error_e;

typedef enum {
    SYSTEM_INFO_KEY_MODEL = 0,
    SYSTEM_INFO_KEY_PANEL_TYPE_STRING = 74,
    SYSTEM_INFO_KEY_LOCAL_SET = 90,
} system_info_key_e;

/* On success stores a malloc'ed string in *value (the caller frees it; it may be NULL). */
int system_info_get_value_string(system_info_key_e key, char** value);
int system_info_get_custom_string(const char* key, char** value);
int system_info_get_custom_int(const char* key, int* value);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SYSTEM_INFO_H_ */

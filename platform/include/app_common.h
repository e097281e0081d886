/* Application framework: paths and identity of the application hosting the caller. */
#ifndef PLATFORM_APP_COMMON_H_
#define PLATFORM_APP_COMMON_H_

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    APP_ERROR_NONE = 0,
    APP_ERROR_INVALID_PARAMETER = -22,
    APP_ERROR_INVALID_CONTEXT = -0x01100000 | 0x01,
} app_error_e;

/* Each returns a malloc'ed directory path ending in '/' (the caller frees it), or NULL. */
char* app_get_data_path(void);
char* app_get_shared_resource_path(void);
char* app_get_shared_data_path(void);
char* app_get_resource_path(void);

/* Each stores a malloc'ed string in *out (the caller frees it); 0 or an error code. */
int app_get_id(char** id);
int app_get_version(char** version);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_APP_COMMON_H_ */

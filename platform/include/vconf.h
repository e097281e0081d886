/* Volatile configuration keys. */
#ifndef PLATFORM_VCONF_H_
#define PLATFORM_VCONF_H_

#ifdef __cplusplus
extern "C" {
#endif

/* Returns a malloc'ed copy of the key's string value (the caller frees it),
 * or NULL when the key does not exist or cannot be read. */
char* vconf_get_str(const char* key);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_VCONF_H_ */

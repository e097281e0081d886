/* The device-service framework's interface for service plug-ins. */
#ifndef WEXF_WEXF_H_
#define WEXF_WEXF_H_

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A borrowed character range; the characters are NUL-terminated where the framework makes them. */
typedef struct {
    const char* str;
    size_t len;
} wexf_string_t;

typedef struct wexf_service_s* wexf_service_h;
typedef struct wexf_transaction_s* wexf_transaction_h;
typedef struct wexf_property_list_s* wexf_property_list_h;
typedef struct wexf_property_s* wexf_property_h;

typedef enum {
    WEXF_PROTOCOL_STATUS_CONNECTED = 0,
    WEXF_PROTOCOL_STATUS_DISCONNECTED = 1,
    WEXF_PROTOCOL_STATUS_READY = 2,
    WEXF_PROTOCOL_STATUS_ERROR = 3,
} wexf_protocol_status_e;

typedef void (*wexf_protocol_status_cb)(wexf_service_h service, wexf_string_t protocol,
                                        wexf_protocol_status_e status, void* user_data);
typedef void (*wexf_get_request_cb)(wexf_service_h service, wexf_transaction_h transaction,
                                    wexf_property_list_h properties, void* user_data);
typedef void (*wexf_set_request_cb)(wexf_service_h service, wexf_transaction_h transaction,
                                    wexf_property_list_h properties, void* user_data);
typedef void (*wexf_cancel_request_cb)(wexf_service_h service, wexf_transaction_h transaction,
                                       void* user_data);

/* Fills *out with the range [chars, chars + len). Returns 0, or a negative error code. */
int wexf_string_new(wexf_string_t* out, const char* chars, size_t len);

/* Registers a service; returns NULL on failure. */
wexf_service_h wexf_service_create(wexf_string_t name, wexf_string_t description,
                                   wexf_protocol_status_cb on_protocol_status,
                                   wexf_get_request_cb on_get, wexf_set_request_cb on_set,
                                   wexf_cancel_request_cb on_cancel, void* user_data);
int wexf_service_destroy(wexf_service_h service);

wexf_property_list_h wexf_property_list_create(void);
wexf_property_h wexf_property_create_json_string(wexf_string_t name, wexf_string_t json);
int wexf_property_list_push_property(wexf_property_list_h list, wexf_property_h property,
                                     int flags);
/* Sends the list as a notification of the service; the framework takes the list and its
 * properties over. */
int wexf_service_notify(wexf_service_h service, wexf_property_list_h list);

#ifdef __cplusplus
}
#endif

#endif /* WEXF_WEXF_H_ */

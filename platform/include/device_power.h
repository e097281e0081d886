/* Device power state. */
#ifndef PLATFORM_DEVICE_POWER_H_
#define PLATFORM_DEVICE_POWER_H_

#ifdef __cplusplus
extern "C" {
#endif

/* Power states: 0 on, 1 picture off, 2 standby, 3 suspend, 4 low-power mode.
 * A negative value is an error code. */
int device_power_get_state(void);

/* Ambient mode: 1 the always-on screen, 2 low-power mode; a negative value is an error code. */
int device_power_get_ambient_mode(void);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_DEVICE_POWER_H_ */

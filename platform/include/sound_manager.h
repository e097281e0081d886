/* Sound manager: TV master volume and speaker selection. */
#ifndef PLATFORM_SOUND_MANAGER_H_
#define PLATFORM_SOUND_MANAGER_H_

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    SOUND_MANAGER_ERROR_NONE = 0,
    SOUND_MANAGER_ERROR_INVALID_OPERATION = -38,
} sound_manager_error_e;

/* Speaker selection: 0 is the TV's own speaker, anything else an external output. */
typedef enum {
    SOUND_MANAGER_SPEAKER_TV = 0,
    SOUND_MANAGER_SPEAKER_OPTICAL = 1,
    SOUND_MANAGER_SPEAKER_HDMI_ARC = 2,
    SOUND_MANAGER_SPEAKER_BLUETOOTH = 3,
} sound_manager_speaker_e;

/* Volume on a 0-100 scale. Both return 0 on success or a negative error code. */
int sound_manager_get_tv_master_volume(int* volume);
int sound_manager_get_speaker_selection(int* selection);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_SOUND_MANAGER_H_ */

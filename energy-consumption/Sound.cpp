#include "Sound.h"

#include <sound_manager.h>

#include "Log.h"

namespace powermeter {

int Sound::Volume() {
    int volume = 0;
    if (sound_manager_get_tv_master_volume(&volume) != SOUND_MANAGER_ERROR_NONE) {
        ELOGE("[Energy] failed to get the master volme");
        return 0;
    }
    return volume;
}

bool Sound::IsTVSpeaker() {
    int selection = -1;
    if (sound_manager_get_speaker_selection(&selection) != SOUND_MANAGER_ERROR_NONE) {
        return false;
    }
    return selection == SOUND_MANAGER_SPEAKER_TV;
}

}  // namespace powermeter

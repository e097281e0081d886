// The TV's master volume and whether its own speaker is the selected output.
#pragma once

namespace powermeter {

class Sound {
  public:
    // Master volume 0-100; 0 (with an ERROR line) when the query fails.
    static int Volume();
    // True only when the query succeeds and the TV's own speaker is selected.
    static bool IsTVSpeaker();
};

}  // namespace powermeter

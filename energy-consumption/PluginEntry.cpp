// The plug-in's two entry points, the only symbols the library exports. Both report success
// to the framework whatever happened; failures are in the log.
#include "EnergyService.h"

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

PLUGIN_EXPORT int CreatePlugin() {
    powermeter::EnergyService::GetInstance().Init();
    return 1;
}

PLUGIN_EXPORT int DestroyPlugin() {
    powermeter::EnergyService::GetInstance().Deinit();
    return 1;
}

// The engine's queue in this plug-in build: the block log, persisted in energy_log.dat and reported
// daily.
#include "EngineQueue.h"
#include "PowerLogQueue.h"

namespace powermeter {

IPowerLogQueue* NewEngineQueue() {
    return new PowerLogQueue();
}

void DeleteEngineQueue(IPowerLogQueue* queue) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
    delete static_cast<PowerLogQueue*>(queue);
#pragma GCC diagnostic pop
}

}  // namespace powermeter

// The engine's queue in this plug-in build: the block log, persisted in energy_log.dat and reported
// daily.
#include "EngineQueue.h"
#include "PowerLogQueue.h"

namespace powermeter {

IPowerLogQueue* NewEngineQueue() {
    return EngineQueueOf<PowerLogQueue>::New();
}

void DeleteEngineQueue(IPowerLogQueue* queue) {
    EngineQueueOf<PowerLogQueue>::Delete(queue);
}

}  // namespace powermeter

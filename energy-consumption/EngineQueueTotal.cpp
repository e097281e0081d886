// The engine's queue in this plug-in build: the running total, reported every 900 s of metering.
#include "EngineQueue.h"
#include "SimplePowerLogQueue.h"

namespace powermeter {

IPowerLogQueue* NewEngineQueue() {
    return EngineQueueOf<SimplePowerLogQueue>::New();
}

void DeleteEngineQueue(IPowerLogQueue* queue) {
    EngineQueueOf<SimplePowerLogQueue>::Delete(queue);
}

}  // namespace powermeter

// The engine's queue in this plug-in build: the running total, reported every 900 s of metering.
#include "EngineQueue.h"
#include "SimplePowerLogQueue.h"

namespace powermeter {

IPowerLogQueue* NewEngineQueue() {
    return new SimplePowerLogQueue();
}

void DeleteEngineQueue(IPowerLogQueue* queue) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
    delete static_cast<SimplePowerLogQueue*>(queue);
#pragma GCC diagnostic pop
}

}  // namespace powermeter

// The queue behind the metering engine. Each plug-in build links exactly one definition of
// these two functions: EngineQueueTotal.cpp, the running total (libenergy-consumption.so), or
// EngineQueueBlocks.cpp, the block log with its default options
// (libenergy-consumption-blocks.so).
#pragma once

#include "IPowerLogQueue.h"

namespace powermeter {

// A new, uninitialised queue of this build's kind.
IPowerLogQueue* NewEngineQueue();
// Deletes a queue made by NewEngineQueue as its own type: the interface has no virtual
// destructor.
void DeleteEngineQueue(IPowerLogQueue* queue);

// The two for a queue of type Queue.
template <typename Queue>
struct EngineQueueOf {
    static IPowerLogQueue* New() { return new Queue(); }
    static void Delete(IPowerLogQueue* queue) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
        delete static_cast<Queue*>(queue);
#pragma GCC diagnostic pop
    }
};

}  // namespace powermeter

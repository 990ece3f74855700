#include "Classes/Internal/KvPimShared.h"

#include "Platform/KvEngineThread.h"

namespace kv {

KvPimShared::KvPimShared(std::string appId, std::weak_ptr<KvPimDelegate> listener, KvPimOptions const& given,
                         net::NetworkOptions chosen)
    : mainQueue(given.mainQueue ? given.mainQueue : KvMainQueue::main()),
      engine(given.engine == KvPimEngine::thread ? engineThreadQueue() : mainQueue),
      options{std::move(chosen), given.maxQueuedBytes, given.checkThreads},
      delegate(std::move(listener)),
      stateManager(std::make_shared<KvPimStateManager>()) {
    stateManager->appId = std::move(appId);
}

}  // namespace kv

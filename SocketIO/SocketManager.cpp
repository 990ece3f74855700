#include "SocketIO/SocketManager.h"

#include "SocketIO/SocketIOClientImpl.h"

#include <cassert>

namespace kv {

SocketManager::SocketManager(std::string url, SocketConfig config, std::shared_ptr<KvMainQueue> mainQueue,
                             std::shared_ptr<KvMainQueue> engine)
    : socket_(std::make_shared<SocketIOClient>(std::make_unique<SocketIOClient::Impl>(
          std::move(url), std::move(config), std::move(mainQueue), std::move(engine)))) {
    socket_->impl_->watchNetwork();
}

SocketManager::~SocketManager() {
    socket_->impl_->assertMainThread();
    socket_->impl_->releaseForGood();
}

void SocketManager::setReconnects([[maybe_unused]] bool reconnects) { assert(!reconnects); }

}  // namespace kv

#include "Host.h"

#include <chrono>
#include <stdexcept>

#include <KvPim/Model/KvPimErrors.h>

using namespace std::chrono_literals;

namespace {

constexpr auto kPause = 5s;

std::int64_t now() {
    auto const time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

}  // namespace

Host::Host(std::string user, std::string room, Issue issue, kv::KvPimOptions const& options)
    : user_(std::move(user)),
      roomId_(std::move(room)),
      issue_(std::move(issue)),
      queue_(options.mainQueue ? options.mainQueue : kv::KvMainQueue::main()),
      client_(kv::KvPimKit::initWithAppId("hosts", delegate_, options)) {
    if (!client_) throw std::invalid_argument("the options of the client");
    delegate_->tokenDidExpire = [this](kv::KvPimKit& kit) {
        kit.renewToken(issue_(user_), now(), [](std::string const&, std::int64_t) {});
    };
    listener_->memberJoined = [this](kv::KvPimChannel&, kv::KvPimMember const& member) { welcome(member.userId); };
}

void Host::start() { logIn(); }

void Host::logIn() {
    client_->loginByToken(issue_(user_), now(), user_, [this](std::int64_t code) {
        trouble_ = code == 0 ? "" : kv::describe(kv::KvPimLoginErrorCode(code));
        if (code == 0) return open();
        // A 9 may be told before the attempt is over. Where it goes on, the next login is refused, and tried again.
        retry(&Host::logIn);
    });
}

void Host::open() {
    next_.cancel();
    if (!room_) room_ = client_->createChannelWithId(roomId_, listener_);
    room_->joinWithCompletion([this](std::int64_t code) {
        trouble_ = code == 0 ? "" : kv::describe(kv::KvPimJoinChannelErrorCode(code));
        if (code != 0) retry(&Host::open);
    });
}

void Host::retry(void (Host::*step)()) {
    next_ = queue_->after(kPause, [this, step] { (this->*step)(); });
}

void Host::welcome(std::string const& guest) {
    auto const count = ++visits_[guest];
    auto const hello = count == 1 ? "Hello, " + guest : "Welcome back, " + guest;
    room_->sendMessage(std::make_shared<kv::KvPimMessage>(hello), std::nullopt, [](std::int64_t) {});
    client_->addOrUpdateChannelAttributes(roomId_, {{guest, std::to_string(count)}}, {}, [](std::int64_t) {});
}

int Host::visits(std::string const& user) const {
    auto const found = visits_.find(user);
    return found == visits_.end() ? 0 : found->second;
}

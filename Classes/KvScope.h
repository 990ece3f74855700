// Callbacks that do nothing once what they use is gone. A completion that a client owes is called even after the client
// was destroyed, and so must not find that the object whose `this` it captured was destroyed too:
//
//     class Bot {
//         void greet() { client_->sendMessageToPeer(message, "bob", {}, scope_.wrap([this](auto code) { onSent(code);
//         })); } std::shared_ptr<kv::KvPimKit> client_; kv::KvScope scope_;  // the last member: it is gone before all
//         others
//     };
#pragma once

#include <memory>
#include <utility>

namespace kv {

/// Stands for an object in the callbacks that use it. Make it the last member, or the last local variable, of what the
/// callbacks use. It ends, and they are called, on the thread of the main queue.
class KvScope final {
public:
    KvScope() = default;
    KvScope(KvScope const&) = delete;  // what was captured stays where it is
    KvScope& operator=(KvScope const&) = delete;

    /// Does what `callback` does, whatever its arguments, while this scope is there, and nothing afterwards.
    template <class Callback>
    auto wrap(Callback callback) const {
        return [scope = std::weak_ptr(alive_), callback = std::move(callback)](auto&&... arguments) mutable {
            if (!scope.expired()) callback(std::forward<decltype(arguments)>(arguments)...);
        };
    }

private:
    std::shared_ptr<bool const> alive_ = std::make_shared<bool>(true);
};

}  // namespace kv

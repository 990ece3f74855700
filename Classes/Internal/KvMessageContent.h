// The wire form of messages, to channels and to peers alike.
#pragma once

#include "Classes/Internal/KvPimRequests.h"
#include "Classes/Model/KvPimMessage.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/object.hpp>

namespace kv {

/// Of the text of a message, and of its data.
inline constexpr std::size_t kMostContentBytes = 32768;

/// Where a message's payload is made, for the time of the call that sends it: messages are what an application sends
/// thousands of, and each value in here would cost an allocation otherwise.
class KvPayloadMemory {
public:
    KvPayloadMemory() = default;
    KvPayloadMemory(KvPayloadMemory const&) = delete;
    KvPayloadMemory& operator=(KvPayloadMemory const&) = delete;
    SocketItems payload() {
        SocketItems payload{boost::json::array(&resource_), {}};
        payload.values.reserve(2);  // the command's name joins it
        return payload;
    }

private:
    std::array<unsigned char, 1024> buffer_;
    boost::json::monotonic_resource resource_{buffer_.data(), buffer_.size()};
};

/// {"text","binary"} of a message, null for what it lacks; the bytes join the payload's attachments.
inline boost::json::object contentOf(KvPimMessage const* message, SocketItems& payload) {
    boost::json::object content(payload.values.storage());
    if (message != nullptr && message->text) {
        content["text"] = *message->text;
    } else {
        content["text"] = nullptr;
    }
    content["binary"] = payload.binary(message != nullptr ? message->data() : nullptr);
    return content;
}

/// Tells a completion of a text that is too long, and again of data that is. The message is sent all the same, so the
/// server's answer follows.
template <class Completion>
void reportTooLong(KvPimMessage const* message, std::int64_t code, Completion const& done,
                   std::weak_ptr<KvPimFailures> const& client, char const* method) {
    if (message == nullptr) return;
    auto const report = [&](char const* what, std::size_t bytes) {
        if (bytes <= kMostContentBytes) return;
        auto const known = [&] {
            auto const most = std::to_string(kMostContentBytes);
            return net::Failure{KvFailureStage::request, "",
                                what + std::to_string(bytes) + " bytes, more than " + most};
        };
        KvPimFailures::concluding(
            client, method, code, known, [&] { complete(done, code); }, KvPimFailures::GoesOn::yes);
    };
    auto const data = message->data();
    auto const textBytes = message->text ? message->text->size() : 0;  // it may change in a completion
    report("The text has ", textBytes);
    report("The data have ", data ? data->size() : 0);
}

}  // namespace kv

// The wire form of messages, to channels and to peers alike.
#pragma once

#include "Classes/Internal/KvPimRequest.h"
#include "Classes/Model/KvPimMessage.h"

#include <cstdint>

#include <boost/json/object.hpp>

namespace kv {

inline constexpr std::size_t kMostMessageBytes = 32768;

/// {"text","binary"} of a message, null for what it lacks; the bytes join the payload's attachments.
inline boost::json::object contentOf(KvPimMessage const* message, SocketItems& payload) {
    boost::json::object content;
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
void reportTooLong(KvPimMessage const* message, std::int64_t code, Completion const& done) {
    if (message == nullptr) return;
    auto const data = message->data();
    bool const isTextTooLong = message->text && message->text->size() > kMostMessageBytes;
    bool const isDataTooLong = data && data->size() > kMostMessageBytes;
    if (isTextTooLong) complete(done, code);
    if (isDataTooLong) complete(done, code);
}

}  // namespace kv

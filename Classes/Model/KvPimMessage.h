#pragma once

#include "Platform/KvData.h"
#include "Platform/KvExport.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace kv {

/// What a message consists of.
enum KvPimMessageType {
    KvPimMessageTypeText = 1,  ///< Text alone.
    KvPimMessageTypeRaw = 2,   ///< Bytes, with or without a text.
};

/// A text message, to a channel or to a peer. At most 32,768 bytes of UTF-8.
class KV_EXPORT KvPimMessage {
public:
    KvPimMessage() = default;
    /// A message of this text.
    explicit KvPimMessage(std::string text_) : text(std::move(text_)) {}
    virtual ~KvPimMessage() = default;
    KvPimMessage(KvPimMessage const&) = default;
    KvPimMessage& operator=(KvPimMessage const&) = default;

    /// Tells text from raw.
    virtual KvPimMessageType type() const { return KvPimMessageTypeText; }
    /// The bytes of a raw message, null for any other.
    virtual KvData data() const { return nullptr; }
    /// Whether both have one type, and the same in them; of data it is the bytes that count.
    bool operator==(KvPimMessage const& other) const {
        auto const mine = data(), others = other.data();
        bool const sameData = mine == others || (mine && others && *mine == *others);
        return sameData && type() == other.type() && text == other.text && serverReceivedTs == other.serverReceivedTs &&
               isOfflineMessage == other.isOfflineMessage;
    }

    /// The text; a raw message may do without.
    std::optional<std::string> text;
    /// When the server received the message, as the server counts; 0 in a message that was not received.
    std::int64_t serverReceivedTs = 0;
    /// Never set by this version: false in every message, those that were kept while the receiver was offline included.
    bool isOfflineMessage = false;
};

/// Bytes, with an optional text that describes them. At most 32,768 bytes of data, and as many of text.
class KV_EXPORT KvPimRawMessage final : public KvPimMessage {
public:
    KvPimRawMessage() = default;
    /// A message of these bytes, without a text.
    explicit KvPimRawMessage(KvData rawData_) : rawData(std::move(rawData_)) {}
    /// A message of these bytes, and of a text that describes them.
    explicit KvPimRawMessage(KvData rawData_, std::optional<std::string> text_) : rawData(std::move(rawData_)) {
        text = std::move(text_);
    }

    /// Raw.
    KvPimMessageType type() const override { return KvPimMessageTypeRaw; }
    KvData data() const override { return rawData; }

    KvData rawData;
};

/// How a message is sent.
struct KvPimSendMessageOptions {
    /// Ask the server to keep the message for a receiver who is offline.
    bool enableOfflineMessaging = false;
    /// Has no effect in this version.
    bool enableHistoricalMessaging = false;
    bool operator==(KvPimSendMessageOptions const&) const = default;
};

}  // namespace kv

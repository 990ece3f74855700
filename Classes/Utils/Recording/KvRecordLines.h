// What a record says of a packet: JSON, without tokens, and without what people say unless that is wanted. Any thread.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace kv {

/// What must not be in a record.
struct KvRecordRules {
    bool withContents = false;
    std::shared_ptr<std::vector<std::string> const> secrets;  // never null
};

/// The text with each secret in it as so many asterisks.
std::string withoutSecrets(std::string_view text, KvRecordRules const& rules);
/// The query of an address without the token that it bears.
std::string withoutToken(std::string_view target);

/// Masks what is in the payload of a command. Ids, names of commands, keys, numbers and truth values stay, and so does
/// the length of each text: what a client makes of it stays the same.
void maskPayload(boost::json::value& payload, KvRecordRules const& rules);

enum class KvPacketOrigin { server, client };
/// {"type", "id", "attachments", "data"} of the text of a packet, masked; "bytes" of what cannot be read.
boost::json::object recordOfPacket(std::string_view text, KvPacketOrigin origin, KvRecordRules const& rules);

}  // namespace kv

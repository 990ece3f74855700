#include "SocketIO/SocketData.h"

#include <cstdint>

#include <boost/json/object.hpp>

namespace kv {
namespace json = boost::json;
namespace {

std::vector<KvData> const kNoAttachments;

}  // namespace

json::value SocketItems::binary(KvData data) {
    if (!data) return nullptr;
    attachments.push_back(std::move(data));
    return json::value({{"_placeholder", true}, {"num", attachments.size() - 1}}, values.storage());
}

SocketData::SocketData(json::array const& items, SocketNoAck noAck)
    : items_(items), attachments_(kNoAttachments), noAck_(noAck) {}

KvData SocketData::binary(json::value const& value) const {
    auto const* object = value.if_object();
    if (!object) return nullptr;
    auto const* placeholder = object->if_contains("_placeholder");
    auto const* number = object->if_contains("num");
    if (!placeholder || !placeholder->is_bool() || !placeholder->get_bool() || !number) return nullptr;
    json::error_code error;
    auto const index = number->to_number<std::uint64_t>(error);
    return !error && index < attachments_.size() ? attachments_[index] : nullptr;
}

}  // namespace kv

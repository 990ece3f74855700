// What travels in a Socket.IO packet: JSON values and the binary attachments that placeholders in them stand for.
#pragma once

#include "Platform/KvData.h"
#include "Platform/KvExport.h"

#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/value.hpp>

namespace kv {

/// The items of a packet to send. A binary value is put in with `binary`:
///     SocketItems items;
///     items.values = {"photo", {{"bytes", items.binary(data)}}};
/// The values are text when the call that sends them returns, so they may live in memory of the caller's:
///     boost::json::monotonic_resource memory(buffer, sizeof buffer);
///     SocketItems items{boost::json::array(&memory), {}};
struct KV_EXPORT SocketItems {
    boost::json::array values;
    std::vector<KvData> attachments;

    /// The value that stands for `data` in `values`; null when there is no data.
    boost::json::value binary(KvData data);
};

/// The items of a received packet (without the event's name). Lives for the time of the call that it is handed to:
/// whoever needs a value longer copies it. Attachments are shared, so keeping one costs nothing.
class KV_EXPORT SocketData {
public:
    /// Refers to both; copies nothing.
    SocketData(boost::json::array const& items, std::vector<KvData> const& attachments)
        : items_(items), attachments_(attachments) {}

    /// The values, with placeholders where binary data were.
    boost::json::array const& items() const { return items_; }
    /// The bytes that `value` stands for, or null when it is not binary data. An object that only looks like a
    /// placeholder, without an attachment of its number, is not binary data.
    KvData binary(boost::json::value const& value) const;

private:
    boost::json::array const& items_;
    std::vector<KvData> const& attachments_;
};

}  // namespace kv

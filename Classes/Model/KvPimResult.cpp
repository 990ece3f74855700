#include "Classes/Model/KvPimResult.h"

#include "Classes/Catagory/KvJson.h"
#include "SocketIO/SocketData.h"

namespace kv {

KvPimResult KvPimResult::resultWithArray(SocketData const& data) {
    KvPimResult result;
    result.data = &data;
    auto const& items = data.items();
    if (items.empty()) return result;
    if (auto const* text = items.front().if_string()) result.errorString = *text;
    bool const isBinary = data.binary(items.back()) != nullptr;
    if (auto const* response = items.back().if_object(); response != nullptr && !isBinary) {
        result.response = response;
        result.code = asInteger32(valueOf(response, "result"));
    }
    result.isAckTimeout = result.errorString == kNoAck;
    return result;
}

}  // namespace kv

#include "Classes/Utils/KvLogText.h"

#include "Platform/KvJsonText.h"

namespace kv {
namespace json = boost::json;
namespace {

json::value const kNull;

void append(std::string& text, json::value const& value, SocketData const& data);

void append(std::string& text, json::array const& items, SocketData const& data) {
    text += '[';
    for (auto const& item : items) {
        if (&item != items.begin()) text += ',';
        append(text, item, data);
    }
    text += ']';
}

void append(std::string& text, json::object const& object, SocketData const& data) {
    text += '{';
    for (auto const& entry : object) {
        if (&entry != object.begin()) text += ',';
        text += jsonText(entry.key());
        text += ':';
        append(text, entry.value(), data);
    }
    text += '}';
}

void append(std::string& text, json::value const& value, SocketData const& data) {
    if (auto const bytes = data.binary(value)) {
        text.append("<").append(std::to_string(bytes->size())).append(" bytes>");
    } else if (auto const* items = value.if_array()) {
        append(text, *items, data);
    } else if (auto const* object = value.if_object()) {
        append(text, *object, data);
    } else {
        text += jsonText(value);
    }
}

}  // namespace

json::array const& KvLogPayload::noItems() {
    static json::array const items;
    return items;
}

KvLogPayload KvLogPayload::firstOf(SocketData const& data) {
    return {data.items().empty() ? kNull : data.items().front(), data};
}

std::string KvLogPayload::description() const {
    std::string text;
    if (value_ == nullptr) {
        append(text, data_.items(), data_);
    } else {
        append(text, *value_, data_);
    }
    return text;
}

}  // namespace kv

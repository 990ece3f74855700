// How a client is made, as JSON says it.
#pragma once

#include "Binding/Events.h"
#include "Classes/Model/KvPimOptions.h"

#include <string>
#include <string_view>
#include <vector>

#include <boost/json.hpp>

namespace kv::binding {

struct ClientOptions {
    std::string appId;
    KvPimOptions client;  // its main queue, if there is one, is for a client that is polled
    CallbackNames delegate;
    bool isPolled = false;
    bool attachesData = false;
};

/// Throws BadRequest where a field is unknown, missing or of the wrong type.
ClientOptions readClientOptions(boost::json::object const& fields);

/// The fields that there are, with what they hold; a field of an object as "network.proxy".
struct OptionRow {
    std::string name;
    std::string_view type;
};
std::vector<OptionRow> optionRows();

}  // namespace kv::binding

#include "Binding/Interface.h"

#include "Binding/ClientOptions.h"
#include "Binding/Events.h"
#include "Binding/Operations.h"

namespace kv::binding {
namespace json = boost::json;
namespace {

json::array words(std::string_view text) {
    json::array words;
    while (!text.empty()) {
        auto const word = text.substr(0, text.find(' '));
        words.emplace_back(word);
        text.remove_prefix(std::min(word.size() + 1, text.size()));
    }
    return words;
}

json::array operationTable() {
    json::array table;
    for (auto const& operation : operations()) {
        json::array arguments;
        for (auto const& [name, type, isOptional] : argumentsOf(operation))
            arguments.push_back({{"name", name}, {"type", type}, {"optional", isOptional}});
        table.push_back({{"name", operation.name}, {"arguments", arguments}, {"answer", words(operation.answer)}});
    }
    return table;
}

json::object codeTable() {
    json::object table;
    for (auto const& operation : operations()) {
        if (operation.codes == nullptr) continue;
        json::array codes;
        for (auto const& [code, name, sentence] : operation.codes().rows())
            if (code != 0) codes.push_back({{"code", code}, {"name", name}, {"text", sentence}});
        table[operation.name] = std::move(codes);
    }
    return table;
}

json::array optionTable() {
    json::array table;
    for (auto const& [name, type] : optionRows()) table.push_back({{"name", name}, {"type", type}});
    return table;
}

json::object interface() {
    json::array events;
    json::object callbacks;
    struct Kind {
        std::string_view name;
        DelegateKind kind;
    };
    for (auto const& [of, kind] : {Kind{"client", DelegateKind::client}, Kind{"channel", DelegateKind::channel},
                                   Kind{"invitation", DelegateKind::invitation}}) {
        json::array names;
        for (auto const& [name, callback, fields] : eventsOf(kind)) {
            names.emplace_back(callback);
            events.push_back({{"name", name}, {"fields", words(fields)}});
        }
        callbacks[of] = std::move(names);
    }
    return {{"operations", operationTable()},
            {"events", std::move(events)},
            {"callbacks", std::move(callbacks)},
            {"options", optionTable()},
            {"codes", codeTable()}};
}

}  // namespace

std::string const& interfaceText() {
    static auto const& text = *new std::string(json::serialize(interface()));
    return text;
}

}  // namespace kv::binding

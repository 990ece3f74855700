#include "console/CarryOut.h"

#include "console/Neighbours.h"
#include "console/Operations.h"

#include <algorithm>
#include <cmath>

namespace kv::console {
namespace json = boost::json;
namespace {

constexpr std::size_t kMostDepth = 1000;

// A number beyond a double is read as infinity, which cannot be written back.
bool isFinite(json::value const& value) {
    if (auto const* number = value.if_double()) return std::isfinite(*number);
    if (auto const* array = value.if_array()) return std::ranges::all_of(*array, isFinite);
    auto const* object = value.if_object();
    return object == nullptr || std::ranges::all_of(*object, [](auto const& entry) { return isFinite(entry.value()); });
}

void carryOut(Session& session, json::object const& request) {
    Arguments const arguments(request);
    auto const name = arguments.text("op");
    auto const* const operation = findOperation(name);
    if (operation == nullptr) throw BadLine('"' + name + "\" is no operation" + didYouMean(name, operationNames()));
    auto const* const id = request.if_contains("id");
    Answer const answer(session.output, session.open, id ? *id : nullptr, operation->name);
    try {
        operation->run(session, arguments, answer);
    } catch (NotThere const& missing) {
        answer.refusal(missing.what());
    }
    answer.callReturned();
}

}  // namespace

void carryOut(Session& session, InputLines::Line const& line) {
    try {
        if (line.isTooLong) throw BadLine("the line is longer than 16 MiB");
        boost::system::error_code error;
        json::parse_options options;
        options.max_depth = kMostDepth;
        auto const request = json::parse(line.text, error, {}, options);
        if (error) throw BadLine("not JSON: " + error.message());
        if (!isFinite(request)) throw BadLine("a number is out of range");
        if (!request.is_object()) throw BadLine("not a JSON object");
        carryOut(session, request.get_object());
    } catch (BadLine const& bad) {
        session.output->line({{"error", bad.what()}, {"line", line.number}});
    }
}

}  // namespace kv::console

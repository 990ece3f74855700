#include "console/CarryOut.h"

#include "console/Operations.h"

namespace kv::console {
namespace {

void carryOut(Session& session, boost::json::object const& request) {
    Arguments const arguments(request);
    auto const* const operation = findOperation(arguments.text("op"));
    if (operation == nullptr) throw BadLine("\"op\" names no operation");
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
        auto const request = boost::json::parse(line.text, error);
        if (error) throw BadLine("not JSON: " + error.message());
        if (!request.is_object()) throw BadLine("not a JSON object");
        carryOut(session, request.get_object());
    } catch (BadLine const& bad) {
        session.output->line({{"error", bad.what()}, {"line", line.number}});
    }
}

}  // namespace kv::console

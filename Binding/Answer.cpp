#include "Binding/Answer.h"

#include "Classes/Model/KvFailure.h"

#include <utility>

namespace kv::binding {

Answer::Answer(std::shared_ptr<Inbox> inbox, std::shared_ptr<OpenOperations> open, boost::json::value id,
               std::string_view operation)
    : request_(std::make_shared<Request>()) {
    request_->inbox = std::move(inbox);
    ++*open;
    request_->open = std::move(open);
    request_->id = std::move(id);
    request_->operation = operation;
}

void Answer::Request::settle() {
    if (!std::exchange(isSettled, true)) --*open;
}

void Answer::result(boost::json::value result) const {
    auto line = begun(1);
    line.emplace("result", std::move(result));
    write(line);
}

void Answer::refusal(std::string_view text) const { request_->inbox->put({{"error", text}, {"id", request_->id}}); }

namespace {

boost::json::object toJson(KvFailure const& failure) {
    boost::json::object fields{{"stage", toString(failure.stage)}, {"cause", failure.cause}};
    if (!failure.serverWords.empty()) fields["serverWords"] = failure.serverWords;
    if (!failure.advice.empty()) fields["advice"] = failure.advice;
    if (failure.goesOn) fields["goesOn"] = true;
    return fields;
}

}  // namespace

void Answer::write(std::int64_t code, std::string_view text, boost::json::object&& others) const {
    auto line = begun(3 + others.size());
    line.emplace("code", code);
    if (code != 0) line.emplace("text", text);
    if (auto const failure = currentFailure()) line.emplace("failure", toJson(*failure));
    append(line, std::move(others));
    write(line);
}

boost::json::object Answer::begun(std::size_t further) const {
    boost::json::object line;
    line.reserve(2 + further);
    line.emplace("id", request_->id);
    line.emplace("op", request_->operation);
    return line;
}

void Answer::write(boost::json::object const& line) const {
    request_->inbox->put(line);
    if (!request_->isInCall) request_->settle();
}

}  // namespace kv::binding

#include "console/Answer.h"

#include "Classes/Model/KvFailure.h"

#include <utility>

namespace kv::console {

Answer::Answer(std::shared_ptr<Output> output, std::shared_ptr<OpenOperations> open, boost::json::value id,
               std::string_view operation)
    : line_(std::make_shared<Line>()) {
    ++open->count;
    open->lastBegun = KvMainQueue::Clock::now();
    line_->output = std::move(output);
    line_->open = std::move(open);
    line_->id = std::move(id);
    line_->operation = operation;
}

void Answer::Line::settle() {
    if (!std::exchange(isSettled, true)) --open->count;
}

void Answer::result(boost::json::value result) const { write({{"result", std::move(result)}}); }

void Answer::refusal(std::string_view text) const { line_->output->line({{"error", text}, {"id", line_->id}}); }

namespace {

boost::json::object toJson(KvFailure const& failure) {
    boost::json::object fields{{"stage", toString(failure.stage)}, {"cause", failure.cause}};
    if (!failure.serverWords.empty()) fields["serverWords"] = failure.serverWords;
    if (!failure.advice.empty()) fields["advice"] = failure.advice;
    if (failure.goesOn) fields["goesOn"] = true;
    return fields;
}

}  // namespace

void Answer::write(std::int64_t code, std::string_view text, boost::json::object const& others) const {
    boost::json::object fields{{"code", code}};
    if (code != 0) fields["text"] = text;
    if (auto const failure = currentFailure()) fields["failure"] = toJson(*failure);
    for (auto const& [name, value] : others) fields[name] = value;
    write(fields);
}

void Answer::write(boost::json::object const& fields) const {
    boost::json::object line{{"id", line_->id}, {"op", line_->operation}};
    for (auto const& [name, value] : fields) line[name] = value;
    line_->output->line(line);
    if (!line_->isInCall) line_->settle();
}

}  // namespace kv::console

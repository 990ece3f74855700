// The operations that a request can ask for.
#pragma once

#include "Binding/Answer.h"
#include "Binding/Arguments.h"
#include "Binding/Session.h"

#include <span>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace kv::binding {

/// A request that is right as such, but is about something that the session does not have.
struct NotThere : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Operation {
    std::string_view name;
    /// "channelId text, rawData? data": which arguments there are, and of which type each is; those with a question
    /// mark may be absent.
    std::string_view arguments;
    /// The names of the fields that an answer has beside "id" and "op", with spaces between.
    std::string_view answer;
    /// What the codes mean, of an operation that answers with one.
    KvPimCodeTable const& (*codes)();
    /// Throws NotThere before anything was done.
    void (*run)(Session& session, Arguments const& arguments, Answer const& answer);
};

std::span<Operation const> operations();
/// Throws BadRequest where there is no operation of this name.
Operation const& operationOf(std::string_view name);
/// Throws BadRequest where the operation needs, or does not take, other arguments.
void check(Operation const& operation, Arguments const& arguments);

struct Argument {
    std::string_view name, type;
    bool isOptional = false;
};
std::vector<Argument> argumentsOf(Operation const& operation);

}  // namespace kv::binding

// The answer to one request: given as often as the operation's completion is called.
#pragma once

#include "Binding/Inbox.h"
#include "Binding/Records.h"
#include "Classes/Model/KvPimErrors.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include <boost/json.hpp>

namespace kv::binding {

/// How many of the operations begun still owe an answer.
using OpenOperations = std::atomic<std::size_t>;

/// Copies answer the same request. An operation counts as open until it is answered after the call that began it, or
/// until nobody is left who could answer: a completion called within the call may be called once more.
class Answer {
public:
    Answer(std::shared_ptr<Inbox> inbox, std::shared_ptr<OpenOperations> open, boost::json::value id,
           std::string_view operation);
    /// The call that began the operation has returned.
    void callReturned() const { request_->isInCall = false; }

    /// Answers with a result, for operations without a completion.
    void result(boost::json::value result) const;
    /// Answers with a completion's code, with words for it unless it is 0, and with what else the completion was given.
    template <KvPimErrorCode Code>
    void code(std::int64_t code, boost::json::object&& others = {}) const {
        write(code, describe(Code(code)), std::move(others));
    }
    /// Says that the request was right, but named something that is not there.
    void refusal(std::string_view text) const;

    /// A completion that receives nothing but the code.
    template <KvPimErrorCode Code>
    std::function<void(std::int64_t)> completion() const {
        return [answer = *this](std::int64_t errorCode) { answer.code<Code>(errorCode); };
    }
    /// A completion that receives a list before the code.
    template <KvPimErrorCode Code, class List>
    std::function<void(List const&, std::int64_t)> completion(std::string_view name) const {
        return [answer = *this, name](List const& list, std::int64_t errorCode) {
            answer.code<Code>(errorCode, {{name, toJson(list)}});
        };
    }

private:
    struct Request {
        ~Request() { settle(); }
        void settle();

        std::shared_ptr<Inbox> inbox;
        std::shared_ptr<OpenOperations> open;
        boost::json::value id;
        std::string_view operation;
        bool isInCall = true;
        bool isSettled = false;
    };

    void write(std::int64_t code, std::string_view text, boost::json::object&& others) const;
    /// What each answer begins with; so many fields follow at most.
    boost::json::object begun(std::size_t further) const;
    void write(boost::json::object const& line) const;

    std::shared_ptr<Request> request_;
};

}  // namespace kv::binding

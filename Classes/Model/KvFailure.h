#pragma once

#include "Net/KvFailureStage.h"
#include "Platform/KvExport.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kv {

/// Why something failed, in words that may be shown to people and kept in logs: one line each, of bounded length,
/// without control characters, and never with a token or a password. The words may be better ones in the next version:
/// programs decide by stage and code.
struct KV_EXPORT KvFailure {
    KvFailureStage stage{};
    /// The method, such as "loginByToken"; "connection" for one that was lost, "reconnect" for an attempt to come back.
    std::string operation;
    /// What the completion receives; 0 where there is none.
    std::int64_t code = 0;
    /// A sentence: what happened.
    std::string cause;
    /// The server's own words, where there are some: judge them as you would anything that comes from outside.
    std::string serverWords;
    /// What to do.
    std::string advice;
    /// It is not the end: the completion will be called once more, or the client tries again by itself.
    bool goesOn = false;
};

/// The stage in a word, as `KvFailureStage` has it.
KV_EXPORT std::string_view toString(KvFailureStage stage);
/// All of it in one line.
KV_EXPORT std::string describe(KvFailure const& failure);

/// The failure of the completion that is being called on this thread at this moment with a code other than 0; null
/// where there is none. What was passed to that completion, and nothing that a call in it has led to.
KV_EXPORT std::shared_ptr<KvFailure const> currentFailure();

}  // namespace kv

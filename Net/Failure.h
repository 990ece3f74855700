// What went wrong on the way to a server, from the floor that saw it up to whoever tells people.
#pragma once

#include "Net/KvFailureStage.h"

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

namespace kv::net {

struct Failure {
    KvFailureStage stage{};
    std::string text{};         // as the log has it and "disconnect" tells it
    std::string cause{};        // a sentence, where the text is none that tells enough
    std::string serverWords{};  // as they came: perhaps long, perhaps with anything in them

    /// What was found wrong at a stage. TLS may find fault with a peer later too, and its texts say that they are its.
    static Failure at(KvFailureStage stage, std::string text);
};

/// How far an attempt is; any thread may look.
using Progress = std::shared_ptr<std::atomic<KvFailureStage>>;
inline Progress makeProgress() { return std::make_shared<std::atomic<KvFailureStage>>(KvFailureStage::address); }

/// Whether an answer in clear begins as one in TLS does.
inline bool looksLikeTls(std::string_view answer) { return answer.starts_with("\x15\x03"); }
inline constexpr char kSpeaksTls[] = "The server speaks TLS there, and was spoken to in clear";

}  // namespace kv::net

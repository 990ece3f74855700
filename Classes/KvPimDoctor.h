// Why does it not connect here? The doctor goes the road of a login step by step, and says for each step what it found,
// how long it took, and what to do where it failed.
//
//     doctor = std::make_unique<kv::KvPimDoctor>(
//         kv::KvPimDoctor::Subject{.appId = "demo", .client = options},
//         [](kv::KvPimDoctor::Step const& step) { std::cout << step.name << ": " << step.found << '\n'; },
//         [](kv::KvPimDoctor::Summary const& summary) { std::cout << (summary.isWell() ? "well" : "not well") << '\n';
//         });
#pragma once

#include "Classes/Model/KvPimOptions.h"
#include "Platform/KvExport.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv {

class KvExamination;

/// An examination that is under way. It belongs to the thread that drives its main queue: made there, at work there,
/// calling back there, and never inside the constructor. Destroyed, also in its own callbacks, it ends and nobody is
/// called any more.
class KV_EXPORT KvPimDoctor final {
public:
    /// How a step ended. `warned`: it goes on, but something is amiss. `skipped`: there was nothing to do, or an
    /// earlier step has failed that this one needs.
    enum class Outcome { passed, warned, failed, skipped };

    /// What is examined.
    struct Subject {
        std::string appId;
        /// As for the client that does not connect: address, main queue, network, directories.
        KvPimOptions client{};
        /// Who logs in; without a user nobody does. A user has one session: another one of theirs is ended by it.
        std::string userId{}, token{};
        /// When the token was made, as `KvPimKit::loginByToken` takes it.
        std::chrono::system_clock::time_point timeStamp = std::chrono::system_clock::now();
        /// Whether one event report is sent to the collector, to see whether it takes it. It tells of nothing.
        bool triesUpload = false;
        /// How long each step may wait.
        std::chrono::milliseconds timeout{10'000};
    };

    /// What a step has come to. Its texts may be shown to people: one line each, bounded, and never with the token or a
    /// password.
    struct Step {
        /// "address"; of the API server "names", "tcp", "proxy", "tls", "discovery", "clock"; of the socket server,
        /// where it is another one, "socket names", "socket tcp", "socket proxy", "socket tls"; "upgrade", "handshake",
        /// "login", "round trips"; "upload", "directories", "key store".
        std::string name;
        Outcome outcome = Outcome::passed;
        /// A sentence.
        std::string found{};
        std::chrono::microseconds took{};
        /// What to do; empty where there is nothing to do.
        std::string advice{};
        /// Names of facts, and the facts.
        std::vector<std::pair<std::string, std::string>> details{};
    };

    /// All of it.
    struct Summary {
        std::size_t passed = 0, warned = 0, failed = 0, skipped = 0;
        /// The first step that failed; empty for none.
        std::string firstFailed{};
        std::chrono::microseconds took{};
        /// Nothing has failed.
        bool isWell() const { return failed == 0; }
    };

    /// Begins at the next turn of the subject's main queue. `onStep` is called as each step ends, `onEnd` behind the
    /// last one; either may be empty. Nothing is called when the system has no descriptors for the main queue.
    KvPimDoctor(Subject subject, std::function<void(Step const&)> onStep, std::function<void(Summary const&)> onEnd);
    KvPimDoctor(KvPimDoctor const&) = delete;
    KvPimDoctor& operator=(KvPimDoctor const&) = delete;
    ~KvPimDoctor();

private:
    std::shared_ptr<KvExamination> examination_;
};

/// The outcome in a word, as the enumeration has it.
KV_EXPORT std::string_view toString(KvPimDoctor::Outcome outcome);

}  // namespace kv

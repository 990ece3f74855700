// What all these programs do while their loop runs: log in, say hello to oneself, and be done when it arrives.
#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <KvPim/KvPimKit.h>
#include <KvPim/KvScope.h>

class Greeting {
public:
    /// `done` is called on the main queue, with the exit status of the program.
    Greeting(int argc, char** argv, std::function<void(int)> done) : done_(std::move(done)) {
        kv::KvPimOptions options;
        options.envConfig.apiServer = argc > 1 ? argv[1] : "http://127.0.0.1:8600";
        client_ = kv::KvPimKit::initWithAppId("demo", delegate_, options);
        delegate_->messageReceived = [this](kv::KvPimKit&, auto message, auto const& peer) {
            std::printf("%s says: %s\n", peer.c_str(), message->text.value_or("(bytes)").c_str());
            done_(0);
        };
        queue()->post(scope_.wrap([this] { logIn(); }));
    }

    std::shared_ptr<kv::KvMainQueue> queue() const { return kv::KvMainQueue::main(); }

private:
    void logIn() {
        if (!client_) return done_(1);
        std::string const token = "0123456789abcdef0123456789abcdef";
        client_->loginByToken(token, std::chrono::system_clock::now(), "alice",
                              scope_.wrap([this](std::int64_t errorCode) { greet(errorCode); }));
    }

    void greet(std::int64_t errorCode) {
        if (errorCode != 0) return done_(1);
        auto const message = std::make_shared<kv::KvPimMessage>("Hello, loop");
        client_->sendMessageToPeer(message, "alice", std::nullopt, nullptr);
    }

    std::function<void(int)> done_;
    std::shared_ptr<kv::KvPimDelegate> delegate_ = std::make_shared<kv::KvPimDelegate>();
    std::shared_ptr<kv::KvPimKit> client_;
    kv::KvScope scope_;  // ends first, and with it what is still to be called
};

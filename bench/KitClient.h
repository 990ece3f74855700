// The whole library, as an application uses it.
#pragma once

#include "Classes/KvPimKit.h"
#include "bench/Client.h"

namespace bench {

class KitClient final : public Client {
public:
    explicit KitClient(Subject const& subject, std::string userId = "alice");

    void login(Done done) override;
    void logout(Done done) override;
    void loseConnection(Done done) override;
    void send(Content content, Answered answered) override;
    void askForMessages(long count, Content content, Done done) override;
    void sendTo(std::string const& peer, std::string text, Answered answered);
    /// Has the server send so many events, of the kind that the peer's name stands for.
    void askForEvents(std::string const& peer, long count, Done done);
    /// One of the events has arrived.
    void onEvent();

    kv::KvPimKit& kit() { return *kit_; }

private:
    void onReceived(kv::KvPimMessage const& message);

    std::string const userId_;
    std::shared_ptr<kv::KvPimDelegate> const delegate_ = std::make_shared<kv::KvPimDelegate>();
    std::shared_ptr<kv::KvPimKit> kit_;
    long missing_ = 0;
    Done allReceived_;
    Done back_;
};

}  // namespace bench

// A bot that keeps a room: it says hello to everybody who comes in, counts the visits, and hangs the number out where
// all can read it. It logs in until it succeeds, and gives its client a new token when the old one has expired.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <KvPim/KvPimChannel.h>
#include <KvPim/KvPimKit.h>

class Host {
public:
    /// Issues a token for a user: what the application's own server does.
    using Issue = std::function<std::string(std::string const& user)>;

    Host(std::string user, std::string room, Issue issue, kv::KvPimOptions const& options);

    void start();
    bool isOpen() const { return room_ && room_->isInChannel(); }
    int visits(std::string const& user) const;
    /// The last thing that went wrong, for people; empty when nothing did.
    std::string const& trouble() const { return trouble_; }

private:
    void logIn();
    void open();
    void welcome(std::string const& guest);
    void retry(void (Host::*step)());

    std::string const user_, roomId_;
    Issue const issue_;
    std::shared_ptr<kv::KvMainQueue> const queue_;
    std::shared_ptr<kv::KvPimDelegate> const delegate_ = std::make_shared<kv::KvPimDelegate>();
    std::shared_ptr<kv::KvPimChannelDelegate> const listener_ = std::make_shared<kv::KvPimChannelDelegate>();
    std::shared_ptr<kv::KvPimKit> const client_;
    std::shared_ptr<kv::KvPimChannel> room_;
    std::map<std::string, int> visits_;
    std::string trouble_;
    kv::KvQueueTimer next_;
};

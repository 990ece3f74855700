// The Socket.IO client alone.
#include "Platform/KvEngineThread.h"
#include "SocketIO/SocketIOClient.h"
#include "SocketIO/SocketManager.h"
#include "bench/Client.h"

#include <array>
#include <memory>
#include <utility>

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/object.hpp>

namespace bench {
namespace json = boost::json;
namespace {

constexpr std::chrono::seconds kTimeout{6};

kv::SocketConfig configOf(Subject const& subject) {
    kv::SocketConfig config;
    config.caFile = subject.caFile;
    config.connectParams = {{"app", "bench"}, {"roomId", "room-1"}, {"token", R"({"userId":"alice","token":"t"})"}};
    return config;
}

kv::KvData const& blob() {
    static auto const bytes = kv::makeData(std::string(kBinaryBytes, '\4'));
    return bytes;
}

class SocketClient final : public Client {
public:
    explicit SocketClient(Subject const& subject) : subject_(subject) {}

    void login(Done done) override {
        loggedIn_ = std::move(done);
        connect();
    }

    void logout(Done done) override {
        left_ = std::move(done);
        socket_->disconnect();
    }

    void loseConnection(Done done) override {
        loggedIn_ = std::move(done);
        left_ = [this] { kv::KvMainQueue::main()->post([this] { connect(); }); };
        socket_->emit("drop", {});
    }

    void send(Content content, Answered answered) override {
        std::array<unsigned char, 1024> buffer;
        json::monotonic_resource memory(buffer.data(), buffer.size());
        kv::SocketItems items{json::array(&memory), {}};
        json::object body(&memory);
        if (content == Content::text) {
            body = {{"text", std::string(kTextBytes, 'x')}, {"binary", nullptr}};
        } else {
            body = {{"text", nullptr}, {"binary", items.binary(blob())}};
        }
        items.values.emplace_back("sendMessageToPeer");
        items.values.emplace_back(json::object(
            {{"targetUserId", "bob"}, {"content", std::move(body)}, {"option", {{"offline", false}}}}, &memory));
        socket_->emitWithAck("command", std::move(items))
            .timingOutAfter(kTimeout, [answered = std::move(answered)](kv::SocketData const& data) {
                auto const* answer = data.items().empty() ? nullptr : data.items().front().if_object();
                auto const* result = answer ? answer->if_contains("result") : nullptr;
                answered(result && result->is_int64() ? result->get_int64() : -1);
            });
    }

    void askForMessages(long count, Content content, Done done) override {
        allReceived_ = std::move(done);
        kv::SocketItems items;
        items.values.emplace_back(
            json::object{{"n", count}, {"size", bytesOf(content)}, {"binary", content == Content::binary}});
        socket_->emit("flood", items);
    }

private:
    void connect() {
        auto const main = kv::KvMainQueue::main();
        auto const engine = subject_.isOnThread ? kv::engineThreadQueue() : main;
        manager_ = std::make_unique<kv::SocketManager>(subject_.url(), configOf(subject_), main, engine);
        socket_ = manager_->defaultSocket();
        socket_->on("disconnect", [this](kv::SocketData const&) {
            if (!left_) fail("the connection was lost");
            std::exchange(left_, nullptr)();
        });
        socket_->on("loginSuccess", [this](kv::SocketData const&) { std::exchange(loggedIn_, nullptr)(); });
        socket_->on("MessageToPeerReceived", [this](kv::SocketData const& data) { onReceived(data); });
        socket_->on("floodEnd", [this](kv::SocketData const&) { std::exchange(allReceived_, nullptr)(); });
        socket_->connect();
    }

    void onReceived(kv::SocketData const& data) {
        for (auto const& message : data.items().front().at("msgs").get_array()) {
            auto const& content = message.at("content").get_object();
            auto const bytes = data.binary(content.at("binary"));
            if (onMessage) onMessage(bytes ? bytes->size() : content.at("text").get_string().size());
        }
    }

    Subject const subject_;
    std::unique_ptr<kv::SocketManager> manager_;
    std::shared_ptr<kv::SocketIOClient> socket_;
    Done loggedIn_, left_, allReceived_;
};

}  // namespace

std::unique_ptr<Client> makeSocketClient(Subject const& subject) { return std::make_unique<SocketClient>(subject); }

}  // namespace bench

#include "bench/KitClient.h"

#include <filesystem>
#include <utility>

#include <unistd.h>

namespace bench {
namespace {

constexpr char kToken[] = "0123456789abcdef0123456789abcdef";

// The files of the process, removed at its end.
std::string const& directory() {
    static struct Directory {
        std::string path =
            (std::filesystem::temp_directory_path() / ("kvpim-bench-" + std::to_string(::getpid()))).string();
        ~Directory() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    } const made;
    return made.path;
}

kv::KvPimOptions optionsOf(Subject const& subject) {
    kv::KvPimOptions options;
    options.envConfig.apiServer = subject.url();
    options.envConfig.caFile = subject.caFile;
    options.envConfig.collectServer = "http://127.0.0.1:9/";  // event reports are written, not uploaded
    options.envConfig.cachesDirectory = directory() + "/caches";
    options.envConfig.keyStoreDirectory = directory() + "/keys";
    options.engine = subject.isOnThread ? kv::KvPimEngine::thread : kv::KvPimEngine::mainQueue;
    return options;
}

kv::KvData const& blob() {
    static auto const bytes = kv::makeData(std::string(kBinaryBytes, '\4'));
    return bytes;
}

}  // namespace

KitClient::KitClient(Subject const& subject, std::string userId) : userId_(std::move(userId)) {
    delegate_->messageReceived = [this](kv::KvPimKit&, std::shared_ptr<kv::KvPimMessage> const& message,
                                        std::string const&) { onReceived(*message); };
    delegate_->peersOnlineStatusChanged = [this](kv::KvPimKit&, auto const&) { onEvent(); };
    delegate_->connectionStateChanged = [this](kv::KvPimKit&, std::int64_t state, std::int64_t) {
        if (state == kv::KvPimConnectionStateConnected && back_) std::exchange(back_, nullptr)();
    };
    kit_ = kv::KvPimKit::initWithAppId("bench", delegate_, optionsOf(subject));
}

void KitClient::login(Done done) {
    kit_->loginByToken(kToken, 1, userId_, [done = std::move(done)](std::int64_t code) {
        if (code != 0) fail("login failed with %lld", static_cast<long long>(code));
        done();
    });
}

void KitClient::logout(Done done) {
    kit_->logoutWithCompletion([done = std::move(done)](std::int64_t) { done(); });
}

void KitClient::loseConnection(Done done) {
    back_ = std::move(done);
    sendTo("drop", "now", {});
}

void KitClient::send(Content content, Answered answered) {
    std::shared_ptr<kv::KvPimMessage> message;
    if (content == Content::text) {
        message = std::make_shared<kv::KvPimMessage>(std::string(kTextBytes, 'x'));
    } else {
        message = std::make_shared<kv::KvPimRawMessage>(blob());
    }
    kit_->sendMessageToPeer(message, "bob", {}, std::move(answered));
}

void KitClient::sendTo(std::string const& peer, std::string text, Answered answered) {
    kit_->sendMessageToPeer(std::make_shared<kv::KvPimMessage>(std::move(text)), peer, {}, std::move(answered));
}

void KitClient::askForMessages(long count, Content content, Done done) {
    askForEvents(content == Content::text ? "flood-text" : "flood-binary", count, std::move(done));
}

void KitClient::askForEvents(std::string const& peer, long count, Done done) {
    missing_ = count;
    allReceived_ = std::move(done);
    sendTo(peer, std::to_string(count), {});
}

void KitClient::onEvent() {
    if (missing_ > 0 && --missing_ == 0) allReceived_();
}

void KitClient::onReceived(kv::KvPimMessage const& message) {
    auto const data = message.data();
    if (onMessage) onMessage(data ? data->size() : message.text.value_or("").size());
    onEvent();
}

std::unique_ptr<Client> makeKitClient(Subject const& subject) { return std::make_unique<KitClient>(subject); }

}  // namespace bench

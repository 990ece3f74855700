#include "SocketIO/transport/Opener.h"

#include <string_view>
#include <utility>

namespace kv::sio {

// The client's part in it.
class Opener::Handshake final : public net::Script {
public:
    explicit Handshake(Plan const& plan)
        : upgrade_(plan.url.authority(), plan.target, plan.offersDeflate,
                   net::headerLines(net::optionsOf(plan.network))) {}

    std::string_view toSend() override {
        return std::exchange(isSent_, true) ? "" : std::string_view(upgrade_.request());
    }

    void onReceived(std::string_view bytes) override {
        answer_ += bytes;
        std::string_view text(answer_);
        auto end = text.find("\r\n\r\n");
        while (end != std::string_view::npos && Upgrade::isInterim(text.substr(0, end + 2))) {
            text.remove_prefix(end + 4);
            end = text.find("\r\n\r\n");
        }
        if (!Upgrade::mayBeHttp(text)) return conclude("The server does not speak HTTP");
        if (end == std::string_view::npos) {
            if (answer_.size() > kMostResponseBytes)
                conclude("The server's answer to the WebSocket handshake is too long");
            return;
        }
        head = text.substr(0, end);
        early.assign(text.begin() + static_cast<std::ptrdiff_t>(end + 4), text.end());
        conclude(upgrade_.check(text.substr(0, end + 2), agreement));
    }

    void onClosed() override { conclude("The server closed the connection"); }
    bool isOver() const override { return isOver_; }
    std::string const& error() const override { return error_; }

    net::Failure failure(std::string error) const {
        auto failure = net::Failure::at(KvFailureStage::upgrade, std::move(error));
        if (net::looksLikeTls(answer_)) return {KvFailureStage::tls, std::move(failure.text), net::kSpeaksTls};
        bool const isRefusal = !answer_.starts_with("HTTP/1.1 101");
        if (isRefusal) failure.serverWords.assign(early.begin(), early.end());  // the page that it comes with
        return failure;
    }

    std::string head;
    KvBytes early;
    DeflateAgreement agreement;

private:
    void conclude(std::string error) {
        isOver_ = true;
        error_ = std::move(error);
    }

    Upgrade const upgrade_;
    bool isSent_ = false;
    bool isOver_ = false;
    std::string answer_;
    std::string error_;
};

Opener::Opener(std::shared_ptr<KvMainQueue> const& queue, Plan plan, std::function<void(Opened)> done)
    : queue_(queue), plan_(std::move(plan)), done_(std::move(done)) {}

Opener::~Opener() { cancel(); }

void Opener::start() {
    dialer_ = std::make_shared<net::Dialer>(
        queue_.lock(), plan_.url, plan_.network,
        [this](std::unique_ptr<net::Stream> stream, net::Failure failure) {
            if (!stream) return finish({nullptr, {}, {}, std::move(failure)});
            shakeHands(std::move(stream));
        },
        plan_.progress);
    auto const dialer = dialer_;  // it may fail within the call
    dialer->start();
}

void Opener::cancel() {
    done_ = nullptr;
    if (dialer_) dialer_->cancel();
    if (talk_) talk_->cancel();
    if (stream_) stream_->close();
}

std::string Opener::doing() const {
    return handshake_ ? "WebSocket handshake with " + plan_.url.text() : dialer_->doing();
}

void Opener::shakeHands(std::unique_ptr<net::Stream> stream) {
    stream_ = std::move(stream);
    *plan_.progress = KvFailureStage::upgrade;
    handshake_ = std::make_unique<Handshake>(plan_);
    talk_ = std::make_shared<net::Talk>(*stream_, *handshake_, [this](std::string error) {
        if (!error.empty()) return finish({nullptr, {}, {}, handshake_->failure(std::move(error)), handshake_->head});
        finish({std::move(stream_), std::move(handshake_->early), handshake_->agreement, {}, handshake_->head});
    });
    talk_->start();
}

void Opener::finish(Opened opened) {
    auto const keep = shared_from_this();
    auto const done = std::exchange(done_, nullptr);
    cancel();
    done(std::move(opened));
}

}  // namespace kv::sio

#include "Net/Http.h"

#include "Net/Dialer.h"
#include "Net/Talk.h"
#include "Net/Url.h"
#include "Platform/KvFiles.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

namespace kv {
namespace {

namespace http = boost::beast::http;
using net::Url;

constexpr int kMostRedirects = 16;
constexpr std::uint32_t kMostHead = 64u << 10;
constexpr std::size_t kPiece = 64u << 10;  // of a file, at a time

// Undoes gzip or deflate, as far as `most` bytes. False for what is neither.
bool unpack(std::string& body, std::size_t most) {
    z_stream stream{};
    constexpr int kAnyHeader = 32;
    if (inflateInit2(&stream, MAX_WBITS + kAnyHeader) != Z_OK) return false;
    std::string unpacked;
    std::array<char, 16384> piece;
    stream.next_in = reinterpret_cast<Bytef*>(body.data());
    stream.avail_in = static_cast<uInt>(body.size());
    int result = Z_OK;
    while (result == Z_OK && unpacked.size() <= most) {
        stream.next_out = reinterpret_cast<Bytef*>(piece.data());
        stream.avail_out = piece.size();
        result = inflate(&stream, Z_NO_FLUSH);
        unpacked.append(piece.data(), piece.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    body = std::move(unpacked);
    return result == Z_STREAM_END && body.size() <= most;
}

// One request, and its answer.
class Exchange final : public net::Script {
public:
    Exchange(std::string head, int file, off_t fileSize, std::size_t largestBody, std::function<void()> onLife)
        : head_(std::move(head)),
          file_(file),
          fileSize_(fileSize),
          largestBody_(largestBody),
          onLife_(std::move(onLife)) {
        begin();
    }

    std::string_view toSend() override {
        onLife_();
        if (!std::exchange(isHeadSent_, true)) return head_;
        if (fileSent_ == fileSize_) return {};
        piece_.resize(kPiece);
        // A file that has grown meanwhile is sent as long as it was; one that has shrunk cannot be.
        auto const wanted = std::min(static_cast<off_t>(piece_.size()), fileSize_ - fileSent_);
        auto const count = ::pread(file_, piece_.data(), static_cast<std::size_t>(wanted), fileSent_);
        if (count <= 0) {
            fail("the file cannot be read any more");
            return {};
        }
        fileSent_ += count;
        return std::string_view(piece_).substr(0, static_cast<std::size_t>(count));
    }

    void onReceived(std::string_view bytes) override {
        onLife_();
        received_ += bytes;
        if (!parser_->got_some() && net::looksLikeTls(received_)) speaksTls_ = true;
        boost::system::error_code error;
        while (!isOver_ && !received_.empty()) {
            auto const used = parser_->put(boost::asio::buffer(received_.data(), received_.size()), error);
            received_.erase(0, used);
            if (error == http::error::need_more) return;
            if (error) return fail(error.message());
            if (parser_->is_done()) onAnswer();
            if (used == 0) return;
        }
    }

    void onClosed() override {
        boost::system::error_code error;
        if (parser_->got_some()) parser_->put_eof(error);
        if (error || !parser_->is_done()) return fail(error ? error.message() : "the server has closed the connection");
        onAnswer();
    }

    bool isOver() const override { return isOver_; }
    std::string const& error() const override { return error_; }

    bool speaksTls() const { return speaksTls_; }
    unsigned status() const { return parser_->is_header_done() ? parser_->get().result_int() : 0; }
    std::string reason() const { return std::string(parser_->get().reason()); }
    std::string location() const { return std::string(parser_->get()[http::field::location]); }
    std::vector<std::string> headers() const {
        std::vector<std::string> lines;
        for (auto const& field : parser_->get())
            lines.push_back(std::string(field.name_string()) + ": " + std::string(field.value()));
        return lines;
    }
    std::string takeBody() { return std::move(parser_->get().body()); }

private:
    void begin() {
        parser_.emplace();
        parser_->eager(true);
        parser_->header_limit(kMostHead);
        parser_->body_limit(largestBody_);
    }

    void onAnswer() {
        if (status() / 100 == 1) return begin();  // another one follows
        auto const coding = parser_->get()[http::field::content_encoding];
        bool const isPacked = coding == "gzip" || coding == "x-gzip" || coding == "deflate";
        if (isPacked && !unpack(parser_->get().body(), largestBody_)) return fail("the answer cannot be unpacked");
        isOver_ = true;
    }

    void fail(std::string what) {
        isOver_ = true;
        error_ = std::move(what);
    }

    std::string const head_;
    int const file_;
    off_t const fileSize_;
    std::size_t const largestBody_;
    std::function<void()> const onLife_;
    bool isHeadSent_ = false;
    off_t fileSent_ = 0;
    std::string piece_;
    std::string received_;
    std::optional<http::response_parser<http::string_body>> parser_;
    bool speaksTls_ = false;
    bool isOver_ = false;
    std::string error_;
};

// A task until its answer, over as many exchanges as it is redirected.
class Errand final : public std::enable_shared_from_this<Errand> {
public:
    Errand(std::shared_ptr<KvMainQueue> const& queue, KvHttpTask task, KvHttpCompletion completion)
        : queue_(queue), task_(std::move(task)), completion_(std::move(completion)) {}

    void start() {
        started_ = lastLife_ = queue_.lock()->now();
        watch();
        if (!task_.uploadPath.empty() && !openFile()) return fail("no file to upload");
        auto url = Url::parse(task_.url);
        if (!url) return fail({KvFailureStage::address, "not a URL of HTTP"});
        origin_ = *url;
        go(*std::move(url));
    }

private:
    bool openFile() {
        file_ = KvFileDescriptor(::open(task_.uploadPath.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat status {};
        if (!file_ || ::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
        fileSize_ = status.st_size;
        isUpload_ = true;
        return true;
    }

    KvMainQueue::Clock::time_point deadline() const {
        auto const idleEnd = lastLife_ + task_.requestTimeout;
        return task_.resourceTimeout.count() == 0 ? idleEnd : std::min(idleEnd, started_ + task_.resourceTimeout);
    }

    // One timer, which looks again when there were signs of life meanwhile. It owns the errand, which ends with its
    // queue.
    void watch() {
        auto const queue = queue_.lock();
        timer_ = queue->after(deadline() - queue->now(), [self = shared_from_this()] {
            if (self->queue_.lock()->now() < self->deadline()) return self->watch();
            if (auto const dialer = self->dialer_)
                return self->fail({dialer->stage(), "timed out: " + dialer->doing()});
            self->fail({KvFailureStage::discovery, "timed out", "No answer has come in time"});
        });
    }

    void go(Url url) {
        // A line break in a target would end the request's line and begin something else.
        bool const isOdd = std::ranges::any_of(url.target, [](unsigned char c) { return c <= ' ' || c == 0x7f; });
        if (isOdd) return fail({KvFailureStage::address, "control character in the URL"});
        url_ = std::move(url);
        talk_.reset();
        exchange_.reset();
        stream_.reset();
        dialer_ = std::make_shared<net::Dialer>(queue_.lock(), url_, task_.network,
                                                [this](std::unique_ptr<net::Stream> stream, net::Failure failure) {
                                                    if (!stream) return fail(std::move(failure));
                                                    ask(std::move(stream));
                                                });
        auto const dialer = dialer_;  // it may fail within the call
        dialer->start();
    }

    std::string head() const {
        auto head = (isUpload_ ? "POST " : "GET ") + url_.target + " HTTP/1.1\r\nHost: " + url_.authority() +
                    "\r\nAccept: */*\r\nAccept-Encoding: gzip, deflate\r\nConnection: close\r\n";
        for (auto const& header : task_.headers) head.append(header).append("\r\n");
        // What is meant for one server, such as a password, is nobody else's.
        bool const isAtHome = url_.text() == origin_.text() && url_.isSecure == origin_.isSecure;
        if (isAtHome) head.append(net::headerLines(net::optionsOf(task_.network)));
        if (isUpload_) head.append("Content-Length: ").append(std::to_string(fileSize_)).append("\r\n");
        return head + "\r\n";
    }

    void ask(std::unique_ptr<net::Stream> stream) {
        dialer_.reset();
        stream_ = std::move(stream);
        lastLife_ = queue_.lock()->now();
        exchange_ =
            std::make_unique<Exchange>(head(), file_.get(), isUpload_ ? fileSize_ : 0, task_.largestBody, [this] {
                if (auto const queue = queue_.lock()) lastLife_ = queue->now();
            });
        talk_ = std::make_shared<net::Talk>(*stream_, *exchange_,
                                            [this](std::string error) { onAnswer(std::move(error)); });
        talk_->start();
    }

    void onAnswer(std::string error) {
        answer_.status = exchange_->status();
        if (answer_.status != 0) answer_.reason = exchange_->reason();
        if (answer_.status != 0 && task_.wantsHeaders) answer_.headers = exchange_->headers();
        if (exchange_->speaksTls()) return fail({KvFailureStage::tls, std::move(error), net::kSpeaksTls});
        if (!error.empty()) return fail(std::move(error));
        bool const isRedirect = answer_.status == 301 || answer_.status == 302 || answer_.status == 303 ||
                                answer_.status == 307 || answer_.status == 308;
        auto const location = isRedirect ? exchange_->location() : std::string();
        if (location.empty()) {
            answer_.body = exchange_->takeBody();
            return finish();
        }
        auto next = url_.redirected(location);
        if (!next) return fail("redirected to what is no URL of HTTP");
        if (++redirects_ > kMostRedirects) return fail("redirected too often");
        if (answer_.status < 307) isUpload_ = false;  // as browsers do it
        queue_.lock()->post([self = shared_from_this(), url = *std::move(next)] {
            if (self->completion_) self->go(url);
        });
    }

    void fail(std::string error) { fail(net::Failure::at(KvFailureStage::discovery, std::move(error))); }

    void fail(net::Failure failure) {
        answer_.failure = std::move(failure);
        finish();
    }

    void finish() {
        auto const self = shared_from_this();
        timer_.cancel();
        if (dialer_) dialer_->cancel();
        if (talk_) talk_->cancel();
        if (stream_) stream_->close();
        if (auto const completion = std::exchange(completion_, nullptr)) completion(std::move(answer_));
    }

    std::weak_ptr<KvMainQueue> const queue_;
    KvHttpTask const task_;
    KvHttpCompletion completion_;
    KvHttpAnswer answer_;
    KvFileDescriptor file_;
    off_t fileSize_ = 0;
    bool isUpload_ = false;
    int redirects_ = 0;
    Url origin_, url_;
    KvMainQueue::Clock::time_point started_, lastLife_;
    KvQueueTimer timer_;
    std::shared_ptr<net::Dialer> dialer_;
    std::unique_ptr<net::Stream> stream_;
    std::unique_ptr<Exchange> exchange_;
    std::shared_ptr<net::Talk> talk_;
};

}  // namespace

void startHttp(std::shared_ptr<KvMainQueue> const& queue, KvHttpTask task, KvHttpCompletion completion) {
    queue->post(
        [errand = std::make_shared<Errand>(queue, std::move(task), std::move(completion))] { errand->start(); });
}

}  // namespace kv

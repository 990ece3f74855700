#include "Classes/Doctor/KvExamination.h"

#include "Classes/Await/KvList.h"
#include "Classes/Await/KvTogether.h"
#include "Classes/Catagory/KvJson.h"
#include "Classes/Doctor/KvOwnGround.h"
#include "Classes/Internal/KvFailureRecord.h"
#include "Classes/Internal/KvPimLoginParams.h"
#include "Classes/KvPimKit.h"
#include "Classes/Network/KvApiHelper.h"
#include "Classes/Network/KvApiManager.h"
#include "Classes/Network/KvHttpRequest.h"
#include "Classes/Network/KvServerAddress.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Platform/KvFiles.h"
#include "Platform/KvJsonText.h"
#include "Platform/KvThread.h"
#include "SocketIO/transport/SessionProbe.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <locale>
#include <sstream>
#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace kv {
namespace json = boost::json;
using namespace std::chrono_literals;
using std::chrono::duration_cast, std::chrono::microseconds, std::chrono::milliseconds, std::chrono::system_clock;
namespace {

constexpr std::size_t kMostFound = 600, kMostDetail = 1000;
constexpr int kRoundTrips = 10;
constexpr auto kClockTolerance = 5min;
constexpr int kDaysToRenew = 14;
constexpr unsigned kUploaded = 204;
// A report like any other, of no device and about nothing.
constexpr char kReport[] =
    R"({"logType":1,"deviceId":"00000000000000000000000000000000","os":"ios","timestamp":0,"encrypt":false,)"
    R"("content":"{\"type\":\"Doctor\"}"})"
    "\n";

template <class T>
std::function<void(T)> tellerOf(KvPending<T>& pending) {
    return [teller = detail::KvTeller(pending)](T told) { teller.tell(std::move(told)); };
}

std::string counted(std::size_t count, char const* one, char const* several) {
    return std::to_string(count) + ' ' + (count == 1 ? one : several);
}

std::string millisecondsText(microseconds time) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(1) << static_cast<double>(time.count()) / 1000 << " ms";
    return text.str();
}

std::string dateText(system_clock::time_point time) {
    auto const seconds = system_clock::to_time_t(time);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M UTC", &parts)};
}

std::string joined(std::vector<std::string> const& texts, char const* between = ", ") {
    std::string all;
    for (auto const& text : texts) all.append(all.empty() ? "" : between).append(text);
    return all;
}

std::vector<std::string> linesOf(std::string_view head) {
    std::vector<std::string> lines;
    for (auto end = head.find("\r\n"); end != std::string_view::npos; end = head.find("\r\n")) {
        lines.emplace_back(head.substr(0, end));
        head.remove_prefix(end + 2);
    }
    lines.emplace_back(head);
    return lines;
}

// The value of "Name: value" among such lines; empty for none.
std::string headerOf(std::vector<std::string> const& lines, std::string_view name) {
    auto const isEqual = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
    for (auto const& line : lines) {
        auto const colon = line.find(": ");
        if (colon == name.size() && std::equal(name.begin(), name.end(), line.begin(), isEqual))
            return line.substr(colon + 2);
    }
    return {};
}

std::optional<system_clock::time_point> timeOf(std::string const& date) {
    std::tm parts{};
    std::istringstream text(date);
    text.imbue(std::locale::classic());
    text >> std::get_time(&parts, "%a, %d %b %Y %H:%M:%S");
    if (text.fail()) return std::nullopt;
    return system_clock::from_time_t(::timegm(&parts));
}

// Removed with its owner.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string_view content) {
        std::error_code error;
        path_ = std::filesystem::temp_directory_path(error) / "kvpim-doctor-XXXXXX";
        KvFileDescriptor const file(::mkstemp(path_.data()));
        isWritten_ = file && writeAll(file.get(), content);
    }
    TemporaryFile(TemporaryFile const&) = delete;
    TemporaryFile& operator=(TemporaryFile const&) = delete;
    ~TemporaryFile() { ::unlink(path_.c_str()); }
    std::string const& path() const { return path_; }
    bool isWritten() const { return isWritten_; }

private:
    std::string path_;
    bool isWritten_ = false;
};

std::vector<std::string> secretsOf(KvPimDoctor::Subject const& subject) {
    auto secrets = net::secretsOf(subject.client.network);
    secrets.push_back(subject.token);
    secrets.push_back(net::percentEncoded(subject.token));  // as the request has it, which a gateway may repeat
    return secrets;
}

net::NetworkOptions networkOf(KvPimOptions const& client) {
    if (!problemOf(client.network).empty()) return nullptr;  // the first step says so, and is the last of the road
    return net::withCaFile(net::shared(client.network), client.envConfig.caFile);
}

}  // namespace

KvExamination::KvExamination(KvPimDoctor::Subject subject, std::function<void(Step const&)> onStep,
                             std::function<void(Summary const&)> onEnd)
    : subject_(std::move(subject)),
      apiServer_(subject_.client.envConfig.apiServer.empty() ? KvApiManager::apiServer()
                                                             : subject_.client.envConfig.apiServer),
      network_(networkOf(subject_.client)),
      queue_(subject_.client.mainQueue ? std::exchange(subject_.client.mainQueue, nullptr) : KvMainQueue::main()),
      secrets_(secretsOf(subject_)),
      onStep_(std::move(onStep)),
      onEnd_(std::move(onEnd)),
      task_(KvResult<void>()) {}

void KvExamination::start() {
    if (auto const running = queue()) task_ = spawn(running, run(shared_from_this()));
}

void KvExamination::abandon() {
    isAbandoned_ = true;
    onStep_ = nullptr;
    onEnd_ = nullptr;
    task_.cancel();
    kit_.reset();
}

// ---- The road

KvTask<> KvExamination::run(std::shared_ptr<KvExamination> self) {
    auto nextTurn = sleep(self->queue(), 0ms);  // nobody is called inside the constructor
    co_await nextTurn;
    self->examineAddress();
    co_await self->reach(self->toApi_.value_or(net::Way()), "");
    co_await self->discover();
    auto const isSame = [&](net::Url const& one, net::Url const& other) {
        return one.text() == other.text() && one.isSecure == other.isSecure;
    };
    if (self->toSocket_ && !isSame(self->toSocket_->server, self->toApi_->server))
        co_await self->reach(*self->toSocket_, "socket ");
    co_await self->openSession();
    co_await self->login();
    co_await self->goRound();
    self->kit_.reset();
    co_await self->upload();
    co_await self->examineGround();
    if (self->isAbandoned_) co_return;
    self->summary_.took = duration_cast<microseconds>(KvMainQueue::Clock::now() - self->started_);
    if (auto const onEnd = self->onEnd_) onEnd(self->summary_);
}

void KvExamination::examineAddress() {
    if (!begin("address")) return;
    if (auto const problem = problemOf(subject_.client.network); !problem.empty())
        return fail(net::Failure{KvFailureStage::address, "Unusable network options: " + problem});
    if (auto const problem = problemOfApiServer(apiServer_); !problem.empty())
        return fail(net::Failure{KvFailureStage::address, problem});
    toApi_ = net::Way::to(apiServer_, network_);
    if (!toApi_) return fail(net::Failure{KvFailureStage::address, "Not an address of a server: " + apiServer_});
    detail("host", toApi_->server.host);
    detail("port", std::to_string(toApi_->server.port));
    pass(apiServer_);
}

KvTask<> KvExamination::reach(net::Way way, std::string server) {
    net::Endpoints endpoints;
    co_await lookUpNames(way, server + "names", endpoints);
    co_await connect(way, server + "tcp", endpoints);
    co_await passProxy(way, server + "proxy");
    co_await secure(way, server + "tls");
}

KvTask<> KvExamination::lookUpNames(net::Way way, std::string name, net::Endpoints& endpoints) {
    if (!begin(name)) co_return;
    if (net::optionsOf(network_).connector) co_return pass("None is looked up: the application has its own way");
    KvPending<net::NamesFound> pending{queue_};
    auto const probe = net::probeNames(queue(), way, subject_.timeout, tellerOf(pending));
    auto const found = co_await pending;
    if (found->endpoints.empty()) co_return fail(found->failure);
    endpoints = found->endpoints;
    std::vector<std::string> addresses[2];
    for (auto const& endpoint : endpoints)
        addresses[endpoint.address().is_v6() ? 1 : 0].push_back(endpoint.address().to_string());
    if (addresses[0] == std::vector{way.hop.host} || addresses[1] == std::vector{way.hop.host})
        co_return pass(way.hop.host + " is an address already");
    detail("A", joined(addresses[0]));
    detail("AAAA", joined(addresses[1]));
    auto const all = way.hop.host + " has " + counted(addresses[0].size(), "address", "addresses") + " of IPv4 and " +
                     std::to_string(addresses[1].size()) + " of IPv6: ";
    addresses[0].insert(addresses[0].end(), addresses[1].begin(), addresses[1].end());
    pass(all + joined(addresses[0]));
}

KvTask<> KvExamination::connect(net::Way way, std::string name, net::Endpoints endpoints) {
    if (!begin(name)) co_return;
    if (net::optionsOf(network_).connector) co_return pass("The application's own way (`network.connector`) is taken");
    KvPending<std::vector<net::TcpAttempt>> pending{queue_};
    auto const probe = net::probeTcp(queue(), endpoints, subject_.timeout, tellerOf(pending));
    auto const attempts = co_await pending;
    std::vector<std::string> answering, failing;
    std::string error;
    for (auto const& attempt : *attempts) {
        auto const address = attempt.endpoint.address().to_string();
        detail(address, attempt.error.empty() ? millisecondsText(attempt.took) : attempt.error);
        (attempt.error.empty() ? answering : failing).push_back(address);
        if (!attempt.error.empty()) error = attempt.error;
    }
    auto const stage = way.isProxied ? KvFailureStage::proxy : KvFailureStage::tcp;
    if (answering.empty()) co_return fail(net::Failure{stage, "Cannot connect to " + way.hopText() + ": " + error});
    auto found = way.hopText() + " answers at " + joined(answering);
    if (failing.empty()) co_return pass(std::move(found));
    warn(found + ", not at " + joined(failing) + ": " + error,
         "Clients use the address that answers first. Ask who runs the server, or the network, about the others.");
}

KvTask<> KvExamination::passProxy(net::Way way, std::string name) {
    auto const unused = net::unusedProxies(way, network_);
    if (!way.isProxied) {
        // It needs nothing of what may have failed, and may be the reason.
        beginAside(name);
        if (unused.variables.empty()) co_return pass("None is used");
        detail("not used", joined(unused.variables));
        auto found = "None is used; the environment's " + joined(unused.variables) + " is ignored";
        if (!unused.wouldLead) co_return pass(std::move(found));
        co_return warn(std::move(found),
                       "Where this network lets nobody out directly: `network.proxy = KvProxy::fromEnvironment()` "
                       "(--proxy-from-environment).");
    }
    if (!begin(name)) co_return;
    KvPending<net::Failure> pending{queue_};
    auto const probe = net::probeTunnel(queue(), way, network_, subject_.timeout, tellerOf(pending));
    auto const failure = co_await pending;
    if (!unused.variables.empty()) detail("not used", joined(unused.variables));
    if (!failure->text.empty()) co_return fail(*failure);
    pass("T" + way.hopText().substr(1) + " leads to " + way.server.text());
}

KvTask<> KvExamination::secure(net::Way way, std::string name) {
    if (!begin(name)) co_return;
    if (!way.server.isSecure) {
        bool const isNear = way.server.host.starts_with("127.") || way.server.host == "::1";
        if (isNear) co_return pass("None: the address is one of http, on this machine");
        co_return warn("None: the address is one of http", "Use https: everybody on the way can read the token.");
    }
    auto const& options = net::optionsOf(network_).tls;
    auto const& host = options.serverName.empty() ? way.server.host : options.serverName;
    detail("trusted", net::trustText(options));
    detail("host", host);
    KvPending<net::TlsFound> pending{queue_};
    auto const probe = net::probeTls(queue(), way, network_, subject_.timeout, tellerOf(pending));
    auto const found = co_await pending;
    if (!found->failure.text.empty()) co_return fail(found->failure);
    auto const& certificate = found->certificate;
    auto const days = std::chrono::floor<std::chrono::days>(certificate.validUntil - system_clock::now()).count();
    detail("version", found->version);
    detail("cipher", found->cipher);
    detail("subject", certificate.subject);
    detail("issuer", certificate.issuer);
    detail("names", joined(certificate.names));
    detail("chain", joined(found->chain, " < "));
    detail("valid from", dateText(certificate.validFrom));
    detail("valid until", dateText(certificate.validUntil));
    detail("days left", std::to_string(days));
    auto const text = found->version + ", " + found->cipher + "; a certificate for " + host + ", in a chain of " +
                      std::to_string(found->chain.size()) + ", for " +
                      counted(static_cast<std::size_t>(std::max<std::int64_t>(days, 0)), "more day", "more days");
    if (days >= kDaysToRenew) co_return pass(text);
    warn(text, "Have the server's certificate renewed in time.");
}

KvTask<> KvExamination::discover() {
    std::vector<std::string> headers;
    if (begin("discovery")) {
        auto task = KvHttpRequest::taskOf(KvApiHelper::urlOf(apiServer_, subject_.appId), network_);
        task.requestTimeout = task.resourceTimeout = subject_.timeout;
        task.wantsHeaders = true;
        KvPending<KvHttpAnswer> pending{queue_};
        startHttp(queue(), std::move(task), tellerOf(pending));
        auto const answer = co_await pending;
        net::Failure why;
        auto const named = KvApiHelper::serverOf(*answer, why);
        headers = answer->headers;
        if (answer->status != 0) detail("status", std::to_string(answer->status) + ' ' + answer->reason);
        if (!headers.empty()) detail("headers", joined(headers, "; "));
        if (!answer->body.empty()) detail("body", answer->body);
        if (named && !named->empty()) {
            toSocket_ = net::Way::to(*named, network_);
            if (!toSocket_) why = {KvFailureStage::address, "Not an address of a server: " + *named};
        }
        if (toSocket_) {
            detail("server", *named);
            pass("It names " + *named);
        } else {
            fail(why);
        }
    }
    compareClocks(headers);
}

void KvExamination::compareClocks(std::vector<std::string> const& headers) {
    beginAside("clock");
    auto const date = headerOf(headers, "Date");
    auto const time = timeOf(date);
    if (!time) return skip(headers.empty() ? "There is no answer to compare it with" : "The API server tells no time");
    auto const ahead = std::chrono::floor<std::chrono::seconds>(system_clock::now()) - *time;
    detail("server", date);
    detail("ahead", std::to_string(ahead.count()) + " s");
    if (std::chrono::abs(ahead) <= 2s) return pass("This machine's clock is as the API server's");
    auto const found = "This machine's clock is " + std::to_string(std::chrono::abs(ahead).count()) + " s " +
                       (ahead > 0s ? "ahead of" : "behind") + " the API server's";
    if (std::chrono::abs(ahead) < kClockTolerance) return pass(found);
    warn(found, "Set this machine's clock: certificates and time stamps are judged by it.");
}

std::vector<std::pair<std::string, std::string>> KvExamination::connectParams() const {
    KvPimLoginParams parameters;
    parameters.loginWithToken(subject_.token, subject_.appId, subject_.userId,
                              duration_cast<milliseconds>(subject_.timeStamp.time_since_epoch()).count());
    std::vector<std::pair<std::string, std::string>> made;
    auto const config = parameters.generateSocketConfig();
    for (auto const& [key, value] : config.at("connectParams").as_object())
        made.emplace_back(key, asString(&value).value_or(""));
    return made;
}

KvTask<> KvExamination::openSession() {
    if (!begin("upgrade")) {
        begin("handshake");
        co_return;
    }
    SocketConfig config;
    config.compress = true;
    config.connectParams = connectParams();
    config.network = network_;
    KvPending<sio::Upgraded> pending{queue_};
    KvPending<net::Failure> pendingSession{queue_};
    auto const probe =
        sio::probeSession(queue(), *toSocket_, config, subject_.timeout, tellerOf(pending), tellerOf(pendingSession));
    auto const upgraded = co_await pending;
    if (!upgraded->head.empty()) {
        auto const head = linesOf(upgraded->head);
        detail("status", head.front());
        detail("headers", joined({head.begin() + 1, head.end()}, "; "));
    }
    if (!upgraded->failure.text.empty()) {
        fail(upgraded->failure);
        begin("handshake");
        co_return;
    }
    json::value open;
    readJson(upgraded->openPacket, {}, open);
    for (char const* name : {"pingInterval", "pingTimeout", "maxPayload"}) {
        if (auto const* value = valueOf(asObject(&open), name)) detail(name, std::to_string(asInteger(value)));
    }
    auto const number = [&](char const* name) { return asInteger(valueOf(asObject(&open), name)); };
    detail("compression", upgraded->isDeflated ? "permessage-deflate" : "none");
    pass("WebSocket; the server pings every " + std::to_string(number("pingInterval") / 1000) + " s and waits " +
         std::to_string(number("pingTimeout") / 1000) + " s");

    begin("handshake");
    auto const failure = co_await pendingSession;
    if (!failure->text.empty()) co_return fail(*failure);
    pass("The Socket.IO session is open");
}

void KvExamination::makeKit() {
    auto options = subject_.client;
    options.mainQueue = queue();
    options.network.discoveryTimeout = std::min(options.network.discoveryTimeout, subject_.timeout);
    options.network.connectTimeout = std::min(options.network.connectTimeout, subject_.timeout);
    auto made = KvPimKit::create(subject_.appId, options);
    if (!made) return fail(*made.error().failure());
    kit_ = *std::move(made);
}

KvTask<> KvExamination::login() {
    if (!begin("login")) co_return;
    if (subject_.userId.empty()) co_return skip("There is nobody to log in: no user and token were given");
    makeKit();
    if (!kit_) co_return;
    auto pending = kit_->loginByToken(subject_.token, subject_.timeStamp, subject_.userId).within(subject_.timeout);
    auto const result = co_await pending;
    if (result) co_return pass(subject_.userId + " is logged in");
    detail("code", std::to_string(result.error().code().value()));
    if (result.error().failure() != nullptr) co_return fail(*result.error().failure());
    if (auto const last = kit_->lastFailure()) co_return fail(*last);
    fail(net::Failure{KvFailureStage::login, "The login has come to no end" + net::noAnswer(subject_.timeout)});
}

KvTask<> KvExamination::goRound() {
    if (!begin("round trips")) co_return;
    if (!kit_) co_return skip("Nobody is logged in");
    std::vector<microseconds> times;
    for (int i = 0; i < kRoundTrips; ++i) {
        auto const start = KvMainQueue::Clock::now();
        auto pending = kit_->queryPeersOnlineStatus({subject_.userId}).within(subject_.timeout);
        auto const result = co_await pending;
        if (!result && result.error().failure() != nullptr) co_return fail(*result.error().failure());
        if (!result)
            co_return fail(
                net::Failure{KvFailureStage::request, "No answer to a request" + net::noAnswer(subject_.timeout)});
        times.push_back(duration_cast<microseconds>(KvMainQueue::Clock::now() - start));
    }
    std::ranges::sort(times);
    auto const median = (times[(times.size() - 1) / 2] + times[times.size() / 2]) / 2;
    detail("min", millisecondsText(times.front()));
    detail("median", millisecondsText(median));
    detail("max", millisecondsText(times.back()));
    pass(std::to_string(kRoundTrips) + " requests: " + millisecondsText(times.front()) + " at least, " +
         millisecondsText(median) + " median, " + millisecondsText(times.back()) + " at most");
}

// ---- What needs no road

KvTask<> KvExamination::upload() {
    beginAside("upload");
    if (!subject_.triesUpload) co_return skip("Not asked for");
    TemporaryFile const report(kReport);
    if (!report.isWritten())
        co_return fail(net::Failure{{}, "No report can be written to " + report.path()}, "Make room there.");
    auto const collector = LoganManager::collectServerOf(subject_.client.envConfig);
    KvHttpTask task;
    task.url = collector;
    task.headers = {"Content-type: application/octet-stream"};
    task.uploadPath = report.path();
    task.network = network_;
    task.requestTimeout = task.resourceTimeout = subject_.timeout;
    KvPending<KvHttpAnswer> pending{queue_};
    startHttp(queue(), std::move(task), tellerOf(pending));
    auto const answer = co_await pending;
    detail("collector", collector);
    if (answer->status != 0) detail("status", std::to_string(answer->status) + ' ' + answer->reason);
    char const* const advice = "Check `envConfig.collectServer` (--collect-url), and ask who runs the collector.";
    if (answer->failure && answer->failure->stage < KvFailureStage::discovery) co_return fail(*answer->failure);
    if (answer->failure) co_return fail(*answer->failure, advice);
    if (answer->status == kUploaded) co_return pass(collector + " takes reports");
    net::Failure refused{KvFailureStage::discovery, collector + " does not take a report: HTTP status " +
                                                        std::to_string(answer->status) + ' ' + answer->reason};
    refused.serverWords = answer->body;
    fail(refused, advice);
}

KvTask<> KvExamination::examineGround() {
    using Steps = std::vector<Step>;
    beginAside("directories");
    KvPending<Steps> pending{queue_};
    // It stays on the queue's thread; the other one can only find it there.
    auto const teller = std::make_shared<std::function<void(Steps)>>(tellerOf(pending));
    bool const isStarted =
        startThread("kv.doctor", [queue = queue_, config = subject_.client.envConfig, found = std::weak_ptr(teller)] {
            auto steps = examineOwnGround(config);
            auto const running = queue.lock();
            if (!running) return;
            running->post([steps = std::move(steps), found] {
                if (auto const here = found.lock()) (*here)(steps);
            });
        });
    if (!isStarted) co_return skip("No thread is left to look at them");
    auto limited = std::move(pending).within(subject_.timeout);
    auto const steps = co_await limited;
    if (!steps)
        co_return fail(net::Failure{{}, "They cannot be looked at" + net::noAnswer(subject_.timeout)},
                       "Check the file systems that they are on.");
    for (auto const& step : *steps) tell(step);
}

// ---- A step's life

bool KvExamination::begin(std::string name) {
    beginAside(std::move(name));
    isAside_ = false;
    if (!brokenBy_.empty()) skip("Not tried: " + brokenBy_ + " has failed");
    return brokenBy_.empty() && !isAbandoned_;
}

void KvExamination::beginAside(std::string name) {
    step_ = {.name = std::move(name)};
    isAside_ = true;
    stepStarted_ = KvMainQueue::Clock::now();
}

void KvExamination::fail(net::Failure const& known, std::string advice) {
    fail(failureOf("doctor", 0, known, secrets_), std::move(advice));
}

void KvExamination::fail(KvFailure const& failure, std::string advice) {
    auto const& words = failure.serverWords;
    detail("stage", std::string(toString(failure.stage)));
    if (!isAside_) brokenBy_ = step_.name;
    auto found = words.empty() ? failure.cause : failure.cause + ". The server says: \"" + words + '"';
    end(Outcome::failed, std::move(found), advice.empty() ? failure.advice : std::move(advice));
}

void KvExamination::end(Outcome outcome, std::string found, std::string advice) {
    step_.outcome = outcome;
    step_.found = std::move(found);
    step_.advice = std::move(advice);
    if (outcome != Outcome::skipped) step_.took = duration_cast<microseconds>(KvMainQueue::Clock::now() - stepStarted_);
    tell(std::move(step_));
}

void KvExamination::tell(Step step) {
    step.found = forPeople(step.found, kMostFound);
    for (auto& [name, fact] : step.details) fact = forPeople(fact, kMostDetail);
    std::size_t Summary::*const kCounts[] = {&Summary::passed, &Summary::warned, &Summary::failed, &Summary::skipped};
    ++(summary_.*kCounts[static_cast<std::size_t>(step.outcome)]);
    if (step.outcome == Outcome::failed && summary_.firstFailed.empty()) summary_.firstFailed = step.name;
    if (auto const onStep = onStep_) onStep(step);  // it may end the examination
}

std::string KvExamination::forPeople(std::string_view text, std::size_t most) const {
    return kv::forPeople(text, most, secrets_);
}

}  // namespace kv

#include "Classes/Utils/Recording/KvRecorder.h"

#include "Classes/Model/KvFailure.h"
#include "Net/Base64.h"
#include "Net/Failure.h"
#include "Net/Url.h"
#include "Platform/KvJsonText.h"

#include <algorithm>

#include <boost/json/array.hpp>

namespace kv {
namespace json = boost::json;
namespace {

constexpr std::size_t kMostTokens = 64;  // of a client that renews its token for years; each in two forms

}  // namespace

KvRecorder::KvRecorder(std::shared_ptr<KvRecordFile> file, std::shared_ptr<KvMainQueue> const& queue,
                       json::object const& made, std::vector<std::string> secrets)
    : file_(std::move(file)),
      client_(file_->nextClient()),
      queue_(queue),
      began_(queue->now()),
      offset_(file_->elapsed()),
      otherSecrets_(secrets.size()),
      secrets_(std::make_shared<std::vector<std::string> const>(std::move(secrets))) {
    life("made", made);
}

void KvRecorder::called(std::uint64_t call, std::string_view method, std::string_view command,
                        SocketItems const* payload) {
    auto entry = fields();
    entry["call"] = call;
    entry["method"] = method;
    if (!command.empty()) entry["command"] = command;
    if (isRestoring_) entry["restoring"] = true;
    if (payload == nullptr) return add(Kind::life, std::move(entry));
    if (!payload->attachments.empty()) {
        auto& sizes = entry["attachments"].emplace_array();
        for (auto const& bytes : payload->attachments) sizes.emplace_back(bytes ? bytes->size() : 0);
    }
    add(Kind::payload, std::move(entry), jsonText(payload->values.front()));
}

std::uint64_t KvRecorder::called(std::string_view method, json::object const& arguments) {
    if (auto const* const token = arguments.if_contains("token")) addToken(std::string(token->as_string()));
    auto const call = nextCall();
    auto entry = fields();
    entry["call"] = call;
    entry["method"] = method;
    add(Kind::payload, std::move(entry), jsonText(arguments));
    return call;
}

void KvRecorder::ended(std::uint64_t call, std::int64_t code) {
    auto entry = fields();
    entry["ended"] = call;
    entry["code"] = code;
    add(Kind::life, std::move(entry));
}

void KvRecorder::discovering(std::string_view apiServer) { life("discovering", {{"server", apiServer}}); }

void KvRecorder::discovered(std::string_view server, net::Failure const& why) {
    if (!server.empty()) return life("discovered", {{"server", clean(server)}});
    life("notDiscovered", {{"stage", toString(why.stage)},
                           {"reason", clean(why.text)},
                           {"cause", clean(why.cause)},
                           {"serverWords", clean(why.serverWords.substr(0, 200))}});
}

void KvRecorder::addToken(std::string const& token) {
    std::lock_guard const lock(mutex_);
    if (std::ranges::find(*secrets_, token) != secrets_->end()) return;
    auto more = *secrets_;
    auto const first = more.begin() + static_cast<std::ptrdiff_t>(otherSecrets_);
    if (more.size() - otherSecrets_ > kMostTokens) more.erase(first, first + 2);
    more.push_back(token);
    more.push_back(net::percentEncoded(token));  // as the request has it, which a gateway may repeat
    secrets_ = std::make_shared<std::vector<std::string> const>(std::move(more));
}

void KvRecorder::onDialing(std::uint64_t connection, std::string_view url, std::string_view target) {
    life("dialing", {{"server", clean(url)}, {"target", clean(withoutToken(target))}}, connection);
}

void KvRecorder::onOpen(std::uint64_t connection) { life("open", {}, connection); }

void KvRecorder::onLost(std::uint64_t connection, KvFailureStage stage, std::string_view reason,
                        std::string_view cause) {
    json::object more{{"stage", toString(stage)}, {"reason", clean(reason)}};
    if (!cause.empty()) more["cause"] = clean(cause);
    life("lost", more, connection);
}

void KvRecorder::onLeft(std::uint64_t connection) { life("left", {}, connection); }

void KvRecorder::onTextReceived(std::uint64_t connection, std::string_view text) {
    add(Kind::received, fields(connection), std::string(text));
}

void KvRecorder::onBinaryReceived(std::uint64_t connection, std::span<std::uint8_t const> bytes) {
    addBytes(Kind::receivedBytes, connection, bytes);
}

void KvRecorder::onTextSent(std::uint64_t connection, std::string_view text) {
    add(Kind::sent, fields(connection), std::string(text));
}

void KvRecorder::onBinarySent(std::uint64_t connection, std::span<std::uint8_t const> bytes) {
    addBytes(Kind::sentBytes, connection, bytes);
}

std::chrono::microseconds KvRecorder::now() const {
    auto const queue = queue_.lock();
    if (!queue) return file_->elapsed();
    return offset_ + std::chrono::duration_cast<std::chrono::microseconds>(queue->now() - began_);
}

KvRecordRules KvRecorder::rules() const {
    std::lock_guard const lock(mutex_);
    return {recording().withContents, secrets_};
}

json::object KvRecorder::fields(std::uint64_t connection) const {
    json::object fields{{"client", client_}};
    if (connection != 0) fields["connection"] = connection;
    return fields;
}

void KvRecorder::add(Kind kind, json::object fields, std::string text, std::size_t size) {
    file_->add({kind, now(), std::move(fields), std::move(text), size, rules()});
}

void KvRecorder::addBytes(Kind kind, std::uint64_t connection, std::span<std::uint8_t const> bytes) {
    std::string kept;
    if (recording().withContents) kept.assign(bytes.begin(), bytes.end());
    add(kind, fields(connection), std::move(kept), bytes.size());
}

void KvRecorder::life(std::string_view step, json::object const& more, std::uint64_t connection) {
    auto entry = fields(connection);
    entry["life"] = step;
    for (auto const& [key, value] : more) entry[key] = value;
    add(Kind::life, std::move(entry));
}

}  // namespace kv

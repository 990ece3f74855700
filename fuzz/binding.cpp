// The texts that the C interface takes, as `kvpim console` gets them: each line a request to a real client. A line that
// begins with "<" is what the server does (see ServerScript.h), one with "#" a request with the line before it
// as its data. An input begins with a character: an odd one has data stand beside the text.
#include "Binding/Client.h"
#include "fuzz/support/ExactJson.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Network.h"
#include "fuzz/support/ServerScript.h"

#include <string>
#include <utility>

namespace kv::fuzz {
namespace {

constexpr std::chrono::seconds kLongestSleep{10}, kLongestOperation{20};

std::shared_ptr<binding::Client> newClient(std::shared_ptr<KvMainQueue> const& queue, bool attachesData) {
    binding::ClientOptions options;
    options.appId = "app";
    options.client.envConfig.apiServer = "http://api.kvpim.example";
    options.client.envConfig.cachesDirectory = "/dev/null/caches";  // where nothing can be made
    options.client.mainQueue = queue;
    options.client.engine = KvPimEngine::mainQueue;
    options.isPolled = true;
    options.attachesData = attachesData;
    KvPimKit::setLogFilters(0);
    return binding::Client::make(std::move(options));
}

/// Whether the library would write its log into a file that exists.
bool choosesLogFile(std::string_view line) {
    boost::system::error_code error;
    auto const value = boost::json::parse(line, error);
    auto const* request = value.if_object();
    auto const* operation = request ? request->if_contains("op") : nullptr;
    return operation && *operation == "setLogFile";
}

void receiveAll(binding::Client& client) {
    auto const now = std::chrono::steady_clock::now();
    for (binding::Inbox::Message message; client.inbox().take(now, message) == KVPIM_RECEIVED;) {
        require(message->text.find('\n') == std::string::npos, "an answer is one line");
        boost::system::error_code error;
        auto const read = boost::json::parse(message->text, error);
        require(!error, "an answer is JSON");
        require(!isExact(read) || boost::json::serialize(read) == message->text, "an answer reads as it was meant");
    }
}

void take(binding::Client& client, KvMainQueue& queue, std::string_view line, std::string_view& data) {
    if (line.starts_with('<')) return playServer(line.substr(1), queue);
    bool const hasData = line.starts_with('#');
    if (hasData) line.remove_prefix(1);
    if (choosesLogFile(line)) return;
    try {
        client.request(line, hasData ? makeData(data) : nullptr);
    } catch (binding::BadRequest const&) {
    }
    data = line;
    queue.advance(line.find("\"sleep\"") == std::string_view::npos ? std::chrono::seconds(0) : kLongestSleep);
    playServer("+0", queue);
}

}  // namespace

void run(Input input) {
    auto const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    {
        auto const client = newClient(queue, (input.takeByte() & 1) != 0);
        std::string_view data;
        while (!input.isEmpty() && !client->inbox().isEnded()) {
            take(*client, *queue, input.takeLine(), data);
            receiveAll(*client);
        }
        Network::shared().answerRequests({.failure = net::Failure{KvFailureStage::discovery, "the end"}});
        queue->advance(kLongestOperation);
        Network::shared().readAll();
        receiveAll(*client);
        require(client->pending() == 0, "every operation is answered");
        client->end();
    }
    endInput();
}

}  // namespace kv::fuzz

// The C interface: what it refuses, what it says, and that nothing which others do at the same time breaks it.
#include "TestKit/Service.h"
#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <atomic>
#include <thread>

#include <KvPim/kvpim.h>
#include <boost/json.hpp>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kv::test {
namespace json = boost::json;
namespace {

/// A service with a thread of its own, and clients of the C interface.
class Binding : public testing::Test {
protected:
    Binding() : url_(service_.listen()), thread_([this] { service_.queue()->run(); }) {}
    ~Binding() override {
        for (auto const client : clients_) kvpim_destroy(client);
        service_.queue()->stop();
        thread_.join();
    }

    kvpim_client create(json::object options = {}) {
        options.insert({{"appId", "app"},
                        {"apiServer", url_},
                        {"cachesDirectory", directory_.path("caches")},
                        {"keyStoreDirectory", directory_.path("keys")}});
        kvpim_client client;
        kvpim_error error;
        EXPECT_TRUE(kvpim_create(json::serialize(options).c_str(), &client, &error)) << error.text;
        clients_.push_back(client);
        return client;
    }
    kvpim_client login(std::string const& user, json::object const& options = {}) {
        auto const client = create(options);
        request(
            client,
            {{"op", "loginByToken"}, {"id", 1}, {"token", std::string(32, 'a')}, {"timeStamp", 1}, {"userId", user}});
        EXPECT_EQ(answer(client, 1).at("code"), 0);
        return client;
    }
    static void request(kvpim_client client, json::object const& request) {
        kvpim_error error;
        EXPECT_TRUE(kvpim_request(client, json::serialize(request).c_str(), &error)) << error.text;
    }
    /// The next message with this member, and its data; null when none comes.
    static json::object next(kvpim_client client, std::string_view member, json::value const& is,
                             std::string* data = nullptr) {
        auto const end = std::chrono::steady_clock::now() + 30s;
        while (std::chrono::steady_clock::now() < end) {
            kvpim_poll(client, 10);
            kvpim_message* message = nullptr;
            if (kvpim_receive(client, 10, &message) == KVPIM_ENDED) break;
            if (message == nullptr) continue;
            auto object = json::parse(kvpim_message_text(message)).get_object();
            std::size_t size = 0;
            auto const* const bytes = static_cast<char const*>(kvpim_message_data(message, &size));
            if (data && bytes) data->assign(bytes, size);
            kvpim_message_free(message);
            auto const* const found = object.if_contains(member);
            if (found != nullptr && *found == is) return object;
        }
        ADD_FAILURE() << "no message with " << member << " " << is;
        return {{"code", -1}};
    }
    static json::object answer(kvpim_client client, int id) { return next(client, "id", id); }

    TemporaryDirectory const directory_;
    Service service_{{.time = KvMainQueue::Time::real}};
    std::string const url_;
    std::thread thread_;
    std::vector<kvpim_client> clients_;
};

TEST_F(Binding, RefusesWhatIsNone) {
    struct Case {
        char const* text;
        kvpim_error_kind kind;
        char const* reason;
    };
    Case const options[] = {
        {nullptr, KVPIM_ERROR_ARGUMENT, "options is NULL"},
        {"{\"appId\":\"\xff\"}", KVPIM_ERROR_ARGUMENT, "not JSON"},
        {"[]", KVPIM_ERROR_ARGUMENT, "not a JSON object"},
        {"{}", KVPIM_ERROR_ARGUMENT, "\"appId\" is missing"},
        {R"({"appId":"a","apiserver":"x"})", KVPIM_ERROR_ARGUMENT, "did you mean apiServer?"},
        {R"({"appId":"a","network":{"proxi":"x"}})", KVPIM_ERROR_ARGUMENT, "did you mean proxy?"},
        {R"({"appId":"a","network":{"connectTimeout":-1}})", KVPIM_ERROR_ARGUMENT, "a number of seconds"},
        {R"({"appId":"a","maxQueuedBytes":-1})", KVPIM_ERROR_ARGUMENT, "0 or more"},
        {R"({"appId":"a","engine":"steam"})", KVPIM_ERROR_ARGUMENT, "\"thread\" or \"mainQueue\""},
        {R"({"appId":"a","delegate":["memberJoined"]})", KVPIM_ERROR_ARGUMENT, "no callback \"memberJoined\""},
        {R"({"appId":"a","apiServer":"nowhere"})", KVPIM_ERROR_CREATE, "nowhere"},
    };
    kvpim_client client{1};
    kvpim_error error;
    for (auto const& [text, kind, reason] : options) {
        EXPECT_FALSE(kvpim_create(text, &client, &error));
        EXPECT_EQ(error.kind, kind) << error.text;
        EXPECT_NE(std::string_view(error.text).find(reason), std::string_view::npos) << error.text;
        EXPECT_EQ(client.number, 0u);
    }
    EXPECT_FALSE(kvpim_create(R"({"appId":"a"})", nullptr, nullptr));

    client = create();
    Case const requests[] = {
        {nullptr, KVPIM_ERROR_ARGUMENT, "request is NULL"},
        {"{\"op\":\"state\",\"id\":\"\xff\"}", KVPIM_ERROR_ARGUMENT, "not JSON"},
        {R"({"op":"state","id":1e999})", KVPIM_ERROR_ARGUMENT, "out of range"},
        {"{}", KVPIM_ERROR_ARGUMENT, "\"op\" is missing"},
        {R"({"op":"sendMesage"})", KVPIM_ERROR_ARGUMENT, "did you mean sendMessage?"},
        {R"({"op":"createChannelWithId","channelId":"c","delegate":["x"]})", KVPIM_ERROR_ARGUMENT, "no callback"},
    };
    for (auto const& [text, kind, reason] : requests) {
        EXPECT_FALSE(kvpim_request(client, text, &error));
        EXPECT_EQ(error.kind, kind) << error.text;
        EXPECT_NE(std::string_view(error.text).find(reason), std::string_view::npos) << error.text;
    }
    EXPECT_FALSE(kvpim_request_with_data(client, R"({"op":"state"})", "x", 1, &error));
    EXPECT_STREQ(error.text, "\"state\" takes no data beside its text");
    std::string const longName(3000, 'x');
    EXPECT_FALSE(kvpim_request(client, (R"({"op":")" + longName + "\"}").c_str(), &error));
    EXPECT_EQ(std::string_view(error.text).size(), sizeof error.text - 1);

    // What the table says of an operation is what it takes.
    auto const table = json::parse(kvpim_interface()).get_object();
    for (auto const& operation : table.at("operations").get_array()) {
        for (auto const& argument : operation.at("arguments").get_array()) {
            json::object wrong{{"op", operation.at("name")}};
            for (auto const& other : operation.at("arguments").get_array()) {
                if (&other == &argument) break;
                bool const isList = other.at("type") == "texts" || other.at("type") == "attributes";
                wrong[other.at("name").get_string()] = isList                            ? json::value(json::array())
                                                       : other.at("type") == "number"    ? json::value(1)
                                                       : other.at("optional").get_bool() ? json::value()
                                                                                         : json::value("x");
            }
            auto const name = std::string(argument.at("name").get_string());
            if (argument.at("optional").get_bool()) wrong[name] = json::object();
            EXPECT_FALSE(kvpim_request(client, json::serialize(wrong).c_str(), &error)) << wrong;
            EXPECT_EQ(std::string_view(error.text).find('"' + name + '"'), 0u) << wrong << error.text;
        }
    }

    kvpim_destroy(client);
    kvpim_message* message = nullptr;
    EXPECT_FALSE(kvpim_request(client, R"({"op":"state"})", &error));
    EXPECT_EQ(error.kind, KVPIM_ERROR_ENDED);
    EXPECT_EQ(kvpim_receive(client, KVPIM_FOREVER, &message), KVPIM_ENDED);
    EXPECT_EQ(kvpim_fd(client), -1);
    EXPECT_FALSE(kvpim_poll(client, 0));
    kvpim_destroy(client);
}

TEST_F(Binding, CarriesWhatPeopleSay) {
    auto const alice = login("alice");
    auto const bob = login("bob", {{"polled", true}, {"attachData", true}, {"engine", "mainQueue"}});
    std::string const data("\0\xff\n", 3);
    EXPECT_TRUE(kvpim_request_with_data(alice, R"({"op":"sendMessageToPeer","id":2,"peerId":"bob","text":"t"})",
                                        data.data(), data.size(), nullptr));
    EXPECT_EQ(answer(alice, 2).at("code"), 0);
    std::string arrived;
    auto const event = next(bob, "event", "messageReceived", &arrived);
    EXPECT_EQ(arrived, data);
    EXPECT_EQ(event.at("message").at("rawData"), json::value({{"bytes", 3}}));

    request(bob, {{"op", "sendMessageToPeer"}, {"id", 3}, {"peerId", "alice"}, {"rawData", "AP8K"}});
    EXPECT_EQ(answer(bob, 3).at("code"), 0);
    EXPECT_EQ(next(alice, "event", "messageReceived").at("message").at("rawData"), "AP8K");
    request(bob, {{"op", "joinWithCompletion"}, {"id", 4}, {"channelId", "none"}});
    EXPECT_TRUE(answer(bob, 4).contains("error"));
    EXPECT_EQ(kvpim_pending(alice) + kvpim_pending(bob), 0u);
}

TEST_F(Binding, IsWaitedForByDescriptorOrCalledBack) {
    auto const alice = login("alice");
    kvpim_message* message = nullptr;
    while (kvpim_receive(alice, 0, &message) == KVPIM_RECEIVED) kvpim_message_free(message);
    pollfd ready{.fd = kvpim_fd(alice), .events = POLLIN, .revents = 0};
    EXPECT_EQ(::poll(&ready, 1, 0), 0);
    request(alice, {{"op", "state"}});
    EXPECT_EQ(::poll(&ready, 1, 30'000), 1);
    EXPECT_EQ(kvpim_receive(alice, 0, &message), KVPIM_RECEIVED);
    kvpim_message_free(message);
    EXPECT_EQ(::poll(&ready, 1, 0), 0);

    // Those that wait come first, and the last one ends the client that it is told of.
    struct Calls {
        kvpim_client client;
        std::atomic<int> count{0};
    } calls{alice};
    for (int i = 0; i < 3; ++i) request(alice, {{"op", "state"}, {"id", i}});
    kvpim_set_callback(
        alice,
        [](void* context, kvpim_message const* one) {
            auto& all = *static_cast<Calls*>(context);
            EXPECT_EQ(json::parse(kvpim_message_text(one)).at("id"), all.count.load());
            if (++all.count == 3) kvpim_destroy(all.client);
        },
        &calls, nullptr);
    EXPECT_TRUE(waitUntil([&] { return calls.count == 3; }));
    EXPECT_EQ(kvpim_receive(alice, KVPIM_FOREVER, &message), KVPIM_ENDED);
}

TEST_F(Binding, NobodyIsInsideALineCallbackThatIsNoMore) {
    auto const alice = login("alice");
    std::atomic<int> inside{0};
    kvpim_set_log_callback(
        [](void* context, int, char const*) {
            *static_cast<std::atomic<int>*>(context) = 1;
            std::this_thread::sleep_for(100ms);
            *static_cast<std::atomic<int>*>(context) = 2;
            kvpim_set_log_callback(nullptr, nullptr);  // waits for nobody, itself least of all
        },
        &inside);
    request(alice, {{"op", "setLogFilters"}, {"filters", 8}});
    request(alice, {{"op", "logoutWithCompletion"}});
    EXPECT_TRUE(waitUntil([&] { return inside != 0; }));
    kvpim_set_log_callback(nullptr, nullptr);
    EXPECT_EQ(inside, 2);
    request(alice, {{"op", "setLogFilters"}, {"filters", 0}});
}

TEST_F(Binding, ReadsNoMoreThanIsReceived) {
    constexpr int kMessages = 400;
    for (auto const* const engine : {"mainQueue", "thread"}) {
        auto const alice = login("alice", {{"network", {{"maxUnhandledBytes", 65536}}}, {"engine", engine}});
        std::atomic<bool> isSent{false};
        service_.queue()->post([&] {
            for (int i = 0; i < kMessages; ++i) {
                json::value const message{{"fromUserId", std::to_string(i)},
                                          {"content", {{"text", std::string(30'000, 'x')}}}};
                json::array const items{{{"msgs", json::array{message}}}};
                service_.emit("alice", "MessageToPeerReceived", json::serialize(items));
            }
            isSent = true;
        });
        ASSERT_TRUE(waitUntil([&] { return isSent.load(); }));
        std::this_thread::sleep_for(300ms);  // in which all of it would be read
        request(alice, {{"op", "state"}, {"id", "between"}});
        int received = 0, before = -1;
        while (received < kMessages) {
            kvpim_message* message = nullptr;
            ASSERT_EQ(kvpim_receive(alice, 30'000, &message), KVPIM_RECEIVED) << received;
            auto const object = json::parse(kvpim_message_text(message)).get_object();
            kvpim_message_free(message);
            if (object.contains("id")) before = received;
            if (!object.contains("event") || object.at("event") != "messageReceived") continue;
            ASSERT_EQ(object.at("peerId").get_string(), std::to_string(received));
            ++received;
        }
        EXPECT_GE(before, 0);
        EXPECT_LT(before, kMessages / 4) << engine;
    }
}

TEST_F(Binding, EndsUnderAnyHands) {
    for (int i = 0; i < 40; ++i) {
        auto const client = create({{"polled", i % 2 == 1}});
        std::atomic<int> ended{0};
        std::vector<std::thread> threads;
        for (int receiver = 0; receiver < 2; ++receiver)
            threads.emplace_back([&] {
                kvpim_message* message = nullptr;
                while (kvpim_receive(client, KVPIM_FOREVER, &message) == KVPIM_RECEIVED) kvpim_message_free(message);
                ++ended;
            });
        threads.emplace_back([&] {
            while (kvpim_request(client, R"({"op":"state"})", nullptr)) kvpim_fd(client);
        });
        threads.emplace_back([&] {
            while (kvpim_poll(client, KVPIM_FOREVER)) {
            }
        });
        std::this_thread::sleep_for(std::chrono::microseconds(i * 100));
        kvpim_destroy(client);
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(ended, 2);
    }
}

TEST_F(Binding, AForkIsToldSo) {
    auto const client = create();
    auto const child = ::fork();
    if (child == 0) {
        kvpim_error error;
        kvpim_client another;
        kvpim_message* message = nullptr;
        bool const isTold = !kvpim_request(client, R"({"op":"state"})", &error) && error.kind == KVPIM_ERROR_FORKED &&
                            !kvpim_create(R"({"appId":"a"})", &another, &error) && error.kind == KVPIM_ERROR_FORKED &&
                            kvpim_receive(client, KVPIM_FOREVER, &message) == KVPIM_ENDED;
        kvpim_destroy(client);
        ::_exit(isTold ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    request(client, {{"op", "state"}, {"id", 1}});
    EXPECT_EQ(answer(client, 1).at("op"), "state");
}

TEST_F(Binding, AProgramInCTalksToItself) {
    auto const home = "HOME=" + directory_.path("home");
    ChildProcess program({"env", home, HELLO_C, url_, "carol"});
    EXPECT_EQ(program.wait(std::chrono::steady_clock::now() + 30s), 0);
}

}  // namespace
}  // namespace kv::test

// How the console behaves as a program: bad lines, the end of its input, its exit status, its options.
#include "console/Programs.h"
#include "support/HttpTestServer.h"
#include "support/LocalService.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <cstdlib>
#include <fstream>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

namespace kv::test {
namespace asio = boost::asio;
namespace {

using Clock = std::chrono::steady_clock;

TEST(Console, ExitStatusTellsBadUsageFromFailedCreation) {
    struct Case {
        std::vector<std::string> command;
        int status;
        char const* printed;
    };
    std::vector<Case> const cases = {
        {{KVPIM_CLIENT}, 2, nullptr},
        {{KVPIM_CLIENT, "--unknown"}, 2, nullptr},
        {{KVPIM_CLIENT, "console"}, 2, nullptr},
        {consoleCommand(kNobody, {"--linger", "-1"}), 2, nullptr},
        {consoleCommand(kNobody, {"--linger", "soon"}), 2, nullptr},
        {consoleCommand(kNobody, {"--delegate", "messageReceived,memberJoined"}), 2, nullptr},
        {consoleCommand(kNobody, {"--proxy", "http://127.0.0.1:9", "--proxy-from-environment"}), 2, nullptr},
        {consoleCommand(kNobody, {"--metrics", "65536"}), 2, nullptr},
        {consoleCommand("not an address"), 1, R"({"event":"createFailed"})"},
        {consoleCommand(kNobody), 0, R"({"event":"ready"})"},
        {{KVPIM_CLIENT, "doctor"}, 2, nullptr},
        {{KVPIM_CLIENT, "doctor", "--api-server", kNobody, "--user", "alice"}, 2, nullptr},
        {{KVPIM_CLIENT, "doctor", "--api-server", kNobody, "--timeout", "0"}, 2, nullptr},
        {{KVPIM_CLIENT, "doctor", "--api-server", kNobody}, 1, "FAIL  tcp *Connection refused*"},
        {{KVPIM_CLIENT, "doctor", "--api-server", kNobody, "--json"},
         1,
         R"({"summary":"failed",*"firstFailed":"tcp"*)"},
        {{KVPIM_CLIENT, "--version"}, 0, "kvpim *"},
        {{KVPIM_CLIENT, "console", "--help"}, 0, "*--linger*"},
    };
    for (auto const& one : cases) {
        Program program(one.command);
        program.closeInput();
        EXPECT_EQ(program.exitStatus(), one.status) << testing::PrintToString(one.command);
        if (one.printed != nullptr) {
            EXPECT_TRUE(program.prints(one.printed));
        } else {
            EXPECT_TRUE(program.otherLines().empty()) << program.otherLines().front();
        }
    }
}

TEST(Console, TheDoctorGoesTheWayOfAToken) {
    LocalService service;
    TemporaryDirectory const directory;
    makeFile(directory.path("token"), "0123456789abcdef0123456789abcdef\n");
    auto const command = std::string(KVPIM_CLIENT) + " doctor --api-server " + service.url() +
                         " --user alice -v --token-file " + directory.path("token") + " --caches-dir " +
                         directory.path("caches") + " --key-store-dir " + directory.path("keys");
    Program doctor({"sh", "-c", command});
    EXPECT_EQ(doctor.exitStatus(), 0);
    EXPECT_TRUE(doctor.prints("ok    login          alice is logged in*"));
    EXPECT_TRUE(doctor.prints("All that was tried works."));
    for (auto const& line : doctor.otherLines()) EXPECT_EQ(line.find("0123456789abcdef"), std::string::npos) << line;

    service.control("login", {{"reason", "loginFail: InvalidToken"}, {"times", 2}});  // of the handshake's session, too
    Program refused({"script", "-qec", "TERM=xterm " + command, "/dev/null"});
    EXPECT_EQ(refused.exitStatus(), 1);
    EXPECT_TRUE(refused.prints("*\x1b[1;31mFAIL\x1b[0m  login *The server has refused the login*"));
}

TEST(Console, IsReadyBeforeTheLibraryPrints) {
    TemporaryDirectory const directory;
    Program console({KVPIM_CLIENT, "console", "--app-id", "demo", "--api-server", kNobody, "--linger", "1",
                     "--caches-dir", directory.path(), "--key-store-dir", "/proc/none"});
    console.closeInput();
    EXPECT_EQ(console.exitStatus(), 0);
    ASSERT_FALSE(console.otherLines().empty());
    EXPECT_EQ(console.otherLines().front(), R"({"event":"ready"})");
    EXPECT_TRUE(console.prints("SecItemAdd error*"));
}

TEST(Console, LinesComeInAnyPieces) {
    Program console(consoleCommand(kNobody));
    console.write(R"({"op":"setPara)");
    ASSERT_TRUE(console.prints(R"({"event":"ready"})"));
    console.write(
        "meters\",\"id\":1,\"parameters\":\"\"}\r\n{\"op\":\"setParameters\",\"id\":2,\"parameters\":\"\"}\n{\"op\"");
    EXPECT_TRUE(console.prints(R"({"id":1,"op":"setParameters","result":0})"));
    EXPECT_TRUE(console.prints(R"({"id":2,"op":"setParameters","result":0})"));
    console.write(R"(:"setParameters","id":3,"parameters":""})");  // the last line has no end
    console.closeInput();
    EXPECT_EQ(console.exitStatus(), 0);
    EXPECT_TRUE(console.prints(R"({"id":3,"op":"setParameters","result":0})"));
}

TEST(Console, LinesMayBeLongButNotEndless) {
    std::size_t const longest = 16u << 20;
    std::string const frame = R"({"op":"setParameters","id":1,"parameters":""})";
    std::string longestLine = frame;
    longestLine.insert(longestLine.size() - 2, longest - frame.size(), 'x');
    Program console(consoleCommand(kNobody));
    console.send(longestLine);
    EXPECT_TRUE(console.prints(R"({"id":1,"op":"setParameters","result":0})"));
    console.send(longestLine + " ");
    EXPECT_TRUE(console.prints(R"({"error":"*16 MiB*","line":2})"));
    console.send("{\"op\":\"state\",\"id\":\"\xff\"}");
    EXPECT_TRUE(console.prints(R"({"error":"not JSON*","line":3})"));
}

TEST(Console, EndOfInputWaitsForTheAnswersAndThenLingersForEvents) {
    LocalService service;
    Program bob(consoleCommand(service.url(), {"--linger", "4"}));  // a busy machine takes its time
    bob.send(loginLine("bob"));
    ASSERT_TRUE(bob.prints(R"({*"op":"loginByToken","code":0})"));

    // Too long a text is answered at once, and once more when the server has answered.
    Program alice(consoleCommand(service.url()));
    alice.send(loginLine("alice"));
    ASSERT_TRUE(alice.prints(R"({*"op":"loginByToken","code":0})"));
    std::string const text(32'769, 'x');
    alice.send(R"({"op":"sendMessageToPeer","id":2,"peerId":"bob","text":")" + text + R"("})");
    alice.send(R"({"op":"sendMessageToPeer","id":3,"peerId":"bob","text":"bye"})");
    auto const ended = Clock::now();
    bob.closeInput();
    alice.closeInput();
    EXPECT_EQ(alice.exitStatus(), 0);
    EXPECT_TRUE(alice.prints(R"({"id":2,"op":"sendMessageToPeer","code":7,*})"));
    EXPECT_TRUE(alice.prints(R"({"id":2,"op":"sendMessageToPeer","code":*})"));
    EXPECT_TRUE(alice.prints(R"({"id":3,"op":"sendMessageToPeer","code":0})"));
    EXPECT_EQ(bob.exitStatus(), 0);
    EXPECT_GE(Clock::now() - ended, 4s);
    EXPECT_TRUE(bob.prints(R"({"event":"messageReceived","peerId":"alice",*"text":"bye",*)"));
}

TEST(Console, LinesBehindASleepAreReadAfterIt) {
    Program console(consoleCommand(kNobody));
    auto const begin = Clock::now();
    auto const deep = std::string(900, '[') + std::string(900, ']');
    console.send(R"({"op":"sleep","id":)" + deep + R"(,"seconds":0.3})");
    console.send(R"({"op":"setParameters","id":2,"parameters":""})");
    console.closeInput();
    EXPECT_EQ(console.exitStatus(), 0);
    EXPECT_GE(Clock::now() - begin, 300ms);
    std::deque<std::string> const expected = {R"({"event":"ready"})",
                                              R"({"id":)" + deep + R"(,"op":"sleep","result":true})",
                                              R"({"id":2,"op":"setParameters","result":0})"};
    auto answers = console.otherLines();
    std::erase_if(answers, [](std::string const& line) { return !line.starts_with('{'); });  // the library's own prints
    EXPECT_EQ(answers, expected);
}

TEST(Console, QuitEndsItWithoutWaitingForAnswers) {
    LocalService service;
    Program console(consoleCommand(service.url()));
    console.send(loginLine("alice"));
    console.send(R"({"op":"quit"})");
    console.send("this line is not read");
    EXPECT_EQ(console.exitStatus(), 0);
    EXPECT_FALSE(console.otherLines().empty());
    for (auto const& line : console.otherLines()) EXPECT_FALSE(line.starts_with(R"({"error")")) << line;
}

TEST(Console, EndsQuietlyWhenNobodyReadsAnyMore) {
    Program console(consoleCommand(kNobody, {"--linger", "60"}));
    ASSERT_TRUE(console.prints(R"({"event":"ready"})"));
    console.closeOutput();
    EXPECT_EQ(console.exitStatus(), 0);
}

TEST(Console, ServesMetricsWhateverVisitorsDo) {
    auto command = consoleCommand(kNobody, {"--metrics", "0"});
    command.insert(command.begin(), {"/bin/sh", "-c", R"(exec "$0" "$@" 2>&1)"});  // where the port is told
    Program console(command);
    ASSERT_TRUE(console.prints(R"({"event":"ready"})"));
    auto const told = console.otherLines().front();
    std::string const start = "kvpim: metrics at http://127.0.0.1:";
    ASSERT_TRUE(told.starts_with(start)) << told;
    auto const port = std::stoi(told.substr(start.size()));
    Program another(consoleCommand(kNobody, {"--metrics", std::to_string(port)}));
    EXPECT_EQ(another.exitStatus(), 1) << "the port is taken";

    TemporaryDirectory const directory;
    using Tcp = asio::ip::tcp;
    asio::io_context context;
    auto const visit = [&](std::string_view request) {
        Tcp::socket socket(context);
        socket.connect({asio::ip::address_v4::loopback(), static_cast<std::uint16_t>(port)});
        asio::write(socket, asio::buffer(request));
        return socket;
    };
    auto const answerTo = [](Tcp::socket socket) {
        std::string answer;
        boost::system::error_code end;
        asio::read(socket, asio::dynamic_buffer(answer), end);
        return answer;
    };
    std::vector<Tcp::socket> others;
    for (int i = 0; i < 40; ++i) others.push_back(visit(i % 2 == 0 ? "" : "GET /metr"));
    EXPECT_EQ(answerTo(std::move(others.front())), "") << "the oldest makes room";
    others.back().set_option(asio::socket_base::linger(true, 0));
    others.back().close();  // with a reset
    struct Case {
        std::string request, answer;
    };
    for (auto const& c : std::vector<Case>{
             {"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4"},
             {"GET /metrics HTTP/1.1\r\nACCEPT: a/b,Application/OpenMetrics-text;version=1.0.0\r\n\r\n",
              "HTTP/1.1 200 OK\r\nContent-Type: application/openmetrics-text; version=1.0.0; charset=utf-8\r\n"},
             {"GET /metrics2 HTTP/1.1\r\n\r\n", "HTTP/1.1 404 Not Found\r\n"},
             {"POST /metrics HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc", "HTTP/1.1 404 Not Found\r\n"},
             {std::string(9000, 'x'), "HTTP/1.1 431 "}}) {
        auto const answer = answerTo(visit(c.request));
        EXPECT_TRUE(answer.starts_with(c.answer)) << c.request << '\n' << answer;
        bool const isOpenMetrics = c.answer.find("openmetrics") != std::string::npos;
        EXPECT_EQ(answer.ends_with("# EOF\n"), isOpenMetrics) << c.request;
        if (isOpenMetrics || !c.answer.starts_with("HTTP/1.1 200")) continue;
        std::ofstream(directory.path("text")) << answer.substr(answer.find("\r\n\r\n") + 4);
        auto const check = "! command -v promtool || promtool check metrics <" + directory.path("text");
        EXPECT_EQ(std::system(check.c_str()), 0);  // NOLINT(concurrency-mt-unsafe): nobody else starts programs
    }
    EXPECT_EQ(answerTo(std::move(others[30])), "") << "patience ends";
    console.send(R"({"op":"setParameters","id":1,"parameters":""})");
    EXPECT_TRUE(console.prints(R"({"id":1,"op":"setParameters","result":0})"));
}

TEST(Console, GoesThroughTheProxyThatItIsTold) {
    HttpTestServer const proxy([](HttpTestRequest const&) { return HttpTestAnswer{.status = 403}; });
    ::setenv("http_proxy", proxy.url().c_str(),
             1);  // NOLINT(concurrency-mt-unsafe): the programs under test look at it
    for (auto const& options :
         std::vector<std::vector<std::string>>{{}, {"--proxy", proxy.url()}, {"--proxy-from-environment"}}) {
        Program console(consoleCommand(kNobody, options));
        console.send(loginLine("alice"));
        std::string const stage = options.empty() ? "tcp" : "proxy";
        EXPECT_TRUE(
            console.prints(R"(*"op":"loginByToken","code":9,"text":"*","failure":{"stage":")" + stage + R"("*)"));
    }
    ::unsetenv("http_proxy");  // NOLINT(concurrency-mt-unsafe)
    auto const requests = proxy.requests();
    ASSERT_EQ(requests.size(), 2u);
    for (auto const& request : requests) EXPECT_EQ(request.method + ' ' + request.target, "CONNECT 127.0.0.1:9");
}

}  // namespace
}  // namespace kv::test

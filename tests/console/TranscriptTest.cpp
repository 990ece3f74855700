// Sessions with several programs, as the transcripts beside this file have them: what each is told, and all that it
// prints, with the local service and with that of the test kit, so that neither drifts from the other. What stands in a
// transcript is explained in session.txt.
#include "TestKit/Service.h"
#include "console/Programs.h"
#include "support/LocalService.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <thread>
#include <tuple>

namespace kv::test {
namespace {

// The service of the test kit, run by a thread, for programs that reach it over TCP.
class ServedKit {
public:
    std::string const& url() const { return url_; }
    ~ServedKit() {
        service_.queue()->stop();
        thread_.join();
    }

private:
    Service service_{{.time = KvMainQueue::Time::real}};
    std::string const url_ = service_.listen();
    std::thread thread_{[this] { service_.queue()->run(); }};
};

class Transcript : public testing::TestWithParam<std::tuple<char const*, char const*>> {};
INSTANTIATE_TEST_SUITE_P(Console, Transcript,
                         testing::Combine(testing::Values("session", "bad_lines", "callbacks", "chat"),
                                          testing::Values("LocalService", "TestKit")),
                         [](auto const& of) { return std::string(std::get<0>(of.param)) + std::get<1>(of.param); });

std::vector<std::string> commandOf(std::string const& text, std::string const& url) {
    std::istringstream words(text);
    std::string program, user;
    words >> program;
    if (program == "chat") words >> user;
    std::vector<std::string> const options{std::istream_iterator<std::string>(words), {}};
    return program == "chat" ? chatCommand(url, user, options) : consoleCommand(url, options);
}

TEST_P(Transcript, IsPlayed) {
    auto const [transcript, with] = GetParam();
    std::optional<LocalService> local;
    std::optional<ServedKit> kit;
    auto const url = with == std::string_view("TestKit") ? kit.emplace().url() : local.emplace().url();
    std::map<std::string, Program> programs;
    for (auto const& line : linesOf(TRANSCRIPTS + std::string(transcript) + ".txt")) {
        if (line.empty() || line.front() == '#') continue;
        auto const at = line.find_first_of("=><");
        auto const name = line.substr(0, at), text = line.substr(std::min(at + 2, line.size()));
        if (line[at] == '=') {
            programs.try_emplace(name, commandOf(text, url));
        } else if (line[at] == '>') {
            programs.at(name).send(text);
        } else {
            ASSERT_TRUE(programs.at(name).prints(text)) << line;
        }
    }
    for (auto& [name, program] : programs) {
        program.closeInput();
        EXPECT_EQ(program.exitStatus(), 0) << name;
        for (auto const& line : program.otherLines()) EXPECT_FALSE(line.starts_with('{')) << name << "< " << line;
    }
}

}  // namespace
}  // namespace kv::test

// Sessions with several programs, as the transcripts beside this file have them: what each is told, and all that it
// prints. What stands in a transcript is explained in session.txt.
#include "console/Programs.h"
#include "support/Service.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <iterator>
#include <map>
#include <sstream>

namespace kv::test {
namespace {

class Transcript : public testing::TestWithParam<char const*> {};
INSTANTIATE_TEST_SUITE_P(Console, Transcript, testing::Values("session", "bad_lines", "callbacks", "chat"),
                         [](auto const& transcript) { return std::string(transcript.param); });

std::vector<std::string> commandOf(std::string const& text, std::string const& url) {
    std::istringstream words(text);
    std::string program, user;
    words >> program;
    if (program == "chat") words >> user;
    std::vector<std::string> const options{std::istream_iterator<std::string>(words), {}};
    return program == "chat" ? chatCommand(url, user, options) : consoleCommand(url, options);
}

TEST_P(Transcript, IsPlayed) {
    Service service;
    std::map<std::string, Program> programs;
    for (auto const& line : linesOf(TRANSCRIPTS + std::string(GetParam()) + ".txt")) {
        if (line.empty() || line.front() == '#') continue;
        auto const at = line.find_first_of("=><");
        auto const name = line.substr(0, at), text = line.substr(std::min(at + 2, line.size()));
        if (line[at] == '=') {
            programs.try_emplace(name, commandOf(text, service.url()));
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

// A session of two users, as session.txt has it: what each asks, and all that is printed.
#include "console/Programs.h"
#include "support/Service.h"
#include "support/TemporaryDirectory.h"

#include <map>

#include <gtest/gtest.h>

namespace kv::test {
namespace {

TEST(ConsoleAnswers, EveryOperationAndEventHasItsExactShape) {
    Service service;
    std::map<std::string, Program> programs;
    for (char const* who : {"alice", "bob"}) programs.try_emplace(who, consoleCommand(service.url()));
    for (auto const& line : linesOf(CONSOLE_SESSION)) {
        auto const at = line.find_first_of("><");
        if (line.empty() || line.front() == '#') continue;
        ASSERT_EQ(line.substr(at + 1, 1), " ") << line;
        auto& program = programs.at(line.substr(0, at));
        if (line[at] == '>') {
            program.send(line.substr(at + 2));
        } else {
            ASSERT_TRUE(program.prints(line.substr(at + 2))) << line;
        }
    }
    for (auto& [who, program] : programs) {
        program.send(R"({"op":"quit"})");
        EXPECT_EQ(program.exitStatus(), 0) << who;
        for (auto const& line : program.otherLines()) EXPECT_FALSE(line.starts_with('{')) << who << "< " << line;
    }
}

}  // namespace
}  // namespace kv::test

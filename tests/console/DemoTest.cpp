// The demonstration shows what really arrived, or says what did not.
#include "console/Programs.h"
#include "support/Service.h"

#include <gtest/gtest.h>

namespace kv::test {
namespace {

TEST(Demo, EndsWellWithAService) {
    Service service;
    Program demo({KVPIM_DEMO, "--service", service.url(), "--control"});
    EXPECT_EQ(demo.exitStatus(), 0);
    EXPECT_TRUE(demo.prints("*bob*<- alice in garden: Welcome back!"));
    EXPECT_TRUE(demo.prints("*page*<- LoginResult, * times"));
    EXPECT_TRUE(demo.prints("All that was shown arrived."));
}

TEST(Demo, FailsWithoutOne) {
    Program demo({KVPIM_DEMO, "--service", kNobody});
    EXPECT_EQ(demo.exitStatus(), 1);
    EXPECT_FALSE(demo.prints("All that was shown arrived."));
}

TEST(FirstSteps, SendsAMessageAndReceivesIt) {
    Service service;
    Program program(exampleCommand(KVPIM_FIRST_STEPS, {service.url()}));
    EXPECT_EQ(program.exitStatus(), 0);
    EXPECT_TRUE(program.prints("alice says: Hello, world"));
}

}  // namespace
}  // namespace kv::test

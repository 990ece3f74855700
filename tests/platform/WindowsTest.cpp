// What Windows has in a way of its own.
#include "Platform/KvDirectories.h"
#include "Platform/KvFiles.h"
#include "Platform/KvSystem.h"
#include "Platform/KvWindowsText.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <fcntl.h>
#include <stdlib.h>

namespace kv {
namespace {

TEST(Directories, AreUtf8WhateverTheEnvironmentSays) {
    std::string const usual = cachesDirectory();
    EXPECT_TRUE(usual.ends_with("/AppData/Local/cache")) << usual;
    struct Case {
        wchar_t const* variable;
        std::string caches, data;
    };
    for (auto const& c :
         {Case{L"C:\\J\u00f6rg\\Local\\", "C:/J\u00f6rg/Local/cache", "C:/J\u00f6rg/Local"},
          Case{L"D:\\", "D:/cache", "D:"}, Case{L"relative", usual, usual.substr(0, usual.rfind('/'))}}) {
        ASSERT_EQ(::_wputenv_s(L"LOCALAPPDATA", c.variable), 0);
        EXPECT_EQ(cachesDirectory(), c.caches);
        EXPECT_EQ(dataDirectory(), c.data);
    }
    EXPECT_EQ(executableName(), "kv_core_test.exe");
}

TEST(Files, HaveNamesInUtf8AndAreRenamedUnlessThere) {
    TemporaryDirectory const directory;
    auto const own = directory.path("J\u00f6rg/\u65e5\u672c");
    EXPECT_TRUE(createDirectories(own) && createDirectories(own));
    auto const from = own + "/from", to = own + "/to";
    for (auto const& path : {from, to}) std::ofstream(pathOf(path)) << "content";
    EXPECT_FALSE(createDirectories(to));
    EXPECT_EQ(renameWithoutReplacing(from, to), std::errc::file_exists);
    EXPECT_FALSE(renameWithoutReplacing(from, own + "/third"));
    EXPECT_EQ(renameWithoutReplacing(from, own + "/fourth"), std::errc::no_such_file_or_directory);
    EXPECT_EQ(timeOfBirth(from.c_str()), std::nullopt);
    auto const now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    EXPECT_NEAR(static_cast<double>(timeOfBirth(to.c_str()).value_or(timespec{}).tv_sec), static_cast<double>(now), 60);
}

TEST(Files, LoseHalfALine) {
    TemporaryDirectory const directory;
    auto const path = directory.path("log");
    KvFileDescriptor const file(::_wopen(pathOf(path).c_str(), O_RDWR | O_CREAT | O_APPEND | O_BINARY, 0600));
    std::string const whole = std::string(5000, 'a') + "\n";
    EXPECT_TRUE(appendLines(file.get(), whole + std::string(9000, 'b')));
    cutHalfLine(file.get());
    EXPECT_TRUE(appendLines(file.get(), "c\n"));
    EXPECT_EQ(contentOf(path), whole + "c\n");
}

TEST(Events, WakeAQueueAndTheExecutorThatDrivesIt) {
    KvWakeUp event;
    ASSERT_TRUE(event.open());
    auto const executor = KvMainQueue::create();
    auto const queue = KvMainQueue::on([executor](auto work) { executor->post(std::move(work)); });
    ASSERT_TRUE(queue);
    std::string order;
    std::vector<KvQueueTimer> waits;
    queue->post([&] {
        waits.push_back(queue->whenReadable(event.fd(), [&] { order += executor->isCurrent() ? 'b' : 'x'; }));
        waits.push_back(queue->after(1ms, [&] {
            order += 'a';
            event.raise();
        }));
    });
    EXPECT_TRUE(test::runUntil(*executor, [&] { return order.size() == 2; }));
    EXPECT_EQ(order, "ab");
    queue->stop();
}

}  // namespace
}  // namespace kv

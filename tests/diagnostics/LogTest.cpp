#include "Classes/Model/KvPimAttribute.h"
#include "Classes/Utils/KvLog.h"
#include "support/Json.h"
#include "support/Printed.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <filesystem>
#include <fstream>

#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

namespace fs = std::filesystem;

class LogFile : public testing::Test {
protected:
    std::string content() const { return contentOf(home.path("caches/kv_pim.log")); }
    void SetUp() override { log.useDirectory(home.path("caches")); }
    void logAtAllLevels() {
        log.info("i");
        log.warn("w");
        log.error("e");
        log.critical("c");
        log.drain();
    }

    TemporaryDirectory home;
    KvLog log;
};

TEST_F(LogFile, HoldsTheLevelsThatTheFilterLetsThrough) {
    std::pair<char, char const*> const levels[] = {{'i', "info"}, {'w', "warn"}, {'e', "error"}, {'c', "critical"}};
    for (auto const& [filter, most] : std::vector<std::pair<std::int64_t, int>>{
             {INT64_MIN, 0}, {-1, 0}, {0, 0}, {1, 1}, {3, 2}, {4, 3}, {7, 3}, {INT64_MAX, 4}}) {
        std::string file, console;
        for (int i = 0; i < most; ++i) {
            file += {levels[i].first, '\n'};
            console += std::string("kv_pim_") + levels[i].second + "_log:" + levels[i].first + "\n";
        }
        log.setLogFilter(filter);
        test::Printed printed;
        logAtAllLevels();
        EXPECT_EQ(printed.error(), console) << filter;
        EXPECT_EQ(content(), file) << filter;
        fs::resize_file(home.path("caches/kv_pim.log"), 0);
    }
}

TEST_F(LogFile, LetsNothingThroughAtFirstAndFormatsNothingThen) {
    struct Counting {
        int& count;
        std::string description() const { return std::to_string(++count); }
    };
    int count = 0;
    log.critical("%@", Counting{count});
    log.drain();
    EXPECT_EQ(count, 0);
    EXPECT_EQ(content(), "");
}

TEST_F(LogFile, HoldsOneTrimmedLineForEachMessage) {
    log.setLogFilter(1);
    log.info(" \t\r\n a  b \n\v\f");
    log.info("%@", " \n ");
    log.info("100%, %@ and %@", 1);
    log.info("%@", "%@", "more than there is room for");
    log.drain();
    test::Printed printed;
    log.info("said: %@", "x\nkv_pim_critical_log:forged\r\x1b[2J\x7f\u009b\tä");
    log.drain();
    std::string const said = "said: x\\nkv_pim_critical_log:forged\\r\\u001b[2J\\u007f\\u009b\tä\n";
    EXPECT_EQ(printed.error(), "kv_pim_info_log:" + said);
    EXPECT_EQ(content(), "a  b\n\n100%, 1 and %@\n%@\n" + said);
}

TEST_F(LogFile, IsPrivateAndStartsAnewOnlyWhenItHasGrownBeyondTenMebibytes) {
    auto const path = home.path("caches/kv_pim.log");
    KvLog().useDirectory(home.path("caches"));
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    for (auto const& [size, kept] : {std::pair{10'485'760u, 10'485'760u}, {10'485'761u, 0u}}) {
        fs::resize_file(path, size);
        KvLog().useDirectory(home.path("caches"));
        EXPECT_EQ(fs::file_size(path), kept);
    }
}

TEST_F(LogFile, OfTheApplicationsChoiceMustExist) {
    log.setLogFilter(8);
    auto const chosen = home.path("chosen.log");
    log.setLogFilePath(chosen);
    log.info("lost");
    log.drain();
    EXPECT_FALSE(fs::exists(chosen));
    std::ofstream(chosen) << "before\n";
    log.info("kept");
    log.drain();
    EXPECT_EQ(contentOf(chosen), "before\nkept\n");
    fs::remove(chosen);
    fs::create_directory(chosen);
    log.info("lost too");
    log.drain();
    fs::remove(chosen);
    ASSERT_EQ(::mkfifo(chosen.c_str(), 0600), 0);  // nobody reads: opening it like a file would wait for ever
    log.info("lost as well");
    log.drain();
    EXPECT_EQ(content(), "");
}

TEST_F(LogFile, IsWrittenToInItsOwnPlaceOnly) {
    log.drain();
    fs::remove(home.path("caches/kv_pim.log"));
    auto const precious = home.path("precious");
    std::ofstream(precious) << "mine\n";
    fs::create_symlink(precious, home.path("caches/kv_pim.log"));
    log.useDirectory(home.path("caches"));
    log.setLogFilter(1);
    log.info("lost");
    log.drain();
    EXPECT_EQ(contentOf(precious), "mine\n");
    fs::create_symlink(precious, home.path("link"));  // the application's own file may be a link
    log.setLogFilePath(home.path("link"));
    log.info("kept");
    log.drain();
    EXPECT_EQ(contentOf(precious), "mine\nkept\n");
}

TEST_F(LogFile, AndConsoleGetNothingWhileThereIsAHandler) {
    test::Printed printed;
    std::string handled;
    log.setLogFilter(2);
    log.setHandler([&](std::int64_t level, std::string_view line) {
        handled += std::to_string(level) + std::string(line) + "\n";
    });
    logAtAllLevels();
    log.setHandler({});
    log.info("again");
    log.drain();
    EXPECT_EQ(handled, "1i\n2w\n");
    EXPECT_EQ(content(), "again\n");
    EXPECT_EQ(printed.error(), "kv_pim_info_log:again\n");
}

TEST(LogText, WritesArgumentsAsPeopleReadThem) {
    EXPECT_EQ(logText(std::string("text as \"it\" is")), "text as \"it\" is");
    EXPECT_EQ(logText(std::int64_t{-5}), "-5");
    EXPECT_EQ(logText(true), "1");
    EXPECT_EQ(logText(json::object{{"key", json::array{1, "two\n", nullptr}}}), R"({"key":[1,"two\n",null]})");
    EXPECT_EQ(logText(std::vector<std::string>{"a\"b", "c"}), R"(["a\"b","c"])");
    EXPECT_EQ(logText(std::vector<int>{}), "[]");
    EXPECT_EQ(logText(std::vector<KvPimAttribute>{{"k", "v"}, {"l", "w"}}),
              R"([{"key":"k","value":"v"},{"key":"l","value":"w"}])");
}

TEST(LogText, WritesBinaryDataAsItsSize) {
    SocketItems items;
    items.values.push_back(
        {{"binary", items.binary(makeData("12345"))}, {"text", json::array{"x", items.binary(makeData(""))}}});
    items.values.emplace_back(7);
    items.values.push_back({{"_placeholder", true}, {"num", 9}});  // stands for nothing
    SocketData const data(items.values, items.attachments);
    std::string const first = R"({"binary":<5 bytes>,"text":["x",<0 bytes>]})";
    EXPECT_EQ(logText(KvLogPayload(data)), "[" + first + R"(,7,{"_placeholder":true,"num":9}])");
    EXPECT_EQ(logText(KvLogPayload(items.values.front(), items.attachments)), first);
    EXPECT_EQ(logText(KvLogPayload(items.values.front(), data)), first);
    EXPECT_EQ(logText(KvLogPayload::firstOf(data)), first);
    json::array const none;
    EXPECT_EQ(logText(KvLogPayload::firstOf(SocketData(none, {}))), "null");
}

}  // namespace
}  // namespace kv

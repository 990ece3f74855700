#include "Classes/Utils/Logan/collector/Upload/WnLoganUploader.h"
#include "Classes/Utils/Logan/collector/WnDataCollectManager.h"
#include "support/HttpTestServer.h"
#include "support/Printed.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <future>

namespace kv {
namespace {

using Ending = HttpTestAnswer::Ending;

using test::waitUntil;

class Upload : public testing::Test {
protected:
    void open(std::string const& url, bool backup = true) {
        manager =
            WnDataCollectManager::initWithURL(url + "/pim/v1/collect-logan", home.path("logan"), backup, {}, clock);
        manager->startUploadTimerWithInterval(60s);
    }
    void write(std::string const& record) {
        manager->writeLog(record);
        manager->drain();
    }
    bool upload(std::string const& url, std::string const& file) const {
        auto const uploader = std::make_shared<WnLoganUploader>(url, net::NetworkOptions());
        std::promise<bool> result;
        uploader->uploadFile(home.path(file), [&](bool success) { result.set_value(success); });
        return result.get_future().get();
    }
    std::size_t filesIn(std::string const& directory) const { return entriesOf(home.path(directory)).size(); }

    TemporaryDirectory home;
    std::shared_ptr<KvManualClock> const clock = std::make_shared<KvManualClock>(std::chrono::system_clock::now());
    std::shared_ptr<WnDataCollectManager> manager;
};

TEST_F(Upload, SendsTheFilesBytesUnchangedAndSaysSo) {
    HttpTestServer server([](HttpTestRequest const&) { return HttpTestAnswer{.status = 204}; });
    std::string content;
    for (int i = 0; i < 3 << 20; ++i) content += static_cast<char>(i * 7 + i / 256);
    makeFile(home.path("file"), content);
    ASSERT_TRUE(upload(server.url() + "/pim/v1/collect-logan", "file"));
    auto const request = server.requests().at(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/pim/v1/collect-logan");
    EXPECT_TRUE(request.body == content);
    EXPECT_EQ(std::ranges::count(request.headers, "Content-type: application/octet-stream"), 1);
    EXPECT_TRUE(std::ranges::none_of(request.headers, [](auto const& line) { return line.starts_with("Expect"); }));
}

TEST_F(Upload, OneFileGoesAtEachMinuteTheOldestFirst) {
    HttpTestServer server([](HttpTestRequest const&) { return HttpTestAnswer{.status = 204}; });
    open(server.url());
    for (int i = 0; i < 150; ++i) write("record " + std::to_string(i));
    clock->advance(59'999ms);
    EXPECT_TRUE(server.requests().empty());
    clock->advance(1ms);
    ASSERT_TRUE(waitUntil([&] { return filesIn("logan_bak") == 1; }));
    EXPECT_TRUE(server.requests().at(0).body.starts_with("record 0\n"));
    clock->advance(60s);
    ASSERT_TRUE(waitUntil([&] { return filesIn("logan_bak") == 2; }));
    EXPECT_TRUE(server.requests().at(1).body.starts_with("record 99\n"));
    EXPECT_EQ(filesIn("logan"), 1u);
    // Nothing waits any more; then there is something; then the timer is stopped.
    clock->advance(60s);
    write("later");
    clock->advance(60s);
    ASSERT_TRUE(waitUntil([&] { return filesIn("logan_bak") == 3; }));
    EXPECT_EQ(server.requests().size(), 3u);
    EXPECT_EQ(server.requests().back().body, "later\n");
    manager->stopUploadTimer();
    write("never");
    clock->advance(600s);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(server.requests().size(), 3u);
}

TEST_F(Upload, OnlyANoContentAnswerIsSuccess) {
    struct Case {
        char const* when;
        HttpTestAnswer answer;
        bool backup;
        std::string console;
    };
    for (auto const& c : std::vector<Case>{
             {"204, kept", {.status = 204}, true, ""},
             {"204, deleted", {.status = 204}, false, ""},
             {"200", {.status = 200, .body = "fine"}, true, "上传失败200\n"},
             {"500", {.status = 500}, true, "上传失败500\n"},
             {"closes at once", {.ending = Ending::closesAtOnce}, true, "上传失败0\n"},
             {"closes midway",
              {.status = 200, .body = std::string(1000, 'x'), .ending = Ending::closesMidway},
              true,
              "上传失败200\n"},
             {"redirects to itself", {.status = 307, .headers = {"Location: /again"}}, true, "上传失败307\n"},
         }) {
        HttpTestServer server([&](HttpTestRequest const&) { return c.answer; });
        makeFile(home.path("file"), "record\n");
        test::Printed printed;
        std::string console;
        EXPECT_EQ(upload(server.url(), "file"), c.answer.status == 204) << c.when;
        EXPECT_TRUE(waitUntil([&] { return (console += printed.error()) == c.console; })) << c.when << ": " << console;
    }
}

TEST_F(Upload, AFailedFileIsSentAgain) {
    std::atomic<int> status{500};
    HttpTestServer server([&](HttpTestRequest const&) { return HttpTestAnswer{.status = status}; });
    open(server.url());
    write("record");
    for (std::size_t tick = 1; tick <= 2; ++tick) {
        ASSERT_TRUE(waitUntil([&] {
            if (server.requests().size() < tick) clock->advance(60s);
            return server.requests().size() >= tick;
        }));
    }
    status = 204;
    EXPECT_TRUE(waitUntil([&] {
        clock->advance(60s);
        return filesIn("logan_bak") == 1;
    }));
}

TEST_F(Upload, ATickDuringAnUploadSendsNothing) {
    HttpTestServer server([](HttpTestRequest const&) { return HttpTestAnswer{.ending = Ending::silence}; });
    auto const uploader = std::make_shared<WnLoganUploader>(server.url(), net::NetworkOptions());
    makeFile(home.path("file"), "record\n");
    std::atomic<int> results{0};
    uploader->uploadFile(home.path("file"), [&](bool) { ++results; });
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_TRUE(uploader->isUploading());
    for (int i = 0; i < 5; ++i) uploader->uploadFile(home.path("file"), [&](bool) { ++results; });
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(server.requests().size(), 1u);
    EXPECT_EQ(results, 0);
}

// Plays the file that is chosen and gone before it is sent.
TEST_F(Upload, AVanishedFileAndAnAbsentServerAreFailures) {
    HttpTestServer server([](HttpTestRequest const&) { return HttpTestAnswer{.status = 204}; });
    auto const closed = HttpTestServer([](HttpTestRequest const&) { return HttpTestAnswer{}; }).url();
    makeFile(home.path("file"), "record\n");
    for (auto const& [url, file] : {std::pair{server.url(), "vanished"},
                                    {server.url(), ""},
                                    {closed, "file"},
                                    {std::string("no address"), "file"}}) {
        EXPECT_FALSE(upload(url, file)) << url << " " << file;
    }
    EXPECT_TRUE(server.requests().empty());
}

}  // namespace
}  // namespace kv

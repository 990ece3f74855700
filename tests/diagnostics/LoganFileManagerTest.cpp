#include "Classes/Utils/Logan/collector/FileManager/WnLoganFileManager.h"
#include "diagnostics/Shell.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

class LoganFileManager : public testing::Test {
protected:
    void open(bool backup = true) { files.emplace(directory, backup, clock); }
    void write(int count) {
        for (int i = 0; i < count; ++i) files->writeLog("record " + std::to_string(written++));
        files->drain();
    }
    std::string named(std::string const& name) const { return directory + "/" + name; }
    std::string currentName() const {
        auto const now = std::chrono::system_clock::to_time_t(clock->wallTime());
        std::tm local{};
        ::localtime_r(&now, &local);
        char name[32];
        std::strftime(name, sizeof name, "%Y_%m_%d_%H_%M_%S", &local);
        return name;
    }

    TemporaryDirectory home;
    std::string const directory = home.path("caches/logan");
    std::shared_ptr<KvManualClock> const clock =
        std::make_shared<KvManualClock>(KvClock::WallTime{} + std::chrono::hours(24 * 365 * 50) + 123ms);
    std::optional<WnLoganFileManager> files;
    int written = 0;
};

TEST_F(LoganFileManager, ClosesTheFirstFileAfter99RecordsAndEveryLaterOneAfter100) {
    open();
    write(99);
    EXPECT_EQ(entriesOf(directory), std::vector<std::string>{"logan"});
    auto const first = currentName();
    write(1);
    EXPECT_EQ(linesOf(named(first)).size(), 99u);
    EXPECT_EQ(contentOf(named("logan")), "record 99\n");
    clock->advance(1s);
    write(99);
    EXPECT_EQ(linesOf(named("logan")).size(), 100u);
    auto const second = currentName();
    write(1);
    EXPECT_EQ(linesOf(named(second)).size(), 100u);
    EXPECT_EQ(entriesOf(directory), (std::vector<std::string>{first, second, "logan"}));

    // The count begins anew with the process, whatever is in the file.
    files.reset();
    clock->advance(1s);
    open();
    write(98);
    EXPECT_EQ(linesOf(named("logan")).size(), 99u);
    write(2);
    EXPECT_EQ(linesOf(named(currentName())).size(), 100u);
}

TEST_F(LoganFileManager, KeepsRecordsInTheCurrentFileWhenItsNewNameIsTaken) {
    open();
    write(99);
    write(150);  // within the same second
    EXPECT_EQ(linesOf(named(currentName())).size(), 99u);
    EXPECT_EQ(linesOf(named("logan")).size(), 150u);
    // So it is when the clock jumps back and comes to the same second once more.
    clock->advance(10s);
    clock->setWallTime(clock->wallTime() - 10s);
    write(100);
    EXPECT_EQ(linesOf(named("logan")).size(), 250u);
    EXPECT_EQ(linesOf(named("logan")).back(), "record 348");
}

TEST_F(LoganFileManager, OffersTheOldestFileWithSomethingInItAndTheCurrentOneLast) {
    std::filesystem::create_directories(directory);
    // Names say nothing about age.
    for (std::string const name : {"zz", "empty", ".DS_Store", "aa"}) {
        makeFile(named(name), name == "empty" ? "" : "x\n");
        std::this_thread::sleep_for(15ms);  // two ticks of the file system's clock
    }
    open();
    EXPECT_EQ(files->getWaitUploadFilePath(), named("zz"));
    EXPECT_FALSE(std::filesystem::exists(named("empty")));
    makeFile(named("emptied later"), "");
    EXPECT_EQ(files->getWaitUploadFilePath(), named("zz"));  // until it is uploaded
    files->fileWasUploaded(named("zz"));
    EXPECT_EQ(files->getWaitUploadFilePath(), named("aa"));
    files->fileWasUploaded(named("aa"));
    EXPECT_EQ(files->getWaitUploadFilePath(), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(named("emptied later")));
    write(1);
    EXPECT_EQ(files->getWaitUploadFilePath(), named(currentName()));
    EXPECT_EQ(contentOf(named(currentName())), "record 0\n");
    EXPECT_EQ(contentOf(named("logan")), "");
    EXPECT_EQ(entriesOf(directory + "_bak"), (std::vector<std::string>{"aa", "zz"}));
}

TEST_F(LoganFileManager, MakesItsDirectoriesAndDeletesUploadedFilesWithoutBackup) {
    open();
    files->drain();
    EXPECT_EQ(entriesOf(directory), std::vector<std::string>{"logan"});
    EXPECT_TRUE(entriesOf(directory + "_bak").empty());
    open(false);
    write(1);
    auto const path = files->getWaitUploadFilePath();
    ASSERT_TRUE(path);
    files->fileWasUploaded(*path);
    EXPECT_EQ(entriesOf(directory), std::vector<std::string>{"logan"});
}

TEST_F(LoganFileManager, GivesABackupAnotherNameWhenItsOwnIsTaken) {
    auto const backups = directory + "_bak/";
    std::string const name = "2020_09_01_13_05_59";  // of a second that came twice, when the clock was set back
    open();
    files->drain();
    for (std::string const content : {"one\n", "two\n", "three\n"}) {
        makeFile(named(name), content);
        files->fileWasUploaded(named(name));
    }
    EXPECT_EQ(entriesOf(backups), (std::vector<std::string>{name, name + "_2", name + "_3"}));
    EXPECT_EQ(contentOf(backups + name + "_3"), "three\n");
}

TEST_F(LoganFileManager, OffersAFileToOneOfTheProcessesThatShareTheDirectory) {
    open();
    WnLoganFileManager other(directory, true, clock);  // locks as another process does
    files->drain();
    other.drain();
    makeFile(named("a"), "a\n");
    std::this_thread::sleep_for(15ms);
    makeFile(named("b"), "b\n");
    EXPECT_EQ(files->getWaitUploadFilePath(), named("a"));
    EXPECT_EQ(other.getWaitUploadFilePath(), named("b"));
    EXPECT_EQ(files->getWaitUploadFilePath(), named("a"));
    files->fileWasNotUploaded();
    EXPECT_EQ(other.getWaitUploadFilePath(), named("a"));
    EXPECT_EQ(files->getWaitUploadFilePath(), named("b"));
    other.fileWasUploaded(named("a"));
    files->fileWasUploaded(named("b"));
    EXPECT_EQ(files->getWaitUploadFilePath(), std::nullopt);
}

TEST_F(LoganFileManager, GoesOnBehindTheLastWholeLineOfAFile) {
    std::filesystem::create_directories(directory);
    auto const half = "{\"logType\":1,\"dev" + std::string(10'000, 'x');
    for (std::string const before : {"", "whole\n", "one\ntwo\n"}) {
        makeFile(named("logan"), before + half);
        files.emplace(directory, false, clock);
        files->writeLog("next");
        files->drain();
        EXPECT_EQ(contentOf(named("logan")), before + "next\n");
        // So it is when the file is closed for its upload.
        makeFile(named("logan"), before + "next\n" + half);
        auto const offered = files->getWaitUploadFilePath();
        ASSERT_TRUE(offered);
        EXPECT_EQ(contentOf(*offered), before + "next\n");
        files->fileWasUploaded(*offered);
    }
}

TEST_F(LoganFileManager, OffersNoUploadedFileAgainWhenItCannotBePutAway) {
    open();
    write(1);
    auto const path = files->getWaitUploadFilePath();
    ASSERT_TRUE(path);
    std::filesystem::remove(directory + "_bak");
    makeFile(directory + "_bak", "a file where the directory should be");
    files->fileWasUploaded(*path);
    EXPECT_EQ(files->getWaitUploadFilePath(), std::nullopt);
    write(1);
    EXPECT_EQ(files->getWaitUploadFilePath(), std::nullopt);  // this second's name is taken
    clock->advance(1s);
    EXPECT_EQ(files->getWaitUploadFilePath(), named(currentName()));
    EXPECT_EQ(linesOf(named(currentName())).back(), "record 1");
    // Another file under that name is another file.
    std::filesystem::rename(*path, home.path("away"));
    makeFile(*path, "new\n");
    files->fileWasUploaded(named(currentName()));
    EXPECT_EQ(files->getWaitUploadFilePath(), path);
}

TEST_F(LoganFileManager, GoesOnAfterWhatWasDoneToItsDirectory) {
    struct Case {
        char const* what;
        std::function<void(std::string const& directory)> doIt;
    };
    for (auto const& c : std::vector<Case>{
             {"deleted", [](auto const& path) { std::filesystem::remove_all(path); }},
             {"moved away", [](auto const& path) { std::filesystem::rename(path, path + "_away"); }},
             {"current file deleted", [](auto const& path) { std::filesystem::remove(path + "/logan"); }},
             {"current file renamed", [](auto const& path) { std::filesystem::rename(path + "/logan", path + "/x"); }},
             {"backup deleted", [](auto const& path) { std::filesystem::remove_all(path + "_bak"); }},
         }) {
        TemporaryDirectory const place;
        auto const path = place.path("logan");
        WnLoganFileManager manager(path, true, clock);
        manager.writeLog("before");
        manager.drain();
        c.doIt(path);
        manager.writeLog("after");
        manager.drain();
        EXPECT_EQ(linesOf(path + "/logan").back(), "after") << c.what;
        auto const offered = manager.getWaitUploadFilePath();
        ASSERT_TRUE(offered) << c.what;
        manager.fileWasUploaded(*offered);
        EXPECT_FALSE(std::filesystem::exists(*offered)) << c.what;
    }
}

TEST_F(LoganFileManager, GoesOnAfterItsCurrentFileBecameADirectoryOrALink) {
    open();
    write(1);
    auto const offered = files->getWaitUploadFilePath();
    clock->advance(1s);
    std::filesystem::remove(named("logan"));
    std::filesystem::create_directory(named("logan"));
    write(1);
    clock->advance(1s);
    std::filesystem::remove_all(named("logan"));
    makeFile(home.path("precious"), "mine\n");
    std::filesystem::create_symlink(home.path("precious"), named("logan"));
    write(1);
    EXPECT_EQ(contentOf(home.path("precious")), "mine\n");
    EXPECT_EQ(contentOf(named("logan")), "record 2\n");
    EXPECT_EQ(files->getWaitUploadFilePath(), offered);
}

TEST_F(LoganFileManager, DropsRecordsWhereNoDirectoryCanBeUntilItCan) {
    makeFile(home.path("caches"), "a file where the directory should be");
    open();
    write(3);
    EXPECT_EQ(files->getWaitUploadFilePath(), std::nullopt);
    std::filesystem::remove(home.path("caches"));
    write(1);
    EXPECT_EQ(contentOf(named("logan")), "record 3\n");
}

TEST_F(LoganFileManager, LeavesOnlyWholeLinesOnAFullDisk) {
    auto const result = runShell(DIAGNOSTICS_PROBE " full-disk " + directory);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(contentOf(named("logan")), "record100\nrecord101\nrecord102\nrecord103\nafterwards\n");
}

TEST_F(LoganFileManager, CopesWithThousandsOfWaitingFiles) {
    std::filesystem::create_directories(directory);
    for (int i = 0; i < 3000; ++i) makeFile(named(std::to_string(10000 + i)), "x\n");
    open();
    auto const start = std::chrono::steady_clock::now();
    for (int i = 0; i < 5; ++i) {
        auto const path = files->getWaitUploadFilePath();
        ASSERT_TRUE(path);
        files->fileWasUploaded(*path);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    EXPECT_EQ(entriesOf(directory + "_bak").size(), 5u);
    EXPECT_EQ(entriesOf(directory).size(), 2996u);
}

}  // namespace
}  // namespace kv

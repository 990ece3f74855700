// The command line of `kvpim`.
#include "Classes/KvPimKit.h"
#include "console/Console.h"
#include "console/DoctorCommand.h"
#include "console/HelpPages.h"
#include "console/ReplayCommand.h"
#include "console/Show.h"
#include "console/chat/Chat.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <CLI/CLI.hpp>

namespace {

using namespace kv::console;

constexpr int kBadUsage = 2;
constexpr double kLongestLinger = 24 * 60 * 60;
constexpr double kShortestStep = 0.1, kLongestStep = 600;

std::vector<std::string> splitAtCommas(std::string const& text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
    return parts;
}

struct ConsoleCommand {
    ConsoleOptions options;
    double linger = 0;

    explicit ConsoleCommand(CLI::App& app) {
        auto& command = *app.add_subcommand("console", "Drive a client through lines of JSON: bots, scripts, tests");
        addCommonOptions(command, options.common);
        command.get_option("--app-id")->required();
        command.add_option("--log-file", options.logFile, "The local log file, which must exist")->type_name("PATH");
        command.add_option("--log-filters", options.logFilters, "What is logged: 0 nothing, 8 everything")
            ->type_name("N");
        command
            .add_option_function<std::string>(
                "--delegate", [this](std::string const& names) { options.delegate = splitAtCommas(names); },
                "The client callbacks that are implemented (default: all)")
            ->expected(0, 1)
            ->type_name("NAME,...");
        command
            .add_option("--metrics", options.metricsPort,
                        "Serve metrics at http://127.0.0.1:PORT/metrics; 0: a free port")
            ->type_name("PORT");
        command.add_option("--linger", linger, "Seconds to wait for events after the end of input (default: 0)")
            ->check(CLI::Range(0.0, kLongestLinger))
            ->type_name("SECONDS");
    }

    int run() {
        options.linger = std::chrono::duration<double>(linger);
        return runConsole(options);
    }
};

std::string firstLineOf(std::string const& path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line)) throw BadUsage("there is no token in " + path);
    return line.substr(0, line.find('\r'));
}

struct ChatCommand {
    ChatOptions options;
    std::string tokenFile;

    explicit ChatCommand(CLI::App& app) {
        auto& command = *app.add_subcommand("chat", "Chat in the terminal");
        command.add_option("USER", options.userId, "Your user id")->required();
        addCommonOptions(command, options.common);
        command.get_option("--app-id")->capture_default_str();
        command.get_option("--api-server")->capture_default_str();
        command.add_option("--token", options.token, "The token, 32 characters")
            ->type_name("TOKEN")
            ->envname("KVPIM_TOKEN")
            ->capture_default_str();
        command
            .add_option("--token-file", tokenFile,
                        "A file whose first line is the token: the list of processes shows none")
            ->type_name("FILE")
            ->check(CLI::ExistingFile);
    }

    int run() {
        if (!tokenFile.empty()) options.token = firstLineOf(tokenFile);
        return runChat(options);
    }
};

struct DoctorCommand {
    DoctorOptions options;
    std::string tokenFile;
    double timeout = 10;

    explicit DoctorCommand(CLI::App& app) {
        auto& command = *app.add_subcommand("doctor", "Say step by step why it does not connect, and what to do");
        addCommonOptions(command, options.common);
        command.get_option("--app-id")->capture_default_str();
        command.get_option("--api-server")->required();
        auto* const user = command.add_option("--user", options.userId,
                                              "Who logs in, which ends another session of theirs (default: nobody)");
        user->type_name("USER");
        auto* const token = command.add_option("--token", options.token, "The user's token, 32 characters");
        token->type_name("TOKEN")->envname("KVPIM_TOKEN");
        command
            .add_option("--token-file", tokenFile,
                        "A file whose first line is the token: the list of processes shows none")
            ->type_name("FILE")
            ->check(CLI::ExistingFile);
        command.add_flag("--upload", options.triesUpload, "Send one event report, about nothing, to the collector");
        command.add_option("--timeout", timeout, "How long each step may wait (default: 10)")
            ->check(CLI::Range(kShortestStep, kLongestStep))
            ->type_name("SECONDS");
        command.add_flag("--json", options.isJson, "Print one JSON object for each step, and a summary");
        command.add_flag("-v,--verbose", options.isVerbose, "Print all facts of each step");
    }

    int run() {
        if (!tokenFile.empty()) options.token = firstLineOf(tokenFile);
        if (!options.userId.empty() && options.token.empty())
            throw BadUsage("--user wants a --token, or a --token-file");
        options.timeout = std::chrono::milliseconds(static_cast<std::int64_t>(timeout * 1000));
        return runDoctor(options);
    }
};

struct ShowCommand {
    ShowOptions options;

    explicit ShowCommand(CLI::App& app) {
        auto& command = *app.add_subcommand("show", "Print what --record has written, for people");
        command.add_option("FILE", options.file, "The record; FILE.1, if it is there, is read before it")->required();
        command.add_option("--only", options.only, "requests: what was asked for, and the answers; events; life")
            ->check(CLI::IsMember({"requests", "events", "life"}))
            ->type_name("WHAT");
        command.add_option("--grep", options.grep, "Only lines with this text, such as a user's id")->type_name("TEXT");
        command.add_option("--connection", options.connection, "Only this connection")->type_name("N");
        command.add_flag("--full", options.isFull, "Long lines to their end");
    }

    int run() { return runShow(options); }
};

struct ReplayCommand {
    ReplayOptions options;

    explicit ReplayCommand(CLI::App& app) {
        auto& command = *app.add_subcommand("replay", "Play the server's side of a record to a fresh client");
        command.add_option("FILE", options.file, "The record, from its beginning")->required();
        command.add_option("--client", options.client, "Whose, where several wrote to the file (default: 1)")
            ->type_name("N");
        command.add_flag("--quiet", options.isQuiet, "Print only what differs");
    }

    int run() { return runReplay(options); }
};

// For the build: no group, so that no help tells of it.
struct HelpPagesCommand {
    std::filesystem::path share;

    explicit HelpPagesCommand(CLI::App& app) {
        auto& command = *app.add_subcommand("help-pages", "Write manual pages and shell completion")->group("");
        command.add_option("DIRECTORY", share, "Below which they belong, as below /usr/share")->required();
    }
};

int run(int argc, char** argv) {
    CLI::App app("The command line client of Kv PIM", "kvpim");
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("kvpim ") + KVPIM_VERSION);
    ConsoleCommand console(app);
    ChatCommand chat(app);
    DoctorCommand doctor(app);
    ShowCommand show(app);
    ReplayCommand replay(app);
    HelpPagesCommand helpPages(app);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error, std::cout, std::cerr) == 0 ? 0 : kBadUsage;
    }
    if (app.got_subcommand("help-pages")) {
        writeHelpPages(app, helpPages.share);
        return 0;
    }
    if (app.got_subcommand("doctor")) return doctor.run();
    if (app.got_subcommand("show")) return show.run();
    if (app.got_subcommand("replay")) return replay.run();
    return app.got_subcommand("console") ? console.run() : chat.run();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (BadUsage const& error) {
        std::fprintf(stderr, "kvpim: %s\n", error.what());
        return kBadUsage;
    } catch (std::exception const& error) {
        std::fprintf(stderr, "kvpim: %s\n", error.what());
        return 1;
    }
}

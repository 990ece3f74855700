#include "console/Show.h"

#include "console/Colours.h"
#include "console/Record.h"
#include "console/chat/SafeText.h"

#include <cstdio>
#include <map>
#include <optional>
#include <utility>

namespace kv::console {
namespace json = boost::json;
namespace {

constexpr std::size_t kUsualLength = 400;  // of what a packet or a call holds
constexpr int kMostProblems = 10;          // that are told one by one

enum class Topic { request, event, life };

struct Shown {
    Topic topic = Topic::life;
    char const* colour = "";
    std::string text;
};

constexpr char kPlain[] = "", kDim[] = "\x1b[2m", kRed[] = "\x1b[31m", kGreen[] = "\x1b[32m", kCyan[] = "\x1b[36m",
               kBold[] = "\x1b[1m";

std::string milliseconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms", seconds * 1e3);
    return text;
}

// The item behind the words of an event or an acknowledgement, as text; empty when there is none.
std::string itemsFrom(json::array const* items, std::size_t first) {
    std::string text;
    for (std::size_t i = first; items != nullptr && i < items->size(); ++i) text += ' ' + json::serialize((*items)[i]);
    return text;
}

std::string_view textAt(json::array const* items, std::size_t index) {
    auto const* const text = items != nullptr && index < items->size() ? (*items)[index].if_string() : nullptr;
    return text != nullptr ? std::string_view(*text) : std::string_view();
}

class Show {
public:
    explicit Show(ShowOptions const& options) : options_(options), hasColours_(wantsColours()) {}

    void line(RecordLine const& line) {
        ++lines_;
        switch (line.kind) {
            case RecordKind::header:
                return header(line);
            case RecordKind::life:
                return print(line, life(line));
            case RecordKind::received:
                return print(line, received(line));
            case RecordKind::sent:
                return print(line, sent(line));
            case RecordKind::call:
                return print(line, call(line));
            case RecordKind::end:
                return print(line, end(line));
            case RecordKind::lost:
                return print(line,
                             {Topic::life, kRed,
                              std::to_string(line.number("lost")) + " lines are missing here: the disk was slow"});
            case RecordKind::unknown:
                return;
        }
    }

    void problem(std::string const& text) {
        if (++problems_ <= kMostProblems) std::fprintf(stderr, "kvpim: %s\n", harmless(text).c_str());
    }

    /// The exit status.
    int finish() {
        tellUnanswered();
        if (problems_ > kMostProblems)
            std::fprintf(stderr, "kvpim: and %d more lines that cannot be read\n", problems_ - kMostProblems);
        return lines_ > 0 ? 0 : 1;
    }

private:
    struct Request {
        double time;
        std::string what;
        RecordLine line;  // its head alone
    };

    void header(RecordLine const& line) {
        auto const started = std::string(line.text("started"));
        if (started == started_) return;  // the second file of the same
        tellUnanswered();
        started_ = started;
        last_ = 0;
        auto text = "Record of \"" + std::string(line.text("appId")) + "\", begun " + started + ", library " +
                    std::string(line.text("library")) + ", contents " + std::string(line.text("contents"));
        if (line.number("part") > 1) text += "; its beginning has been written over";
        write(kBold, text);
    }

    Shown life(RecordLine const& line) {
        auto const step = line.text("life");
        auto text = std::string(step);
        for (std::string_view const field : {"appId", "server", "target", "stage", "reason", "cause", "serverWords"})
            if (auto const value = line.text(field); !value.empty()) text.append("  ").append(value);
        bool const isBad = step == "lost" || step == "notDiscovered";
        if (step == "lost" || step == "left") tellUnanswered(line.connection);
        return {Topic::life, isBad ? kRed : step == "open" ? kGreen : kPlain, text};
    }

    Shown call(RecordLine const& line) {
        auto const method = std::string(line.text("method"));
        bool const isAwaited = line.fields.contains("command") || method.starts_with("log") || method == "renewToken";
        if (isAwaited) calls_[line.number("call")] = {line.time, method, headOf(line)};
        auto text = "call " + std::to_string(line.number("call")) + "  " + method;
        if (auto const* const payload = line.fields.if_contains("payload")) text += ' ' + json::serialize(*payload);
        if (line.fields.contains("restoring")) text += "  (brings back)";
        return {Topic::request, kCyan, text};
    }

    Shown end(RecordLine const& line) {
        auto const number = line.number("ended");
        auto const code = signedOf(line.fields, "code");
        auto text = "call " + std::to_string(number) + "  ";
        if (auto const call = calls_.extract(number); !call.empty())
            text += call.mapped().what + " ended after " + milliseconds(line.time - call.mapped().time) + " with ";
        else
            text += "ended with ";
        return {Topic::request, code == 0 ? kGreen : kRed, text + std::to_string(code)};
    }

    Shown received(RecordLine const& line) {
        auto const& packet = *line.packet();
        auto const type = textOf(packet, "type");
        auto const* const data = packet.if_contains("data");
        auto const* const items = data != nullptr ? data->if_array() : nullptr;
        if (type == "event")
            return {Topic::event, kPlain,
                    "<-  " + std::string(textAt(items, 0)) + itemsFrom(items, 1) + askedFor(packet)};
        if (type == "ack") {
            auto const id = numberOf(packet, "id");
            auto const request = requests_.extract({line.connection, id});
            auto const what = request.empty() ? "answer " + std::to_string(id) + " to nothing that is known"
                                              : "answer " + std::to_string(id) + " to " + request.mapped().what +
                                                    " after " + milliseconds(line.time - request.mapped().time);
            return {Topic::request, request.empty() ? kRed : kPlain, "<-  " + what + itemsFrom(items, 0)};
        }
        return {Topic::life, kDim, "<-  " + other(packet)};
    }

    Shown sent(RecordLine const& line) {
        auto const& packet = *line.packet();
        auto const type = textOf(packet, "type");
        auto const* const data = packet.if_contains("data");
        auto const* const items = data != nullptr ? data->if_array() : nullptr;
        if (type == "event") {
            bool const isCommand = textAt(items, 0) == "command";
            auto const what = std::string(textAt(items, isCommand ? 1 : 0));
            if (packet.contains("id"))
                requests_[{line.connection, numberOf(packet, "id")}] = {line.time, what, headOf(line)};
            return {Topic::request, kPlain, "->  " + what + itemsFrom(items, isCommand ? 2 : 1) + askedFor(packet)};
        }
        if (type == "ack")
            return {Topic::event, kPlain, "->  answer " + std::to_string(numberOf(packet, "id")) + itemsFrom(items, 0)};
        return {Topic::life, kDim, "->  " + other(packet)};
    }

    static std::string askedFor(json::object const& packet) {
        return packet.contains("id") ? "  (asks for answer " + std::to_string(numberOf(packet, "id")) + ")" : "";
    }

    static std::string other(json::object const& packet) {
        std::string text(textOf(packet, "type"));
        if (packet.contains("bytes")) text += ", " + std::to_string(numberOf(packet, "bytes")) + " bytes";
        for (std::string_view const field : {"data", "text"})
            if (auto const* const value = packet.if_contains(field)) text += ' ' + json::serialize(*value);
        return text;
    }

    static RecordLine headOf(RecordLine const& line) {
        RecordLine head;
        head.time = line.time;
        head.client = line.client;
        head.connection = line.connection;
        return head;
    }

    // What was sent over a connection that has ended, or over any, and was not answered.
    void tellUnanswered(std::optional<std::uint64_t> connection = {}) {
        for (auto next = requests_.begin(); next != requests_.end();) {
            if (connection && next->first.first != *connection) {
                ++next;
                continue;
            }
            tellUnanswered(next->second);
            next = requests_.erase(next);
        }
        if (connection) return;
        for (auto const& [number, call] : calls_) tellUnanswered(call);
        calls_.clear();
    }

    void tellUnanswered(Request const& request) {
        char since[32];
        std::snprintf(since, sizeof since, "%.6f", request.time);
        auto line = request.line;
        line.time = last_;
        print(line, {Topic::request, kRed, "??  " + request.what + " of " + since + " was not answered"});
    }

    void print(RecordLine const& line, Shown shown) {
        static constexpr std::pair<std::string_view, Topic> kTopics[] = {
            {"requests", Topic::request}, {"events", Topic::event}, {"life", Topic::life}};
        for (auto const& [name, topic] : kTopics)
            if (options_.only == name && shown.topic != topic) return;
        if (options_.connection != 0 && line.connection != options_.connection) return;
        if (!options_.grep.empty() && shown.text.find(options_.grep) == std::string::npos) return;
        if (!options_.isFull && shown.text.size() > kUsualLength)
            shown.text = shown.text.substr(0, kUsualLength) + "... " + std::to_string(shown.text.size()) + " bytes";
        char head[96];
        std::snprintf(head, sizeof head, "%12.6f %+11.6f  ", line.time, line.time - last_);
        last_ = line.time;
        auto where = line.client > 1 ? "client " + std::to_string(line.client) + " " : std::string();
        where += line.connection > 0 ? "#" + std::to_string(line.connection) : "";
        if (where.size() < 4) where.resize(4, ' ');
        write(shown.colour, head + where + "  " + shown.text);
    }

    void write(std::string_view colour, std::string const& text) const {
        auto line = harmless(text);
        if (hasColours_ && !colour.empty()) line = std::string(colour) + line + "\x1b[0m";
        line += '\n';
        std::fwrite(line.data(), 1, line.size(), stdout);
    }

    ShowOptions const options_;
    bool const hasColours_;
    std::string started_;
    double last_ = 0;                                                      // time of the line that was printed last
    std::map<std::pair<std::uint64_t, std::uint64_t>, Request> requests_;  // by connection and id
    std::map<std::uint64_t, Request> calls_;
    std::uint64_t lines_ = 0;
    int problems_ = 0;
};

}  // namespace

int runShow(ShowOptions const& options) {
    Show show(options);
    bool const isThere = readRecord(
        options.file, [&](RecordLine const& line) { show.line(line); },
        [&](std::string const& problem) { show.problem(problem); });
    if (!isThere) {
        std::fprintf(stderr, "kvpim: cannot read %s\n", options.file.c_str());
        return 1;
    }
    return show.finish();
}

}  // namespace kv::console

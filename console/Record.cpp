#include "console/Record.h"

#include <fstream>

namespace kv::console {
namespace json = boost::json;
namespace {

constexpr std::size_t kMostDepth = 128;
constexpr std::int64_t kVersion = 1;

RecordKind kindOf(json::object const& fields) {
    struct Sign {
        std::string_view field;
        RecordKind kind;
    };
    static constexpr Sign kSigns[] = {{"format", RecordKind::header}, {"life", RecordKind::life},
                                      {"in", RecordKind::received},   {"out", RecordKind::sent},
                                      {"call", RecordKind::call},     {"ended", RecordKind::end},
                                      {"lost", RecordKind::lost}};
    for (auto const& [field, kind] : kSigns)
        if (fields.contains(field)) return kind;
    return RecordKind::unknown;
}

// Empty, or what is wrong with the line.
std::string readLine(std::string_view text, RecordLine& line) {
    json::error_code error;
    json::parse_options options;
    options.max_depth = kMostDepth;
    auto value = json::parse(text, error, {}, options);
    if (error || !value.is_object()) return "no line of a record";
    line.fields = std::move(value.as_object());
    line.kind = kindOf(line.fields);
    if (line.kind == RecordKind::unknown) return "a line of an unknown kind";
    bool const isPacket = line.kind == RecordKind::received || line.kind == RecordKind::sent;
    if (isPacket && line.packet() == nullptr) return "a packet that is none";
    if (line.kind == RecordKind::header) {
        if (line.text("format") != "kvpim-record") return "the beginning of another kind of file";
        if (signedOf(line.fields, "version") > kVersion) return "made by a newer version of this program";
        return "";
    }
    auto const* const time = line.fields.if_contains("t");
    if (time == nullptr || !time->is_number()) return "a line without a time";
    line.time = time->to_number<double>();
    line.client = line.number("client");
    line.connection = line.number("connection");
    return "";
}

bool readFile(std::string const& path, std::function<void(RecordLine const&)> const& onLine,
              std::function<void(std::string const&)> const& onProblem) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    std::string text;
    for (std::size_t number = 1; std::getline(file, text); ++number) {
        RecordLine line;
        auto const problem = readLine(text, line);
        bool const isCutOff = file.eof();  // without its end
        if (problem.empty()) {
            onLine(line);
        } else if (!isCutOff || number == 1) {
            onProblem(path + ", line " + std::to_string(number) + ": " + problem);
        }
    }
    return true;
}

}  // namespace

std::string_view textOf(json::object const& object, std::string_view name) {
    auto const* const value = object.if_contains(name);
    auto const* const text = value != nullptr ? value->if_string() : nullptr;
    return text != nullptr ? std::string_view(*text) : std::string_view();
}

std::int64_t signedOf(json::object const& object, std::string_view name) {
    auto const* const value = object.if_contains(name);
    if (value == nullptr || !value->is_number()) return 0;
    json::error_code error;
    auto const number = value->to_number<std::int64_t>(error);
    return error ? 0 : number;
}

std::uint64_t numberOf(json::object const& object, std::string_view name) {
    auto const number = signedOf(object, name);
    return number > 0 ? static_cast<std::uint64_t>(number) : 0;
}

std::string_view RecordLine::text(std::string_view name) const { return textOf(fields, name); }

std::uint64_t RecordLine::number(std::string_view name) const { return numberOf(fields, name); }

json::object const* RecordLine::packet() const {
    auto const* const value = fields.if_contains(kind == RecordKind::sent ? "out" : "in");
    return value != nullptr ? value->if_object() : nullptr;
}

bool readRecord(std::string const& file, std::function<void(RecordLine const&)> const& onLine,
                std::function<void(std::string const&)> const& onProblem) {
    bool const isOlderThere = readFile(file + ".1", onLine, onProblem);
    return readFile(file, onLine, onProblem) || isOlderThere;
}

}  // namespace kv::console

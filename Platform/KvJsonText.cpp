#include "Platform/KvJsonText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/value_stack.hpp>

namespace kv {
namespace json = boost::json;
namespace {

// What the parser of Boost.JSON tells is made into a value here, and not by its own handler, which knows no bounds.
class Builder {
public:
    static constexpr std::size_t max_object_size = kMostJsonKeys;
    static constexpr std::size_t max_array_size = kMostJsonValues;
    static constexpr std::size_t max_key_size = json::string::max_size();
    static constexpr std::size_t max_string_size = json::string::max_size();

    void reset(json::storage_ptr storage) {
        stack_.reset(std::move(storage));
        values_ = keyWork_ = 0;
    }
    json::value release() { return stack_.release(); }

    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_object_begin(json::error_code& error) { return countValue(error); }
    bool on_object_end(std::size_t size, json::error_code& error) {
        // What it costs if all its keys were made to meet in one place.
        if (size > kFewKeys) keyWork_ += size * size;
        if (keyWork_ > kMostKeyWork) return error = json::error::object_too_large, false;
        return stack_.push_object(size), true;
    }
    bool on_array_begin(json::error_code& error) { return countValue(error); }
    bool on_array_end(std::size_t size, json::error_code&) { return stack_.push_array(size), true; }
    bool on_key_part(json::string_view part, std::size_t, json::error_code&) { return stack_.push_chars(part), true; }
    bool on_key(json::string_view part, std::size_t, json::error_code&) { return stack_.push_key(part), true; }
    bool on_string_part(json::string_view part, std::size_t, json::error_code&) {
        return stack_.push_chars(part), true;
    }
    bool on_string(json::string_view part, std::size_t, json::error_code& error) {
        return stack_.push_string(part), countValue(error);
    }
    bool on_number_part(json::string_view, json::error_code&) { return true; }
    bool on_int64(std::int64_t number, json::string_view, json::error_code& error) {
        return stack_.push_int64(number), countValue(error);
    }
    bool on_uint64(std::uint64_t number, json::string_view, json::error_code& error) {
        return stack_.push_uint64(number), countValue(error);
    }
    bool on_double(double number, json::string_view, json::error_code& error) {
        return stack_.push_double(number), countValue(error);
    }
    bool on_bool(bool truth, json::error_code& error) { return stack_.push_bool(truth), countValue(error); }
    bool on_null(json::error_code& error) { return stack_.push_null(), countValue(error); }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }

private:
    bool countValue(json::error_code& error) {
        if (++values_ <= kMostJsonValues) return true;
        error = json::error::array_too_large;
        return false;
    }

    static constexpr std::size_t kFewKeys = 32;
    static constexpr std::size_t kMostKeyWork = 4 * kMostJsonKeys * kMostJsonKeys;

    json::value_stack stack_;
    std::size_t values_ = 0;
    std::size_t keyWork_ = 0;
};

using Parser = json::basic_parser<Builder>;

json::parse_options withDepth(std::size_t most) {
    json::parse_options options;
    options.max_depth = most;
    return options;
}

json::error_code readWith(Parser& parser, std::string_view text, json::storage_ptr storage, json::value& out) {
    parser.reset();
    parser.handler().reset(std::move(storage));
    json::error_code error;
    auto const size = parser.write_some(false, text.data(), text.size(), error);
    if (!error && size < text.size()) error = json::error::extra_data;
    if (!error) out = parser.handler().release();
    return error;
}

json::error_code read(std::string_view text, json::storage_ptr storage, json::value& out, std::size_t mostDepth) {
    // The memory of a parser grows with what it reads, and stays: one that reads much is not kept.
    constexpr std::size_t kMostForKept = 64u << 10;
    if (text.size() > kMostForKept || mostDepth != kMostJsonDepth) {
        Parser parser(withDepth(mostDepth));
        return readWith(parser, text, std::move(storage), out);
    }
    thread_local Parser kept(withDepth(kMostJsonDepth));
    return readWith(kept, text, std::move(storage), out);
}

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'f'); }

enum class Escape { other, leading, trailing };

// What an escape of six characters, "\ud83d", stands for.
Escape escapeAt(std::string_view text, std::size_t at) {
    auto const escape = text.substr(at, 6);
    if (escape.size() < 6 || escape[0] != '\\' || escape[1] != 'u' || (escape[2] | 0x20) != 'd') return Escape::other;
    for (auto const c : escape.substr(2)) {
        if (!isHexDigit(c)) return Escape::other;
    }
    auto const digit = escape[3] | 0x20;
    if (digit == '8' || digit == '9' || digit == 'a' || digit == 'b') return Escape::leading;
    return digit >= 'c' ? Escape::trailing : Escape::other;
}

// Puts U+FFFD in the place of each half of a surrogate pair. Returns whether there was one.
bool replaceHalfPairs(std::string& text) {
    bool isChanged = false;
    for (auto at = text.find('\\'); at != std::string::npos; at = text.find('\\', at)) {
        auto const escape = escapeAt(text, at);
        if (escape == Escape::other) {
            at += 2;
        } else if (escape == Escape::leading && escapeAt(text, at + 6) == Escape::trailing) {
            at += 12;
        } else {
            text.replace(at + 2, 4, "fffd");
            at += 6;
            isChanged = true;
        }
    }
    return isChanged;
}

std::string describe(json::error_code const& error) {
    if (error == json::error::too_deep) return "JSON nested too deeply";
    if (error == json::error::object_too_large) return "JSON with too many keys in one object";
    if (error == json::error::array_too_large) return "JSON with more than a million values";
    return "bad JSON: " + error.message();
}

template <class Number>
void appendNumber(std::string& out, Number number) {
    std::array<char, 24> digits;
    out.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

void appendDouble(std::string& out, double number) {
    constexpr double kLeastPlain = 1e-6, kEndOfPlain = 1e21;  // beyond these JavaScript writes an exponent
    if (!std::isfinite(number)) {
        out += "null";
        return;
    }
    auto const size = std::fabs(number);
    bool const isPlain = size == 0 || (size >= kLeastPlain && size < kEndOfPlain);
    std::array<char, 40> digits;
    auto const format = isPlain ? std::chars_format::fixed : std::chars_format::scientific;
    out.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number, format).ptr);
}

bool isPlainInText(char c) { return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\'; }

void appendEscaped(std::string& out, char c) {
    constexpr std::string_view kShort = "\"\"\\\\\bb\ff\nn\rr\tt";  // each with the letter that it is written as
    for (std::size_t i = 0; i < kShort.size(); i += 2) {
        if (kShort[i] == c) {
            out += {'\\', kShort[i + 1]};
            return;
        }
    }
    constexpr std::string_view kHex = "0123456789abcdef";
    auto const code = static_cast<unsigned char>(c);
    out.append("\\u00").append({kHex[code >> 4], kHex[code & 0xF]});
}

}  // namespace

std::string readJson(std::string_view text, json::storage_ptr storage, json::value& out, std::size_t mostDepth) {
    auto error = read(text, storage, out, mostDepth);
    if (!error) return {};
    if (text.find("\\u") != std::string_view::npos) {
        // Only the text that fails pays for the search, and for being read twice.
        std::string repaired(text);
        if (replaceHalfPairs(repaired)) error = read(repaired, std::move(storage), out, mostDepth);
    }
    return error ? describe(error) : std::string();
}

void appendJson(std::string& out, json::string_view text) {
    out.push_back('"');
    for (auto at = text.begin(); at != text.end();) {
        auto const* const plain = at;
        while (at != text.end() && isPlainInText(*at)) ++at;
        out.append(plain, at);
        if (at != text.end()) appendEscaped(out, *at++);
    }
    out.push_back('"');
}

void appendJson(std::string& out, json::value const& value) {
    switch (value.kind()) {
        case json::kind::null:
            out += "null";
            break;
        case json::kind::bool_:
            out += value.get_bool() ? "true" : "false";
            break;
        case json::kind::int64:
            return appendNumber(out, value.get_int64());
        case json::kind::uint64:
            return appendNumber(out, value.get_uint64());
        case json::kind::double_:
            return appendDouble(out, value.get_double());
        case json::kind::string:
            return appendJson(out, json::string_view(value.get_string()));
        case json::kind::array:
            return appendJson(out, value.get_array());
        case json::kind::object:
            return appendJson(out, value.get_object());
    }
}

void appendJson(std::string& out, json::array const& array) {
    out.push_back('[');
    for (bool isFirst = true; auto const& item : array) {
        if (!std::exchange(isFirst, false)) out.push_back(',');
        appendJson(out, item);
    }
    out.push_back(']');
}

void appendJson(std::string& out, json::object const& object) {
    out.push_back('{');
    for (bool isFirst = true; auto const& entry : object) {
        if (!std::exchange(isFirst, false)) out.push_back(',');
        appendJson(out, entry.key());
        out.push_back(':');
        appendJson(out, entry.value());
    }
    out.push_back('}');
}

}  // namespace kv

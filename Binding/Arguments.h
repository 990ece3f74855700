// The arguments of a request, and the options of a client, by name and type.
#pragma once

#include "Classes/Model/KvPimAttribute.h"
#include "Platform/KvData.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json.hpp>

namespace kv::binding {

/// A text that cannot be carried out as it stands.
struct BadRequest : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// How an argument of one type is read, and what it is called in an error text.
template <class Type>
struct ArgumentType;

class Arguments {
public:
    explicit Arguments(boost::json::object const& fields, KvData data = nullptr)
        : fields_(fields), data_(std::move(data)) {}

    /// An argument that the operation needs. Throws BadRequest when it is absent or of another type.
    template <class Type>
    Type get(std::string_view name) const {
        if (auto found = find<Type>(name)) return *std::move(found);
        throw BadRequest(quoted(name) + " is missing");
    }

    /// An argument that the operation can do without: null is as good as absent. Throws BadRequest on another type.
    template <class Type>
    std::optional<Type> find(std::string_view name) const {
        auto const* const value = fields_.if_contains(name);
        if (value == nullptr || value->is_null()) return std::nullopt;
        if (auto read = ArgumentType<Type>::from(*value)) return read;
        throw BadRequest(quoted(name) + " must be " + std::string(ArgumentType<Type>::description));
    }

    /// The same, into where it belongs; what is absent leaves that alone.
    template <class Type>
    void into(Type& target, std::string_view name) const {
        if (auto found = find<Type>(name)) target = *std::move(found);
    }

    /// What came beside the text; null for nothing.
    KvData const& data() const { return data_; }

    std::string text(std::string_view name) const { return get<std::string>(name); }
    boost::json::object const& fields() const { return fields_; }
    std::vector<std::string> texts(std::string_view name) const { return get<std::vector<std::string>>(name); }

private:
    static std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

    boost::json::object const& fields_;
    KvData const data_;
};

template <>
struct ArgumentType<std::string> {
    static constexpr std::string_view description = "a text";
    static std::optional<std::string> from(boost::json::value const& value);
};

template <>
struct ArgumentType<std::int64_t> {
    static constexpr std::string_view description = "a whole number";
    static std::optional<std::int64_t> from(boost::json::value const& value);
};

template <>
struct ArgumentType<bool> {
    static constexpr std::string_view description = "true or false";
    static std::optional<bool> from(boost::json::value const& value);
};

template <>
struct ArgumentType<std::size_t> {
    static constexpr std::string_view description = "a whole number, 0 or more";
    static std::optional<std::size_t> from(boost::json::value const& value);
};

/// A length of time.
struct Seconds {
    double count;
};

template <>
struct ArgumentType<Seconds> {
    static constexpr std::string_view description = "a number of seconds, up to a day";
    static std::optional<Seconds> from(boost::json::value const& value);
};

template <>
struct ArgumentType<KvBytes> {
    static constexpr std::string_view description = "a text in base64";
    static std::optional<KvBytes> from(boost::json::value const& value);
};

template <>
struct ArgumentType<KvPimAttribute> {
    static std::optional<KvPimAttribute> from(boost::json::value const& value);
};

template <class Element>
struct ArgumentType<std::vector<Element>> {
    static constexpr std::string_view description =
        std::is_same_v<Element, KvPimAttribute> ? "an array of {\"key\":text,\"value\":text}" : "an array of texts";
    static std::optional<std::vector<Element>> from(boost::json::value const& value) {
        auto const* const array = value.if_array();
        if (array == nullptr) return std::nullopt;
        std::vector<Element> elements;
        elements.reserve(array->size());
        for (auto const& item : *array) {
            auto element = ArgumentType<Element>::from(item);
            if (!element) return std::nullopt;
            elements.push_back(*std::move(element));
        }
        return elements;
    }
};

}  // namespace kv::binding

#include "Binding/Arguments.h"

#include "Binding/Base64.h"

namespace kv::binding {

using boost::json::value;

std::optional<std::string> ArgumentType<std::string>::from(value const& value) {
    auto const* const text = value.if_string();
    return text ? std::optional(std::string(*text)) : std::nullopt;
}

std::optional<std::int64_t> ArgumentType<std::int64_t>::from(value const& value) {
    auto const* const number = value.if_int64();
    return number ? std::optional(*number) : std::nullopt;
}

std::optional<std::size_t> ArgumentType<std::size_t>::from(value const& value) {
    auto const number = ArgumentType<std::int64_t>::from(value);
    return number && *number >= 0 ? std::optional(static_cast<std::size_t>(*number)) : std::nullopt;
}

std::optional<bool> ArgumentType<bool>::from(value const& value) {
    auto const* const flag = value.if_bool();
    return flag ? std::optional(*flag) : std::nullopt;
}

std::optional<Seconds> ArgumentType<Seconds>::from(value const& value) {
    constexpr double kDay = 24 * 60 * 60;
    if (!value.is_number()) return std::nullopt;
    auto const count = value.to_number<double>();
    return count >= 0 && count <= kDay ? std::optional(Seconds{count}) : std::nullopt;
}

std::optional<KvBytes> ArgumentType<KvBytes>::from(value const& value) {
    auto const* const text = value.if_string();
    return text ? fromBase64(*text) : std::nullopt;
}

std::optional<KvPimAttribute> ArgumentType<KvPimAttribute>::from(value const& value) {
    auto const* const object = value.if_object();
    auto const* const key = object ? object->if_contains("key") : nullptr;
    auto const* const text = object ? object->if_contains("value") : nullptr;
    bool const isAbsent = text == nullptr || text->is_null();
    if (key == nullptr || !key->is_string() || !(isAbsent || text->is_string())) return std::nullopt;
    KvPimAttribute attribute{std::string(key->get_string()), std::nullopt};
    if (!isAbsent) attribute.value = text->get_string();
    return attribute;
}

}  // namespace kv::binding

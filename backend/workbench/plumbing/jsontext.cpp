#include "workbench/plumbing/jsontext.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Tarnwick::DSO::Workbench {

std::string JsonText(const nlohmann::json& content, int indent)
{
    return content.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

nlohmann::json JsonFrom(std::string_view text)
{
    return nlohmann::json::parse(text);
}

std::string ReadableText(const nlohmann::json& value, int digits)
{
    if (value.is_string())
        return value.get<std::string>();
    return value.is_number_float() ? fmt::format("{:.{}g}", value.get<double>(), digits) : JsonText(value);
}

nlohmann::json JsonOrDiscarded(std::string_view text)
{
    return nlohmann::json::parse(text, nullptr, false);
}

std::string PlainText(std::string_view json)
{
    return ReadableText(JsonFrom(json), 10);
}

std::variant<double, std::string> NumberOrText(const std::string& json)
{
    const nlohmann::json value = JsonOrDiscarded(json);
    if (value.is_number())
        return value.get<double>();
    return value.is_string() ? value.get<std::string>() : json;
}

}  // namespace Tarnwick::DSO::Workbench

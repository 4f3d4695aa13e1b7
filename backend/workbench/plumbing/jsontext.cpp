#include "workbench/plumbing/jsontext.h"

namespace Tarnwick::DSO::Workbench {

std::string JsonText(const nlohmann::json& content, int indent)
{
    return content.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string JsonText(const nlohmann::ordered_json& content, int indent)
{
    return content.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

nlohmann::json JsonFrom(std::string_view text)
{
    return nlohmann::json::parse(text);
}

nlohmann::ordered_json OrderedJsonFrom(std::string_view text)
{
    return nlohmann::ordered_json::parse(text);
}

}  // namespace Tarnwick::DSO::Workbench

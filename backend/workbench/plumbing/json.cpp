#include "workbench/plumbing/json.h"

#include <nlohmann/json.hpp>

#include "workbench/plumbing/jsontext.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::ordered_json;

Json::Json(std::unique_ptr<ordered_json> value) : value_(std::move(value)) {}

Json::Json() : value_(std::make_unique<ordered_json>()) {}
Json::Json(bool value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(int value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(unsigned value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(long value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(unsigned long value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(long long value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(unsigned long long value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(double value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(const char* text) : value_(std::make_unique<ordered_json>(text)) {}
Json::Json(const std::string& text) : value_(std::make_unique<ordered_json>(text)) {}
Json::Json(const std::optional<double>& value) : Json()
{
    if (value)
        *value_ = *value;
}
Json::Json(const std::vector<double>& values) : value_(std::make_unique<ordered_json>(values)) {}
Json::Json(const std::vector<std::string>& texts) : value_(std::make_unique<ordered_json>(texts)) {}
Json::Json(std::initializer_list<Member> members) : Json(Object())
{
    for (const Member& member : members)
        Set(member.name, std::move(member.value));
}
Json::Json(const nlohmann::json& value) : value_(std::make_unique<ordered_json>(value)) {}
Json::Json(const Json& other) : value_(std::make_unique<ordered_json>(*other.value_)) {}
Json::Json(Json&& other) noexcept = default;
Json& Json::operator=(Json other) noexcept
{
    value_ = std::move(other.value_);
    return *this;
}
Json::~Json() = default;

Json Json::List()
{
    return Json(std::make_unique<ordered_json>(ordered_json::array()));
}

Json Json::Object()
{
    return Json(std::make_unique<ordered_json>(ordered_json::object()));
}

Json Json::From(std::string_view text)
{
    return Json(std::make_unique<ordered_json>(ordered_json::parse(text)));
}

bool Json::IsNull() const
{
    return value_->is_null();
}

void Json::Set(std::string_view name, Json value)
{
    (*value_)[std::string(name)] = std::move(*value.value_);
}

void Json::SetAll(const Json& members)
{
    value_->update(*members.value_);
}

void Json::Add(Json value)
{
    value_->push_back(std::move(*value.value_));
}

std::string Json::Text(int indent) const
{
    return value_->dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}

std::string Json::SortedText() const
{
    return JsonText(nlohmann::json(*value_));
}

}  // namespace Tarnwick::DSO::Workbench

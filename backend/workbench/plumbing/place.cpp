#include "workbench/plumbing/place.h"

#include <cmath>
#include <limits>

#include <nlohmann/json.hpp>

#include "framework/filenames.h"
#include "workbench/chain.h"
#include "workbench/plumbing/jsontext.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

double RealFrom(const json& value, const Place& place)
{
    if (!value.is_number())
        place.Fail(fmt::format("is {}; expected a number", JsonText(value)));
    return value.get<double>();
}

std::int32_t IntegerFrom(const json& value, const Place& place)
{
    if (!value.is_number_integer())
        place.Fail(fmt::format("is {}; expected a whole number", JsonText(value)));
    const auto wide = value.get<double>();
    if (std::abs(wide) > std::numeric_limits<std::int32_t>::max())
        place.Fail(
            fmt::format("is {}; expected at most {}", JsonText(value), std::numeric_limits<std::int32_t>::max()));
    return value.get<std::int32_t>();
}

bool FlagFrom(const json& value, const Place& place)
{
    if (!value.is_boolean())
        place.Fail(fmt::format("is {}; expected true or false", JsonText(value)));
    return value.get<bool>();
}

std::string TextFrom(const json& value, const Place& place)
{
    if (!value.is_string())
        place.Fail(fmt::format("is {}; expected a text", JsonText(value)));
    return value.get<std::string>();
}

std::vector<double> NumbersFrom(const json& value, const Place& place)
{
    if (!value.is_array())
        place.Fail(fmt::format("is {}; expected a list of numbers", JsonText(value)));
    std::vector<double> numbers;
    for (const json& each : value)
        numbers.push_back(RealFrom(each, place.Below(std::to_string(numbers.size()))));
    return numbers;
}

const json& ObjectFrom(const json& value, const Place& place)
{
    if (!value.is_object())
        place.Fail(fmt::format("is {}; expected an object", value.type_name()));
    return value;
}

std::filesystem::path FileFrom(const json& value, const Place& place)
{
    return PathOf(place.file).parent_path() / PathOf(TextFrom(value, place));
}

bool Has(const json& object, const char* key)
{
    return object.contains(key);
}

bool IsEnabled(const json& settings)
{
    return settings.value("enabled", true);
}

void ForEachMember(const json& object, const std::function<void(const std::string& name, const json& value)>& visit)
{
    for (const auto& [name, value] : object.items())
        visit(name, value);
}

void RefuseUnknownKey(const std::string& name, const std::vector<std::string>& known, const Place& place)
{
    place.Below(name).Fail<UnknownKeyFailure>(
        fmt::format("is not a known key; the nearest one is \"{}\"", Nearest(name, known)));
}

}  // namespace Tarnwick::DSO::Workbench

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/chain.h"
#include "workbench/failure.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/plumbing/wholefile.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

// A value is copied and printed level by level on the stack, which a file must not be able to use up.
json ParsedJson(std::string_view text, const std::string& name)
{
    constexpr int kDeepest = 32;  // a list of taps stands at 4
    const auto check = [&](int depth, json::parse_event_t, const json&) {
        if (depth > kDeepest)
            throw UsageFailure(fmt::format("{}: lists or objects are nested more than {} deep", name, kDeepest));
        return true;
    };
    try {
        return json::parse(text, check);
    } catch (const json::parse_error& failure) {
        const std::string_view before = text.substr(0, failure.byte > 0 ? failure.byte - 1 : 0);
        const std::size_t line = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')) + 1;
        const std::size_t column = before.size() - (line > 1 ? before.rfind('\n') : std::size_t(-1));
        throw UsageFailure(fmt::format("{}: line {}, column {}: is no JSON", name, line, column));
    } catch (const json::exception&) {
        throw UsageFailure(fmt::format("{}: holds a number that is too large", name));
    }
}

ChainFile ChainFileOf(json content, std::string name)
{
    return ChainFile(std::make_shared<const ChainJson>(ChainJson{std::move(content), std::move(name)}));
}

ChainFile::ChainFile(const std::filesystem::path& path)
{
    std::string text;
    try {
        text = ReadWholeFile(path);
    } catch (const DataFailure& failure) {  // a chain file is a setting, not data
        throw UsageFailure(failure.what());
    }
    *this = FromText(text, path.string());
}

ChainFile ChainFile::FromText(std::string_view text, std::string name)
{
    json content = ParsedJson(text, name);
    return ChainFileOf(std::move(content), std::move(name));
}

const std::string& ChainFile::Name() const
{
    return json_->name;
}

std::string ChainFile::Text() const
{
    return JsonText(json_->content, 2);
}

}  // namespace Tarnwick::DSO::Workbench

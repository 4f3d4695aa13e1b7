// Rows that say how the keys of a JSON object set the fields of a record, with unit and meaning for the reference.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "workbench/chainkeys.h"
#include "workbench/plumbing/place.h"

namespace Tarnwick::DSO::Workbench {

/// What a key does where its value is more than a number or a flag.
template <typename Owner>
struct Setter {
    void (*set)(Owner& owner, const nlohmann::json& value, const Place& place);
    const char* kind;  ///< of value, as the reference calls it
};

/// One key.
template <typename Owner>
struct Field {
    using Target = std::variant<double Owner::*, std::int32_t Owner::*, bool Owner::*, Setter<Owner>>;

    // Not an aggregate: g++ 12 cannot compile a default member value of `choices` in a template.
    Field(const char* fieldName, Target fieldTarget, const char* unitName, const char* text,
          const char* usual = nullptr, std::vector<std::string> names = {})
        : name(fieldName),
          target(fieldTarget),
          unit(unitName),
          meaning(text),
          defaultValue(usual),
          choices(std::move(names))
    {
    }

    const char* name;
    Target target;
    const char* unit;  ///< empty: none
    const char* meaning;
    const char* defaultValue;          ///< null: the value of a new record
    std::vector<std::string> choices;  ///< the texts that the key takes; empty: any
};

/// The names of a table's rows.
template <typename Rows>
std::vector<std::string> NamesOf(const Rows& rows)
{
    std::vector<std::string> names;
    names.reserve(std::size(rows));
    for (const auto& row : rows)
        names.emplace_back(row.name);
    return names;
}

/// The row of a table that a text names.
/// @throws UsageFailure  listing the names
template <typename Rows>
const auto& RowFrom(const Rows& rows, const nlohmann::json& value, const Place& place)
{
    const std::string name = TextFrom(value, place);
    const std::size_t count = std::size(rows);
    std::string expected;
    for (std::size_t k = 0; k < count; ++k) {
        if (name == rows[k].name)
            return rows[k];
        expected += fmt::format("{}{}", k == 0 ? "" : k + 1 < count ? ", " : " or ", rows[k].name);
    }
    place.Fail(fmt::format("is \"{}\"; expected {}", name, expected));
}

template <typename Owner>
void SetField(Owner& owner, const Field<Owner>& field, const nlohmann::json& value, const Place& place)
{
    std::visit(
        [&](auto target) {
            if constexpr (std::is_same_v<decltype(target), Setter<Owner>>)
                target.set(owner, value, place);
            else if constexpr (std::is_same_v<decltype(target), double Owner::*>)
                owner.*target = RealFrom(value, place);
            else if constexpr (std::is_same_v<decltype(target), bool Owner::*>)
                owner.*target = FlagFrom(value, place);
            else
                owner.*target = IntegerFrom(value, place);
        },
        field.target);
}

template <typename Owner>
const Field<Owner>* FindField(const std::vector<Field<Owner>>& fields, const std::string& name)
{
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const Field<Owner>& field) { return name == field.name; });
    return found == fields.end() ? nullptr : &*found;
}

template <typename Owner>
void AppendNames(const std::vector<Field<Owner>>& fields, std::vector<std::string>& names)
{
    for (const Field<Owner>& field : fields)
        names.emplace_back(field.name);
}

/// The row as the reference shows it.
/// @param record  a new one, for the default
template <typename Owner>
ChainKey KeyOf(const Field<Owner>& field, const Owner& record)
{
    ChainKey key{field.name, "", field.unit, "", field.meaning, field.choices};
    std::visit(
        [&](auto target) {
            if constexpr (std::is_same_v<decltype(target), Setter<Owner>>) {
                key.kind = target.kind;
            } else {
                using Value = std::remove_cv_t<std::remove_reference_t<decltype(record.*target)>>;
                key.kind = std::is_same_v<Value, double> ? "number"
                           : std::is_same_v<Value, bool> ? "true or false"
                                                         : "whole number";
                if constexpr (std::is_same_v<Value, double>)
                    key.defaultValue = fmt::format("{:.10g}", record.*target);
                else
                    key.defaultValue = fmt::format("{}", record.*target);
            }
        },
        field.target);
    if (field.defaultValue != nullptr)
        key.defaultValue = field.defaultValue;
    return key;
}

template <typename Owner>
std::vector<ChainKey> KeysOf(const std::vector<Field<Owner>>& fields, const Owner& record)
{
    std::vector<ChainKey> keys;
    keys.reserve(fields.size());
    for (const Field<Owner>& field : fields)
        keys.push_back(KeyOf(field, record));
    return keys;
}

}  // namespace Tarnwick::DSO::Workbench

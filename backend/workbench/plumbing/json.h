// JSON that reports are made of. The library behind it is templates alone: what calls it is compiled once, in json.cpp.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace Tarnwick::DSO::Workbench {

/// A value to be written: a number, a text, true or false, null, a list, or an object, whose members keep their order.
class Json {
public:
    struct Member;

    Json();  ///< null
    Json(std::nullptr_t) : Json() {}
    Json(bool value);
    Json(int value);
    Json(unsigned value);
    Json(long value);
    Json(unsigned long value);
    Json(long long value);
    Json(unsigned long long value);
    Json(double value);  ///< written as null when it is not finite
    Json(const char* text);
    Json(const std::string& text);
    Json(const std::optional<double>& value);  ///< null for none
    Json(const std::vector<double>& values);
    Json(const std::vector<std::string>& texts);
    Json(std::initializer_list<Member> members);  ///< an object
    explicit Json(const nlohmann::json& value);
    Json(const Json& other);
    Json(Json&& other) noexcept;
    Json& operator=(Json other) noexcept;
    ~Json();

    static Json List();
    static Json Object();
    /// Of text that this library wrote itself.
    static Json From(std::string_view text);

    bool IsNull() const;
    /// A member behind the others, or in the place of the one of that name.
    void Set(std::string_view name, Json value);
    /// All members of another object, each like Set.
    void SetAll(const Json& members);
    /// A value at the end of a list.
    void Add(Json value);

    /// @param indent  blanks a level; below 0: all in one line. Bytes that are not UTF-8 become U+FFFD.
    std::string Text(int indent = -1) const;
    /// The same with the members of every object in the order of their names, in one line.
    std::string SortedText() const;

private:
    explicit Json(std::unique_ptr<nlohmann::ordered_json> value);

    std::unique_ptr<nlohmann::ordered_json> value_;  // none of a value that was moved away
};

/// A member of an object, which takes the value.
struct Json::Member {
    std::string_view name;
    mutable Json value;
};

}  // namespace Tarnwick::DSO::Workbench

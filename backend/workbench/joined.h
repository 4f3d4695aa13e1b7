// Texts joined to one. The format library does this with templates, which every source that uses them compiles again.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Tarnwick::DSO::Workbench {

/// The texts with a separator between each two.
inline std::string Joined(std::span<const std::string> texts, std::string_view separator)
{
    std::string joined;
    for (const std::string& text : texts) {
        if (&text != texts.data())
            joined += separator;
        joined += text;
    }
    return joined;
}

}  // namespace Tarnwick::DSO::Workbench

// Texts as one. The format library does so by templates, which each source that asks it compiles anew.
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

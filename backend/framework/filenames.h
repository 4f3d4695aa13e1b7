// Names of files. A name that is text - of an argument, a key of a chain file, a parameter, a message - is UTF-8 on every
// system. Windows' own functions take UTF-16, and its functions of narrow text the code page of the process, which has few of
// the letters that names have: so text becomes a path here alone, and files are opened by paths. std::filesystem::path::string()
// of MinGW's library gives UTF-8 back.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace Tarnwick::DSO {

/// @param name  UTF-8. On Windows the bytes beyond ASCII of what is none become '?', which no file has in its name; elsewhere
///              any bytes are kept.
inline std::filesystem::path PathOf(std::string_view name)
{
#if defined(_WIN32)
    try {
        return std::u8string(name.begin(), name.end());
    } catch (const std::filesystem::filesystem_error&) {
        std::string plain(name);
        for (char& letter : plain)
            letter = static_cast<unsigned char>(letter) < 0x80 ? letter : '?';
        return plain;
    }
#else
    return std::u8string(name.begin(), name.end());
#endif
}

/// The last part of a path, for titles and messages.
inline std::string FileNameOf(std::string_view path)
{
    return PathOf(path).filename().string();
}

/// The path by which a file is opened, made, renamed or asked for its size. Windows' functions refuse paths of 260 letters and
/// more, folders of 248, unless they begin with \\?\ and are absolute, without . and .. and with backslashes alone.
/// Source: Windows documentation, "Naming Files, Paths, and Namespaces". Elsewhere, and of short paths, the path itself.
inline std::filesystem::path Openable(const std::filesystem::path& path)
{
#if defined(_WIN32)
    constexpr std::size_t kLongestFolder = 247;
    constexpr std::wstring_view kShare = L"\\\\";
    std::error_code error;
    const std::wstring whole = std::filesystem::absolute(path, error).make_preferred().native();
    if (error || whole.size() <= kLongestFolder || whole.starts_with(L"\\\\?\\") || whole.starts_with(L"\\\\.\\"))
        return path;
    return whole.starts_with(kShare) ? L"\\\\?\\UNC\\" + whole.substr(kShare.size()) : L"\\\\?\\" + whole;
#else
    return path;
#endif
}

}  // namespace Tarnwick::DSO

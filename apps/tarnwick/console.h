// What the program's surroundings differ in from system to system: whether line ends are translated, how consoles show text,
// which signals it has to do without, and how arguments come.
#pragma once

#if defined(_WIN32)
#include <string>
#include <vector>
#endif

namespace Tarnwick::App {

/// Makes the standard streams carry what is written, byte for byte, and consoles show it as UTF-8. A write beyond the limit of
/// a file's size fails afterwards, like one to a full disk, instead of ending the program.
void PrepareStreams();

#if defined(_WIN32)
/// Arguments of wmain as UTF-8; the system has put the names of files in place of wildcards.
class Utf8Arguments {
public:
    Utf8Arguments(int count, const wchar_t* const* arguments);
    const char* const* Get() const { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<const char*> pointers_;  // to the texts, and a null at the end
};
#endif

}  // namespace Tarnwick::App

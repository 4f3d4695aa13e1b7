// What the program's surroundings differ in from system to system: how its arguments and its text are coded, whether line
// ends are translated, and which signals it has to do without.
#pragma once

#include <string>
#include <vector>

namespace Tarnwick::App {

/// Makes the standard streams carry what is written, byte for byte, and consoles show it as UTF-8. A write beyond the limit of
/// a file's size fails afterwards, like one to a full disk, instead of ending the program.
void PrepareStreams();

/// The program's arguments in UTF-8, its name first. Windows hands main a translation into a code page in which many names of
/// files cannot be written, so that they are asked for anew there.
std::vector<std::string> ArgumentsAsUtf8(int count, const char* const* arguments);

}  // namespace Tarnwick::App

// What the program's surroundings differ in from system to system: whether line ends are translated, how consoles show text,
// and which signals it has to do without. Arguments need nothing: on Windows the manifest makes UTF-8 the code page of main's
// arguments and of the names of files alike.
#pragma once

namespace Tarnwick::App {

/// Makes the standard streams carry what is written, byte for byte, and consoles show it as UTF-8. A write beyond the limit of
/// a file's size fails afterwards, like one to a full disk, instead of ending the program.
void PrepareStreams();

}  // namespace Tarnwick::App

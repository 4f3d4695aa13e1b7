// How the program has its memory from the system: on large pages, of which Linux has to be asked for each block.
#pragma once

namespace Tarnwick::App {

/// Has large blocks go back to the system when they are freed, so that what the program holds at its peak is what it uses.
/// To be called before anything large is allocated.
void PrepareMemory();

}  // namespace Tarnwick::App

#include "printing.h"

#include <fmt/format.h>

namespace Tarnwick::App {

void PrintRow(int width, const std::string& name, const std::string& value)
{
    fmt::print("{:<{}} {}\n", name, width, value);
}

}  // namespace Tarnwick::App

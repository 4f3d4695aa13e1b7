// tarnwick presets: the settings that the CTLE knows by number.
#include <memory>

#include <fmt/format.h>

#include "commands/commands.h"
#include "outputs.h"
#include "workbench/ctlepresets.h"

namespace Tarnwick::App {

void AddPresets(const CommandLine& command)
{
    auto asJson = std::make_shared<bool>(false);
    command.AddFlag("--json", *asJson, "Print the presets as JSON");
    command.Footer(
        "The first column is the filter's \"gain\" in a chain file:\n"
        "  {\"type\": \"ctle\", \"ctleType\": \"ieee802.3bs\", \"gain\": 4.5}\n");
    command.OnRun(
        [asJson] { PrintReport(*asJson ? DSO::Workbench::PresetsAsJson() + "\n" : DSO::Workbench::PresetsAsText()); });
}

}  // namespace Tarnwick::App

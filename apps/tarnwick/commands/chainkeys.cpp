// tarnwick chain-keys: every key of a chain file.
#include "workbench/chainkeys.h"

#include <memory>
#include <string>

#include <fmt/format.h>

#include "commands/commands.h"
#include "outputs.h"

namespace Tarnwick::App {

void AddChainKeys(CLI::App& command)
{
    using Print = std::string (*)();
    auto print = std::make_shared<Print>(&DSO::Workbench::ChainKeysAsText);
    const auto add = [&](const char* name, const char* help, Print format) {
        return command.add_flag_callback(
            name, [print, format] { *print = format; }, help);
    };
    CLI::Option* markdown =
        add("--markdown", "As the tables of a Markdown document", &DSO::Workbench::ChainKeysAsMarkdown);
    CLI::Option* json = add("--json", "As JSON", &DSO::Workbench::ChainKeysAsJson);
    CLI::Option* dictionary = add("--dictionary", "As a fuzzer's dictionary", &DSO::Workbench::ChainKeysAsDictionary);
    markdown->excludes(json)->excludes(dictionary);
    json->excludes(dictionary);
    command.callback([print] { PrintReport((*print)()); });
}

}  // namespace Tarnwick::App

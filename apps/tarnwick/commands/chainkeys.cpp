// tarnwick chain-keys: every key of a chain file.
#include "workbench/chainkeys.h"

#include <memory>
#include <string>

#include <fmt/format.h>

#include "commands/commands.h"
#include "outputs.h"

namespace Tarnwick::App {

void AddChainKeys(const CommandLine& command)
{
    using Print = std::string (*)();
    auto print = std::make_shared<Print>(&DSO::Workbench::ChainKeysAsText);
    const auto add = [&](const char* name, const char* help, Print format) {
        return command.AddFlag(
            name, [print, format] { *print = format; }, help);
    };
    const Option markdown =
        add("--markdown", "As the tables of a Markdown document", &DSO::Workbench::ChainKeysAsMarkdown);
    const Option json = add("--json", "As JSON", &DSO::Workbench::ChainKeysAsJson);
    const Option dictionary = add("--dictionary", "As a fuzzer's dictionary", &DSO::Workbench::ChainKeysAsDictionary);
    markdown.Excludes(json).Excludes(dictionary);
    json.Excludes(dictionary);
    command.OnRun([print] { PrintReport((*print)()); });
}

}  // namespace Tarnwick::App

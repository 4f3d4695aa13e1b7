// Every key that a chain file may have, with unit, default and meaning: the rows by which chain files are read.
#pragma once

#include <string>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct ChainKey {
    std::string name;  ///< as in the file
    std::string kind;  ///< number, whole number, true or false, text, file, list ...
    std::string unit;  ///< empty: none
    std::string
        defaultValue;  ///< what counts when the key is left out; empty: nothing, the key is needed where it is used
    std::string meaning;
    std::vector<std::string> choices;  ///< the texts that the key takes; empty: any
};

/// The keys that stand together in a chain file.
struct ChainKeyGroup {
    std::string name;  ///< "device", "every filter" or the type of a filter
    std::string meaning;
    bool isFilter = false;  ///< the name is a filter's type
    std::vector<ChainKey> keys;
};

/// The device, what every filter takes, then a group a filter type.
TARNWICK_WORKBENCH_API std::vector<ChainKeyGroup> ChainKeys();

/// The keys of a filter that name files. Empty also for a type that no filter has.
TARNWICK_WORKBENCH_API std::vector<std::string> FileKeysOf(const std::string& type);

/// The keys as text for a terminal, as tables of a Markdown document, as JSON, and as a fuzzer's dictionary.
TARNWICK_WORKBENCH_API std::string ChainKeysAsText();
TARNWICK_WORKBENCH_API std::string ChainKeysAsMarkdown();
TARNWICK_WORKBENCH_API std::string ChainKeysAsJson();
TARNWICK_WORKBENCH_API std::string ChainKeysAsDictionary();

}  // namespace Tarnwick::DSO::Workbench

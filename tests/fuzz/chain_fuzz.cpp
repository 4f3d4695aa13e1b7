// A chain file of any text, from parsing to the last filter on a small record. Files that it names stand for one of a few
// in a folder of our own: nothing else is opened.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "fixtures.h"
#include "workbench/chain.h"
#include "workbench/chaininput.h"
#include "workbench/failure.h"
#include "workbench/run.h"

namespace {

using namespace Tarnwick;
using namespace Tarnwick::DSO::Workbench;

constexpr std::size_t kSamples = 256;

// The texts that the host takes for names of files become names of ours.
void KeepInside(nlohmann::json& chain)
{
    if (!chain.is_object() || !chain.contains("filters") || !chain["filters"].is_array())
        return;
    for (nlohmann::json& settings : chain["filters"])
        for (const char* key : {"sparamFileName", "channelResponse", "channelReference"})
            if (settings.is_object() && settings.contains(key) && settings[key].is_string())
                settings[key] = Fuzz::NameOfFixture(settings[key].get_ref<const std::string&>());
}

std::vector<double> Record()
{
    std::vector<double> samples(kSamples);
    for (std::size_t k = 0; k < kSamples; ++k)
        samples[k] = std::sin(0.7 * static_cast<double>(k)) + static_cast<double>(k / 8 * 5 % 7 % 4);
    return samples;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Fuzz::Fixtures fixtures;
    try {
        const ChainFile read = ChainFile::FromText({reinterpret_cast<const char*>(data), size}, "chain.json");
        nlohmann::json content = nlohmann::json::parse(read.Text());
        KeepInside(content);
        // A record of garbage has no period: every other one is said to have one, or filters would see single shots alone.
        if (size % 2 == 0 && content.is_object() && content.contains("device") && content["device"].is_object())
            content["device"].emplace("record", "periodic");
        const ChainFile file = ChainFile::FromText(content.dump(), (fixtures.Folder() / "chain.json").string());
        const ChainInput input = InputFor(file, {.samples = Record()}, {}, "capture");
        Chain chain(input.chain, input.samples.size());
        const ChainResult result = RunChain(chain, input.samples, input.eyes, "capture");
        if (result.samples.size() != input.samples.size() || result.valid.count == 0 ||
            result.valid.first + result.valid.count > result.samples.size())
            std::abort();
        for (const StageReport& stage : result.stages)
            if (!stage.findings.empty() && !nlohmann::json::parse(stage.findings).is_object())
                std::abort();
    } catch (const UsageFailure&) {  // NOLINT(bugprone-empty-catch): a refusal is an answer
    } catch (const DataFailure&) {   // NOLINT(bugprone-empty-catch)
    }
    return 0;
}

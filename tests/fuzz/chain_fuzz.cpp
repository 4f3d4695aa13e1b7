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
#include "workbench/failure.h"
#include "workbench/run.h"

namespace {

using namespace Tarnwick;

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
        nlohmann::json file = App::ParseChain({reinterpret_cast<const char*>(data), size}, "chain.json");
        KeepInside(file);
        std::vector<double> samples = Record();
        App::Chain chain(file, (fixtures.Folder() / "chain.json").string(), kSamples);
        for (App::Stage& stage : chain.Stages()) {
            samples = App::RunStage(stage, samples, "chain.json", "capture");
            if (samples.size() != kSamples)
                std::abort();
            if (stage.found)
                (void)stage.found(samples).dump();
        }
    } catch (const App::UsageFailure&) {  // NOLINT(bugprone-empty-catch): a refusal is an answer
    } catch (const App::DataFailure&) {   // NOLINT(bugprone-empty-catch)
    }
    return 0;
}

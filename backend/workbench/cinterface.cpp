// The C interface: checks what C callers can get wrong, turns failures into codes, and leaves all else to Chain.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "framework/filenames.h"
#include "workbench/chain.h"
#include "workbench/failure.h"
#include "workbench/run.h"
#include "workbench/tarnwick.h"

namespace Workbench = Tarnwick::DSO::Workbench;

struct tarnwick_chain {
    tarnwick_chain(const Workbench::ChainFile& file, std::size_t count) : chain(file, count), sampleCount(count) {}

    std::mutex busy;
    Workbench::Chain chain;
    std::size_t sampleCount;
    std::vector<double> record;         // [V] as it was applied last; empty: nothing was
    std::optional<std::string> report;  // of that record, once it was asked for
};

namespace {

constexpr const char* kSamples = "samples";  // stands for the capture's name in messages
constexpr const char* kNoMemory = "there is not enough memory for this";

thread_local std::string failureText;
thread_local const char* lastError = "";

struct BadArgument : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

int Failed(int code, const char* text) noexcept
{
    try {
        failureText = text;
        lastError = failureText.c_str();
    } catch (const std::bad_alloc&) {
        lastError = kNoMemory;
    }
    return code;
}

template <typename Action>
int CodeOf(const Action& action) noexcept
{
    try {
        action();
        lastError = "";
        return TARNWICK_OK;
    } catch (const BadArgument& failure) {
        return Failed(TARNWICK_BAD_ARGUMENT, failure.what());
    } catch (const Workbench::UsageFailure& failure) {
        return Failed(TARNWICK_BAD_CHAIN, failure.what());
    } catch (const Workbench::DataFailure& failure) {
        return Failed(TARNWICK_BAD_DATA, failure.what());
    } catch (const std::bad_alloc&) {
        return Failed(TARNWICK_NO_MEMORY, kNoMemory);
    } catch (const std::exception& failure) {
        return Failed(TARNWICK_INTERNAL, failure.what());
    } catch (...) {
        return Failed(TARNWICK_INTERNAL, "an exception of an unknown type");
    }
}

void RequireGiven(const void* pointer, const char* function, const char* name)
{
    if (pointer == nullptr)
        throw BadArgument(fmt::format("{}: {} is null", function, name));
}

// As RunChain, but that nothing is measured, which takes longer than most filters do.
std::vector<double> Filtered(Workbench::Chain& chain, std::vector<double> record)
{
    Workbench::PassingRecord passing{.samples = std::move(record)};
    for (Workbench::Stage& stage : chain.Stages())
        PassStage(stage, passing, chain, kSamples);
    return std::move(passing.samples);
}

}  // namespace

const char* tarnwick_version(void)  // NOLINT(modernize-redundant-void-arg): as C declares it
{
    return TARNWICK_VERSION;
}

int tarnwick_chain_create(const char* chain_json, const char* base_folder, size_t sample_count, tarnwick_chain** chain)
{
    constexpr const char* kFunction = "tarnwick_chain_create";
    constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
    if (chain != nullptr)
        *chain = nullptr;
    return CodeOf([&] {
        RequireGiven(chain, kFunction, "chain");
        RequireGiven(chain_json, kFunction, "chain_json");
        if (sample_count == 0 || sample_count > kMost)
            throw BadArgument(fmt::format("{}: sample_count is {}; expected 1 to {}", kFunction, sample_count, kMost));
        const std::filesystem::path folder = Tarnwick::DSO::PathOf(base_folder != nullptr ? base_folder : "");
        const auto file = Workbench::ChainFile::FromText(chain_json, (folder / "chain_json").string());
        *chain = new tarnwick_chain(file, sample_count);  // NOLINT(cppcoreguidelines-owning-memory): C owns it
    });
}

int tarnwick_chain_apply(tarnwick_chain* chain, const double* samples, double* result, size_t sample_count)
{
    constexpr const char* kFunction = "tarnwick_chain_apply";
    return CodeOf([&] {
        RequireGiven(chain, kFunction, "chain");
        RequireGiven(samples, kFunction, kSamples);
        RequireGiven(result, kFunction, "result");
        if (sample_count != chain->sampleCount)
            throw BadArgument(fmt::format("{}: sample_count is {}; expected {}, as the chain was created for",
                                          kFunction, sample_count, chain->sampleCount));
        const std::lock_guard turn(chain->busy);
        std::vector<double> record(samples, samples + sample_count);
        const std::vector<double> filtered = Filtered(chain->chain, record);
        chain->record = std::move(record);
        chain->report.reset();
        std::copy(filtered.begin(), filtered.end(), result);
    });
}

int tarnwick_chain_report(tarnwick_chain* chain, char* json, size_t capacity, size_t* needed)
{
    constexpr const char* kFunction = "tarnwick_chain_report";
    return CodeOf([&] {
        RequireGiven(chain, kFunction, "chain");
        if (json == nullptr) {
            RequireGiven(needed, kFunction, "json, with needed,");
            if (capacity > 0)
                throw BadArgument(fmt::format("{}: json is null; expected {} bytes of capacity", kFunction, capacity));
        }
        const std::lock_guard turn(chain->busy);
        if (chain->record.empty())
            throw BadArgument(
                fmt::format("{}: chain has no record yet; expected tarnwick_chain_apply before", kFunction));
        if (!chain->report)
            chain->report = ReportAsJson(RunChain(chain->chain, chain->record, kSamples).stages);
        const std::size_t size = chain->report->size() + 1;
        if (needed != nullptr)
            *needed = size;
        if (json == nullptr)
            return;
        if (capacity < size)
            throw BadArgument(fmt::format("{}: capacity is {}; expected at least {}", kFunction, capacity, size));
        std::copy_n(chain->report->c_str(), size, json);
    });
}

void tarnwick_chain_destroy(tarnwick_chain* chain)
{
    delete chain;  // NOLINT(cppcoreguidelines-owning-memory): C owns it
}

const char* tarnwick_last_error(void)  // NOLINT(modernize-redundant-void-arg): as C declares it
{
    return lastError;
}

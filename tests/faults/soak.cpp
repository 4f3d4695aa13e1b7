// All filters over and over with changing settings: results stay the same bit for bit, and the process does not grow.
//     tarnwick_soak [--cycles N | --seconds S]
// A cycle is one setting of a fixed list for every filter: changed, prepared, applied, copied, and remade now and then.
// Exit status: 0 all held, 1 something did not (named on stderr), 2 wrong usage.
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#if defined(__linux__)
#include <unistd.h>
#endif

#include "faults/everyfilter.h"
#include "support/expectations.h"

namespace {

using namespace Tarnwick::Testing;
using Tarnwick::DSO::Filters::Filtered;

constexpr long kDefaultCycles = 10000;
// Every setting has come up five times by then: plans, log and the heap's arenas have their size.
constexpr long kSettled = 100;
// What the heap's arenas may still gain: blocks of changing sizes are not placed alike each time, which has made runs
// differ by up to 1.4 MiB. A kernel of the shortest record (1 KiB) that one filter loses each cycle comes to more than this in 4200
// cycles.
constexpr long kAllowanceKib = 4096;
// Lengths of 124 to 403 samples: more of them than the library keeps transform plans for.
constexpr int kSamplesPerUiChoices[] = {4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
constexpr long kChoices = sizeof(kSamplesPerUiChoices) / sizeof(*kSamplesPerUiChoices);
constexpr long kSettings = 2 * kChoices;
constexpr long kRemakeEvery = 7;  // shares no factor with the settings: each is remade in its turn

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
constexpr bool kIsSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

// Resident memory of this process; nothing where the system does not say.
std::optional<long> ResidentKib()
{
#if defined(__linux__)
    long size = 0;
    long resident = 0;
    if (std::ifstream("/proc/self/statm") >> size >> resident)
        return resident * (sysconf(_SC_PAGESIZE) / 1024);
#endif
    return std::nullopt;
}

// One kind of filter at every length, and what each setting gave at first.
class Subject {
public:
    explicit Subject(const FilterKind& kind) : kind_(kind), rigs_(kChoices), first_(kSettings) {}

    /// @return whether the results are those of the first time
    bool Run(long cycle)
    {
        const long setting = cycle % kSettings;
        const bool other = setting >= kChoices;
        const auto choice = static_cast<std::size_t>(setting % kChoices);
        std::unique_ptr<Rig>& rig = rigs_[choice];
        if (!rig || cycle % kRemakeEvery == 0)
            rig = kind_.make(kSamplesPerUiChoices[choice]);
        rig->Change(other);
        const std::vector<double>& samples = other ? rig->second : rig->first;
        const std::vector<double> result = rig->Apply(samples);
        const auto copy = rig->CopyOf(rig->Filter());
        const bool isCopied = HaveSameBits(Filtered(*copy, samples), result);
        std::vector<double>& first = first_[static_cast<std::size_t>(setting)];
        if (first.empty())
            first = result;
        return isCopied && result.size() == samples.size() && HaveSameBits(result, first);
    }
    const char* Name() const { return kind_.name.c_str(); }

private:
    const FilterKind& kind_;
    std::vector<std::unique_ptr<Rig>> rigs_;
    std::vector<std::vector<double>> first_;
};

struct Options {
    long cycles = kDefaultCycles;
    std::optional<long> seconds;
};

std::optional<Options> OptionsFrom(int argc, char** argv)
{
    Options options;
    if (argc == 1)
        return options;
    if (argc != 3)
        return std::nullopt;
    const std::string_view name = argv[1];
    const std::string_view value = argv[2];
    long number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < 1)
        return std::nullopt;
    if (name == "--cycles")
        options.cycles = number;
    else if (name == "--seconds")
        options.seconds = number;
    else
        return std::nullopt;
    return options;
}

bool IsFlat(std::optional<long> settled, std::optional<long> atEnd)
{
    if (!settled || !atEnd) {
        std::printf("resident memory: not checked (%s)\n",
                    atEnd ? "the run ended before it had settled" : "this system does not tell it");
        return true;
    }
    std::printf("resident memory: %ld KiB after %ld cycles, %ld KiB at the end\n", *settled, kSettled, *atEnd);
    if (kIsSanitized) {
        std::printf("resident memory: not checked (a sanitizer keeps released blocks)\n");
        return true;
    }
    if (*atEnd - *settled <= kAllowanceKib)
        return true;
    (void)std::fprintf(stderr, "tarnwick_soak: resident memory grew by %ld KiB; expected at most %ld KiB\n",
                       *atEnd - *settled, kAllowanceKib);
    return false;
}

int Soak(const Options& options)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    std::vector<Subject> subjects(EveryFilter().begin(), EveryFilter().end());
    std::optional<long> settled;
    long cycle = 0;
    while (options.seconds ? elapsed() < static_cast<double>(*options.seconds) : cycle < options.cycles) {
        for (Subject& subject : subjects) {
            if (!subject.Run(cycle)) {
                (void)std::fprintf(stderr, "tarnwick_soak: %s, cycle %ld: other results than at first\n",
                                   subject.Name(), cycle);
                return 1;
            }
        }
        if (++cycle == kSettled)
            settled = ResidentKib();
    }
    std::printf("%ld cycles of %zu filters, %ld settings each, in %.1f s\n", cycle, subjects.size(), kSettings,
                elapsed());
    return IsFlat(settled, ResidentKib()) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::optional<Options> options = OptionsFrom(argc, argv);
    if (!options) {
        (void)std::fprintf(stderr, "usage: tarnwick_soak [--cycles N | --seconds S]\n");
        return 2;
    }
    try {
        return Soak(*options);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "tarnwick_soak: %s\n", error.what());
        return 1;
    }
}

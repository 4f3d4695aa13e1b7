#include "maths/captures/pulseresponse.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "maths/captures/symbolresponse.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kCursorSearch = 2;  // [UI] to either side: eyes are measured up to a UI off their symbol's centre
constexpr SymbolSpan kFitted{kPulseUiAfter + kCursorSearch, kPulseUiBefore + kCursorSearch};
constexpr std::size_t kUnknowns = kFitted.Count() + 1;
constexpr std::size_t kMostUi = std::size_t{1} << 17U;  // that are fitted: less than 1 % of their noise is left
constexpr double kFewestPhases = 8.0;                   // a UI; fewer look like corners
constexpr double kMostPhases = 64.0;
constexpr double kOtherPhases = 32.0;

SymbolRange Common(SymbolRange one, SymbolRange other)
{
    const std::size_t first = std::max(one.first, other.first);
    const std::size_t end = std::min(one.first + one.count, other.first + other.count);
    return {first, end > first ? end - first : 0};
}

// The UI whose neighbours are known.
SymbolRange WithKnownSpan(const AlignedSymbols& symbols, Wrapping wrapping)
{
    const SymbolRange known = symbols.known;
    constexpr std::size_t kEnds = kFitted.before + kFitted.after;
    if (wrapping == Wrapping::Circular)
        return known;
    return {known.first + kFitted.before, known.count > kEnds ? known.count - kEnds : 0};
}

// From the earliest time that was fitted to the latest; nothing when the symbols cannot be told apart.
std::optional<PulseResponse> WholeFit(const PulseRecord& pulse, const SymbolFit& fit)
{
    const std::size_t phases = PulsePhases(pulse.record.samplesPerUi);
    PulseResponse response{std::vector<double>(kFitted.Count() * phases)};
    const double step = pulse.record.samplesPerUi / static_cast<double>(phases);
    double power = 0.0;
    for (std::size_t p = 0; p < phases; ++p) {
        const PhaseValues phase = ValuesAt(pulse.record, pulse.position + static_cast<double>(p) * step);
        const SymbolResponse found = fit.Of(phase.values, 1);
        if (found.unknowns < kUnknowns)
            return std::nullopt;
        // The symbol after the UI meets it before its own cursor.
        for (std::size_t j = 0; j < kFitted.Count(); ++j)
            response.values[(kFitted.Count() - 1 - j) * phases + p] = found.taps[j];
        power += found.residualRms.front() * found.residualRms.front();
    }
    response.residualRms = std::sqrt(power / static_cast<double>(phases));
    return response;
}

// Index of the cursor in a whole fit.
std::size_t CursorOf(const PulseResponse& whole, std::size_t phases)
{
    std::size_t cursor = kPulseUiBefore * phases;
    for (std::size_t ui = kPulseUiBefore; ui <= kPulseUiBefore + 2 * kCursorSearch; ++ui)
        if (std::abs(whole.values[ui * phases]) > std::abs(whole.values[cursor]))
            cursor = ui * phases;
    return cursor;
}

}  // namespace

std::size_t PulsePhases(double samplesPerUi)
{
    const bool isOwn =
        samplesPerUi == std::floor(samplesPerUi) && samplesPerUi >= kFewestPhases && samplesPerUi <= kMostPhases;
    return static_cast<std::size_t>(isOwn ? samplesPerUi : kOtherPhases);
}

std::optional<std::vector<PulseResponse>> FitPulseResponses(std::span<const PulseRecord> records,
                                                            const AlignedSymbols& symbols)
{
    const EyeRecord& first = records.front().record;
    const std::size_t phases = PulsePhases(first.samplesPerUi);
    const double lastPhase = first.samplesPerUi * (1.0 - 1.0 / static_cast<double>(phases));
    SymbolRange range = WithKnownSpan(symbols, first.wrapping);
    for (const PulseRecord& each : records)
        range = Common(range, ValidUi(each.record, each.position, lastPhase));
    range.count = std::min(range.count, kMostUi);
    if (range.count < 2 * kUnknowns)
        return std::nullopt;
    std::vector<double> sent(symbols.levels.begin(), symbols.levels.end());
    for (double& level : sent)
        level /= first.levelCount - 1;
    const SymbolFit fit(sent, kFitted, first.wrapping, range);

    std::vector<PulseResponse> responses;
    for (const PulseRecord& each : records) {
        std::optional<PulseResponse> whole = WholeFit(each, fit);
        if (!whole)
            return std::nullopt;
        responses.push_back(std::move(*whole));
    }
    const auto begin = static_cast<std::ptrdiff_t>(CursorOf(responses.front(), phases) - kPulseUiBefore * phases);
    const auto count = static_cast<std::ptrdiff_t>((kPulseUiBefore + kPulseUiAfter) * phases + 1);
    for (PulseResponse& response : responses)
        response.values = {response.values.begin() + begin, response.values.begin() + begin + count};
    return responses;
}

}  // namespace Tarnwick::DSO::Maths

#include "maths/captures/patternperiod.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

#include "maths/captures/codingdecision.h"
#include "maths/transforms/alignedbuffer.h"
#include "maths/transforms/factors.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr double kMostNoise = 3.0;          // times the noise that waveforms a period apart differ by
constexpr double kSmallestNoise = 1e-3;     // of the span of the samples: what no fit of a clean record resolves
constexpr std::size_t kMostStretches = 9;   // that the noise is measured on
constexpr std::size_t kLeastStretch = 512;  // [symbols]
constexpr std::size_t kMostStretch = 2048;  // [symbols]
// Between the steps a period apart: one symbol in 100 wrong leaves 0.98 of NRZ and 0.96 of PAM4, and 0.8 of NRZ with a step in only
// one of 20 symbols. A period and its multiples correlate alike.
constexpr double kLeastCorrelation = 0.8;
constexpr double kEqualCorrelations = 0.05;
constexpr std::size_t kMostComparisons = 64;  // in records: what agrees nearly everywhere nearly everywhere is given up

constexpr std::size_t kFewestChecks = 64;  // 8 polynomials in 16 guises come by chance once in 2^57 records
constexpr std::size_t kScreenedSymbols = 8192;
constexpr double kMostFailing = 0.01;
constexpr double kMostFailingOfChance = 0.02;

// sum_i d_i d_(i+t) for t = 0 .. most, d the steps from symbol to symbol.
std::vector<double> StepCorrelation(std::span<const int> symbols, std::size_t most)
{
    const std::size_t steps = symbols.size() - 1;
    const std::size_t length = QuickEvenLength(steps + most);
    AlignedBuffer<double> values(length);
    AlignedBuffer<Complex> bins(length / 2 + 1);
    for (std::size_t i = 0; i < steps; ++i)
        values.Data()[i] = symbols[i + 1] - symbols[i];
    std::fill(values.Data() + steps, values.Data() + length, 0.0);
    const auto transform = RealTransform::Of(length);
    transform->Forward(values.Data(), bins.Data());
    for (std::size_t k = 0; k <= length / 2; ++k)
        bins.Data()[k] = std::norm(bins.Data()[k]) / static_cast<double>(length);
    transform->Inverse(bins.Data(), values.Data());
    return {values.Data(), values.Data() + most + 1};
}

// The lags at which the steps correlate like those of a period, shortest first.
std::vector<std::size_t> LikelyPeriods(std::span<const int> symbols, std::size_t most)
{
    std::vector<double> correlation = StepCorrelation(symbols, most);
    const auto power = [symbols](std::size_t i) {
        const double step = symbols[i + 1] - symbols[i];
        return step * step;
    };
    const std::size_t steps = symbols.size() - 1;
    double head = correlation[0];  // of the steps that have another one t later
    double tail = correlation[0];  // of those other ones
    correlation[0] = 0.0;
    for (std::size_t t = 1; t <= most; ++t) {
        head -= power(steps - t);
        tail -= power(t - 1);
        // Whole numbers but for the rounding of the transforms.
        correlation[t] = head + tail > 0.5 ? 2.0 * correlation[t] / (head + tail) : 0.0;
    }
    const double largest = *std::max_element(correlation.begin(), correlation.end());
    const double least = std::max(kLeastCorrelation, largest - kEqualCorrelations);
    std::vector<std::size_t> likely;
    for (std::size_t t = 1; t <= most; ++t)
        if (correlation[t] >= least)
            likely.push_back(t);
    return likely;
}

struct Comparison {
    std::size_t compared;
    std::size_t differing;
};

// Symbols a period apart, until more than `enough` of them differ.
Comparison Compare(std::span<const int> symbols, std::size_t period, std::size_t enough)
{
    Comparison result{0, 0};
    for (std::size_t i = period; i < symbols.size() && result.differing <= enough; ++i) {
        ++result.compared;
        result.differing += symbols[i] != symbols[i - period] ? 1 : 0;
    }
    return result;
}

double DifferenceRms(std::span<const double> samples, std::size_t lag)
{
    double squares = 0.0;
    for (std::size_t m = lag; m < samples.size(); ++m)
        squares += (samples[m] - samples[m - lag]) * (samples[m] - samples[m - lag]);
    return std::sqrt(squares / static_cast<double>(samples.size() - lag));
}

// What the symbols leave unexplained of some UI; nothing where they are too few to say.
std::optional<double> UnexplainedRms(const CapturedSymbols& capture, SymbolRange range)
{
    const auto first = capture.symbols.begin() + static_cast<std::ptrdiff_t>(range.first);
    const std::vector<double> levels(first, first + static_cast<std::ptrdiff_t>(range.count));
    const SymbolRange fitted = WithWholeSpan({0, range.count}, range.count, SymbolSpan(), Wrapping::None);
    const SymbolResponse response = FitSymbolResponse(capture.samples.subspan(range.first * capture.samplesPerUi),
                                                      capture.samplesPerUi, levels, {}, Wrapping::None, fitted);
    if (fitted.count <= 2 * response.unknowns)
        return std::nullopt;
    double squares = 0.0;
    for (const double rms : response.residualRms)
        squares += rms * rms;
    const double share = static_cast<double>(response.unknowns) / static_cast<double>(fitted.count);
    return std::sqrt(squares / static_cast<double>(capture.samplesPerUi) / (1.0 - share));
}

// The median of stretches from all over the record, each with a fit of its own: a step of the offset or a gap is in none of
// them, and counts as a difference of the waveforms, not as noise.
double NoiseRms(const CapturedSymbols& capture)
{
    const auto [lowest, highest] = std::minmax_element(capture.samples.begin(), capture.samples.end());
    const std::size_t stretches = std::clamp<std::size_t>(capture.certain.count / kLeastStretch, 1, kMostStretches);
    const std::size_t length = std::min(capture.certain.count / stretches, kMostStretch);
    std::vector<double> rms;
    for (std::size_t k = 0; k < stretches; ++k) {
        const std::size_t first = stretches > 1 ? k * (capture.certain.count - length) / (stretches - 1) : 0;
        if (const auto noise = UnexplainedRms(capture, {capture.certain.first + first, length}))
            rms.push_back(*noise);
    }
    std::sort(rms.begin(), rms.end());
    return std::max(kSmallestNoise * (*highest - *lowest), rms.empty() ? 0.0 : rms[rms.size() / 2]);
}

std::span<const int> CertainSymbols(const CapturedSymbols& capture)
{
    return capture.symbols.subspan(capture.certain.first, capture.certain.count);
}

std::span<const double> WholeUis(const CapturedSymbols& capture)
{
    return capture.samples.first(capture.symbols.size() * capture.samplesPerUi);
}

// The bits of pairs, or of NRZ.
struct BitMap {
    bool isOfBitPairs;
    SymbolMap map;
    bool highBitFirst;
    bool inverted;
};

constexpr std::array<BitMap, 1> kNrzMaps = {{{false, SymbolMap::Level, true, false}}};
// Without Gray coding inverted levels are complemented bits, which the recursion tells.
constexpr std::array<BitMap, 6> kPairMaps = {{{true, SymbolMap::Gray, true, false},
                                              {true, SymbolMap::Gray, true, true},
                                              {true, SymbolMap::Level, true, false},
                                              {true, SymbolMap::Gray, false, false},
                                              {true, SymbolMap::Gray, false, true},
                                              {true, SymbolMap::Level, false, false}}};

std::vector<std::uint8_t> BitsOf(std::span<const int> symbols, const BitMap& map)
{
    if (!map.isOfBitPairs)
        return {symbols.begin(), symbols.end()};
    std::vector<std::uint8_t> bits;
    bits.reserve(2 * symbols.size());
    for (const int symbol : symbols) {
        const auto level = static_cast<unsigned>(map.inverted ? 3 - symbol : symbol);
        const unsigned pair = map.map == SymbolMap::Gray ? level ^ (level >> 1U) : level;
        const unsigned high = pair >> 1U;
        const unsigned low = pair & 1U;
        bits.push_back(static_cast<std::uint8_t>(map.highBitFirst ? high : low));
        bits.push_back(static_cast<std::uint8_t>(map.highBitFirst ? low : high));
    }
    return bits;
}

// Checks that fail, and whether nearly all do: every polynomial has an odd number of terms with the bit checked, so that
// bits all complemented fail each of them.
struct Checked {
    std::size_t checks;
    std::size_t failing;
    bool complemented;
};

// Nothing where the bits are not of the polynomial.
std::optional<Checked> Check(const PrbsPolynomial& polynomial, std::span<const std::uint8_t> bits)
{
    const auto order = static_cast<std::size_t>(polynomial.order);
    if (bits.size() < order + kFewestChecks)
        return std::nullopt;
    const std::size_t count = bits.size() - order;
    const std::size_t failing = FailingChecks(polynomial, bits, order, bits.size());
    // By chance as many fail as have an odd number of ones among so many bits.
    const double ones = std::accumulate(bits.begin(), bits.end(), 0.0);
    const double bias = 1.0 - 2.0 * ones / static_cast<double>(bits.size());
    const auto terms =
        1 + std::count_if(polynomial.taps.begin(), polynomial.taps.end(), [](int tap) { return tap > 0; });
    const double byChance = 0.5 * (1.0 - std::pow(std::abs(bias), static_cast<double>(terms)));

    const Checked checked{count, std::min(failing, count - failing), failing > count / 2};
    const double share = static_cast<double>(checked.failing) / static_cast<double>(count);
    return share < kMostFailing && share < kMostFailingOfChance * byChance ? std::optional(checked) : std::nullopt;
}

}  // namespace

bool Repetition::Holds() const
{
    return agreement >= kLeastAgreement && differenceRms < kMostNoise * noiseRms;
}

Repetition FindPeriod(const CapturedSymbols& capture)
{
    const std::span<const int> symbols = CertainSymbols(capture);
    const std::size_t most =
        std::min(capture.symbols.size() / 2, symbols.size() - std::min<std::size_t>(2, symbols.size()));
    if (most < 1)
        return {};
    double noise = 0.0;  // measured when it is needed
    std::size_t compared = 0;
    for (const std::size_t period : LikelyPeriods(symbols, most)) {
        const std::size_t count = symbols.size() - period;
        const auto allowed = static_cast<std::size_t>((1.0 - kLeastAgreement) * static_cast<double>(count));
        const Comparison comparison = Compare(symbols, period, allowed);
        compared += comparison.compared;
        if (comparison.differing <= allowed) {
            if (noise == 0.0)
                noise = NoiseRms(capture);
            const Repetition found{period, 1.0 - static_cast<double>(comparison.differing) / static_cast<double>(count),
                                   DifferenceRms(WholeUis(capture), period * capture.samplesPerUi), noise};
            if (found.Holds())
                return found;
        }
        if (compared > kMostComparisons * symbols.size())
            break;
    }
    return {};
}

double AgreementAt(const CapturedSymbols& capture, std::size_t period)
{
    const std::span<const int> symbols = CertainSymbols(capture);
    if (period >= symbols.size())
        return 0.0;
    const std::size_t count = symbols.size() - period;
    return 1.0 - static_cast<double>(Compare(symbols, period, count).differing) / static_cast<double>(count);
}

Repetition CheckPeriod(const CapturedSymbols& capture, std::size_t period)
{
    Repetition checked;
    checked.symbols = period;
    if (period >= capture.certain.count)
        return checked;
    checked.agreement = AgreementAt(capture, period);
    checked.differenceRms = DifferenceRms(WholeUis(capture), period * capture.samplesPerUi);
    checked.noiseRms = NoiseRms(capture);
    return checked;
}

std::string KnownPattern::Name() const
{
    std::string name = "PRBS" + std::to_string(polynomial.order);
    const bool isFirst = FindPrbs(polynomial.order)->text == polynomial.text;
    const bool isQ = isOfBitPairs && isFirst && map == SymbolMap::Gray && highBitFirst;
    if (isQ)
        name += "Q";
    if (!isFirst)
        name.append(" (").append(polynomial.text).append(")");
    if (isOfBitPairs && !isQ) {
        name += " by bit pairs";
        name += map == SymbolMap::Gray ? ", Gray coded" : ", not Gray coded";
        name += highBitFirst ? "" : ", low bit first";
    }
    if (inverted)
        name += isOfBitPairs && !isQ ? ", inverted" : " inverted";
    if (complemented)
        name += ", bits complemented";
    return name;
}

std::optional<KnownPattern> RecognisePattern(std::span<const int> symbols, int levelCount)
{
    if (levelCount != 2 && levelCount != 4)
        return std::nullopt;
    const std::span<const BitMap> maps = levelCount == 2 ? std::span<const BitMap>(kNrzMaps) : kPairMaps;
    // A part from the middle tells which polynomial it may be.
    const std::size_t screened = std::min(symbols.size(), kScreenedSymbols);
    const std::span<const int> middle = symbols.subspan((symbols.size() - screened) / 2, screened);
    for (const BitMap& map : maps) {
        const std::vector<std::uint8_t> bits = BitsOf(middle, map);
        for (const PrbsPolynomial& polynomial : kPrbsPolynomials) {
            if (!Check(polynomial, bits))
                continue;
            const std::optional<Checked> all = Check(polynomial, BitsOf(symbols, map));
            if (!all)
                continue;
            KnownPattern found{polynomial, map.isOfBitPairs, map.map,     map.highBitFirst, map.inverted,
                               false,      all->checks,      all->failing};
            (map.map == SymbolMap::Gray ? found.complemented : found.inverted) = all->complemented;
            return found;
        }
    }
    return std::nullopt;
}

}  // namespace Tarnwick::DSO::Maths

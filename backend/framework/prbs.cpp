#include "framework/prbs.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <string_view>

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/patterns/codings.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"
#include "maths/patterns/symboldetection.h"

namespace Tarnwick::DSO::SystemFramework {

using Maths::SymbolMap;

namespace {

constexpr const char* kDetection = "PRBS::GetIdealPrbsSequencePAM4";

void RequireSymbols(const char* operation, std::string_view name, std::string_view symbols, std::string_view alphabet)
{
    const std::size_t foreign = symbols.find_first_not_of(alphabet);
    if (foreign == std::string_view::npos)
        return;
    const char symbol = symbols[foreign];
    const bool printable = symbol >= ' ' && symbol <= '~';
    const std::string shown =
        printable ? std::string{'\'', symbol, '\''} : "character " + std::to_string(static_cast<unsigned char>(symbol));
    const char highest = *std::max_element(alphabet.begin(), alphabet.end());
    Refuse(operation, std::string(name) + "[" + std::to_string(foreign) + "]", shown,
           std::string("'0' to '") + highest + "'");
}

struct Pattern {
    std::string_view symbols;
    E_SIGNAL_CODING coding;
    SymbolMap map;
};

double* IdealSignal(const char* operation, int& length, double low, double high, const Pattern& pattern,
                    int samplesPerUi, double edge)
{
    RequireFinite(operation, "low", low, "a finite level");
    RequireFinite(operation, "high", high, "a finite level");
    if (pattern.symbols.empty())
        Refuse(operation, "symbols", "empty", "at least one symbol");
    const std::string alphabet = Maths::Alphabet(pattern.coding, pattern.map, pattern.symbols);
    RequireSymbols(operation, "symbols", pattern.symbols, alphabet);
    if (samplesPerUi < 1)
        Refuse(operation, "samplesPerUi", samplesPerUi, "at least 1 sample per UI");
    const std::size_t most = std::numeric_limits<int>::max() / pattern.symbols.size();
    if (static_cast<std::size_t>(samplesPerUi) > most)
        Refuse(operation, "samplesPerUi", samplesPerUi,
               "at most " + std::to_string(most) + ", so that the samples can be counted");
    if (!(edge >= 0.0 && edge <= 1.0))
        Refuse(operation, "edge", edge, "0 to 1 UI");
    const std::vector<int> levels = Maths::LevelsOf(pattern.symbols, alphabet);
    const auto signal = Maths::IdealSignal(levels, {low, high, static_cast<int>(alphabet.size())}, samplesPerUi,
                                           levels.size() * static_cast<std::size_t>(samplesPerUi), edge);
    OwnedArray result = NewArrayFrom<double>(signal);
    length = static_cast<int>(signal.size());
    return result.release();
}

std::string UserPattern(std::string_view symbols, int patternLengthUi)
{
    if (symbols.size() != static_cast<std::size_t>(patternLengthUi))
        Refuse(kDetection, "length of the buffer", symbols.size(), std::to_string(patternLengthUi) + " symbols");
    RequireSymbols(kDetection, "buffer", symbols, "0123");
    return std::string(symbols);
}

}  // namespace

std::string PRBS::GetIdealPrbsSequencePAM4(const double* samples, int count, int patternLengthUi, const char* buffer,
                                           bool withoutGrayCoding, bool useUserPattern, bool refine)
{
    if (patternLengthUi < 1)
        Refuse(kDetection, "patternLengthUi", patternLengthUi, "at least 1 UI");
    if (useUserPattern && buffer != nullptr && *buffer != '\0')
        return UserPattern(buffer, patternLengthUi);
    if (count < patternLengthUi)
        Refuse(kDetection, "count", count,
               "at least one sample for each of " + std::to_string(patternLengthUi) + " UI");
    if (samples == nullptr)
        Refuse(kDetection, "samples", "null", "an array of count samples");
    const std::span<const double> period(samples, static_cast<std::size_t>(count));
    const auto bad = std::find_if(period.begin(), period.end(), [](double value) { return !std::isfinite(value); });
    if (bad != period.end())
        Refuse(kDetection, "samples[" + std::to_string(bad - period.begin()) + "]", *bad, "a finite value");

    const auto found =
        Maths::DetectSymbols(period, static_cast<std::size_t>(patternLengthUi), Maths::LevelCount(SIGNAL_CODING_PAM4),
                             refine ? Maths::Decisions::Equalised : Maths::Decisions::AsSampled);
    if (!(found.quality <= Maths::kWorstQuality))
        Refuse(kDetection, "quality of the four levels", found.quality,
               "at most " + TextOf(Maths::kWorstQuality) + ", as of a PAM4 pattern");
    const SymbolMap map = withoutGrayCoding ? SymbolMap::Level : SymbolMap::Gray;
    return Maths::SymbolsOf(found.levels, Maths::FindCoding(SIGNAL_CODING_PAM4)->Alphabet(map));
}

double* PRBS::GetIdealSignalFromPrbsSymbolsD(int& length, double low, double high, const std::string& symbols,
                                             int samplesPerUi, E_SIGNAL_CODING coding)
{
    return IdealSignal("PRBS::GetIdealSignalFromPrbsSymbolsD", length, low, high, {symbols, coding, SymbolMap::Gray},
                       samplesPerUi, 0.0);
}

double* PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD(int& length, double low, double high,
                                                               const std::string& symbols, int samplesPerUi,
                                                               E_SIGNAL_CODING coding, double edge)
{
    return IdealSignal("PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD", length, low, high,
                       {symbols, coding, SymbolMap::Level}, samplesPerUi, edge);
}

void PRBS::CircularShiftOptim(int shift, double* data, int length, bool left)
{
    if (length <= 0)
        return;
    if (data == nullptr)
        Refuse("PRBS::CircularShiftOptim", "data", "null", "an array of length values");
    const long long first = left ? static_cast<long long>(shift) : -static_cast<long long>(shift);
    std::rotate(data, data + Maths::WrappedIndex(first, static_cast<std::size_t>(length)), data + length);
}

}  // namespace Tarnwick::DSO::SystemFramework

#include "framework/prbs.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "framework/plumbing/patternsymbols.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::SystemFramework {

using Maths::SymbolMap;

namespace {

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
    const SymbolLevels symbols = LevelsOfSymbols(operation, "symbols", pattern.symbols, pattern.coding, pattern.map);
    if (samplesPerUi < 1)
        Refuse(operation, "samplesPerUi", samplesPerUi, "at least 1 sample per UI");
    const std::size_t most = std::numeric_limits<int>::max() / pattern.symbols.size();
    if (static_cast<std::size_t>(samplesPerUi) > most)
        Refuse(operation, "samplesPerUi", samplesPerUi,
               "at most " + std::to_string(most) + ", so that the samples can be counted");
    if (!(edge >= 0.0 && edge <= 1.0))
        Refuse(operation, "edge", edge, "0 to 1 UI");
    const auto signal = Maths::IdealSignal(symbols.levels, {low, high, symbols.levelCount}, samplesPerUi,
                                           symbols.levels.size() * static_cast<std::size_t>(samplesPerUi), edge);
    OwnedArray result = NewArrayFrom<double>(signal);
    length = static_cast<int>(signal.size());
    return result.release();
}

}  // namespace

std::string PRBS::GetIdealPrbsSequencePAM4(const double* samples, int count, int patternLengthUi, const char* buffer,
                                           bool withoutGrayCoding, bool useUserPattern, bool refine)
{
    return DetectedPam4Symbols("PRBS::GetIdealPrbsSequencePAM4", samples, count,
                               {patternLengthUi, SymbolMapOf(withoutGrayCoding), useUserPattern ? buffer : nullptr,
                                refine ? Maths::Decisions::Equalised : Maths::Decisions::AsSampled});
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

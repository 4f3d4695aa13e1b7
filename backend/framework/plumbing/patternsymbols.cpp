#include "framework/plumbing/patternsymbols.h"

#include <algorithm>
#include <cmath>

#include "framework/plumbing/error.h"

namespace Tarnwick::DSO::SystemFramework {

namespace {

void RequireSymbols(std::string_view where, std::string_view field, std::string_view symbols, std::string_view alphabet)
{
    const std::size_t foreign = symbols.find_first_not_of(alphabet);
    if (foreign == std::string_view::npos)
        return;
    const char symbol = symbols[foreign];
    const bool printable = symbol >= ' ' && symbol <= '~';
    const std::string shown =
        printable ? std::string{'\'', symbol, '\''} : "character " + std::to_string(static_cast<unsigned char>(symbol));
    const char highest = *std::max_element(alphabet.begin(), alphabet.end());
    Refuse(where, std::string(field) + "[" + std::to_string(foreign) + "]", shown,
           std::string("'0' to '") + highest + "'");
}

std::string UserPattern(std::string_view where, std::string_view symbols, int patternLengthUi)
{
    if (symbols.size() != static_cast<std::size_t>(patternLengthUi))
        Refuse(where, "length of the buffer", symbols.size(), std::to_string(patternLengthUi) + " symbols");
    RequireSymbols(where, "buffer", symbols, Maths::FindCoding(SIGNAL_CODING_PAM4)->levelAlphabet);
    return std::string(symbols);
}

}  // namespace

SymbolLevels LevelsOfSymbols(std::string_view where, std::string_view field, std::string_view symbols,
                             E_SIGNAL_CODING coding, Maths::SymbolMap map)
{
    const std::string alphabet = Maths::Alphabet(coding, map, symbols);
    RequireSymbols(where, field, symbols, alphabet);
    return {Maths::LevelsOf(symbols, alphabet), static_cast<int>(alphabet.size())};
}

std::string DetectedPam4Symbols(std::string_view where, const double* samples, int count,
                                const Pam4Detection& detection)
{
    const int patternLengthUi = detection.patternLengthUi;
    if (patternLengthUi < 1)
        Refuse(where, "patternLengthUi", patternLengthUi, "at least 1 UI");
    if (detection.userPattern != nullptr && *detection.userPattern != '\0')
        return UserPattern(where, detection.userPattern, patternLengthUi);
    if (count < patternLengthUi)
        Refuse(where, "count", count, "at least one sample for each of " + std::to_string(patternLengthUi) + " UI");
    if (samples == nullptr)
        Refuse(where, "samples", "null", "an array of count samples");
    const std::span<const double> period(samples, static_cast<std::size_t>(count));
    RequireFiniteSamples(where, period);

    const auto detected = Maths::DetectSymbols(period, static_cast<std::size_t>(patternLengthUi),
                                               Maths::LevelCount(SIGNAL_CODING_PAM4), detection.decisions);
    if (!(detected.quality <= Maths::kWorstQuality))
        Refuse(where, "quality of the four levels", detected.quality,
               "at most " + TextOf(Maths::kWorstQuality) + ", as of a PAM4 pattern");
    return Maths::SymbolsOf(detected.levels, Maths::FindCoding(SIGNAL_CODING_PAM4)->Alphabet(detection.map));
}

void RequireFiniteSamples(std::string_view where, std::span<const double> samples)
{
    const auto bad = std::find_if(samples.begin(), samples.end(), [](double value) { return !std::isfinite(value); });
    if (bad != samples.end())
        Refuse(where, "samples[" + std::to_string(bad - samples.begin()) + "]", *bad, "a finite value");
}

}  // namespace Tarnwick::DSO::SystemFramework

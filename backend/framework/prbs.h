#pragma once

#include <string>

#include "framework/export.h"
#include "framework/signalcoding.h"

namespace Tarnwick::DSO::SystemFramework {

/// Repeated patterns: their symbols, found in a capture, and the noise-free waveform that symbols stand for. With Gray
/// coding the PAM4 symbols '0', '1', '3', '2' are the levels lowest to highest; without it a symbol is its level's
/// index, as those of NRZ and PAM3 always are.
class TARNWICK_FRAMEWORK_API PRBS {
public:
    /// One period of PAM4 symbols, a character for each UI, decided from a capture of it by k-means over the samples of
    /// up to eight phases. The rotation is free. Precoded PAM4: the symbols on the line.
    /// @param samples            count samples of one period, finite, read only; the eye may be closed
    /// @param patternLengthUi    UI in the period; count over it, the samples per UI, need not be whole
    /// @param buffer             null-terminated symbols; with useUserPattern and unless null or empty, they are the
    ///                           answer and the samples are not looked at; never written
    /// @param refine             true: decide behind a linear equaliser of 7 taps, which is fitted to the decisions
    /// @throws std::invalid_argument  patternLengthUi is below 1 or above count; samples is null or holds a value that
    ///                           is not finite; the user's pattern is not patternLengthUi symbols '0' to '3'; or no phase
    ///                           shows four levels: the mean squared distance to them, over the square of their spacing,
    ///                           is above 0.05
    /// PRBS13Q at 16 samples per UI: no error behind a fourth-order front end of a quarter of the symbol rate.
    static std::string GetIdealPrbsSequencePAM4(const double* samples, int count, int patternLengthUi,
                                                const char* buffer, bool withoutGrayCoding, bool useUserPattern,
                                                bool refine);

    /// The waveform of a pattern: symbol j holds samples j samplesPerUi .. (j + 1) samplesPerUi - 1 at
    ///     low + (high - low) level / (n - 1)
    /// n = 2 NRZ, 3 PAM3, 4 PAM4 and precoded PAM4 (Gray coded); of an unknown coding one more than the highest digit, at
    /// least 2.
    /// @param length     written: symbols.size() * samplesPerUi
    /// @param low, high  [V] of the lowest and of the highest level
    /// @return new array of `length` values; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  the text is empty or has a character that is no symbol of the coding, samplesPerUi
    ///                                is below 1, or low or high is not finite; length is then as it was
    static double* GetIdealSignalFromPrbsSymbolsD(int& length, double low, double high, const std::string& symbols,
                                                  int samplesPerUi, E_SIGNAL_CODING coding);

    /// The same with PAM4 symbols that are level indices.
    /// @param edge  [UI] duration, 0 to 1, of a straight transition about each symbol boundary; 0: none
    /// @throws std::invalid_argument  as above, or edge is outside 0 to 1
    static double* GetIdealSignalFromPrbsSymbols_withoutGrayCodingD(int& length, double low, double high,
                                                                    const std::string& symbols, int samplesPerUi,
                                                                    E_SIGNAL_CODING coding, double edge);

    /// Rotates an array in place by any number of places: to the right, or to the left with `left`; a negative number
    /// goes the other way. A length of 0 or less: nothing.
    ///     right: new[i] = old[(i - shift) mod length]
    /// @throws std::invalid_argument  data is null though length is positive
    static void CircularShiftOptim(int shift, double* data, int length, bool left);
};

}  // namespace Tarnwick::DSO::SystemFramework

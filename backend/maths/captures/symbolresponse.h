// What the symbols explain of a capture: least squares, at each phase of the UI, on the levels a of the neighbouring symbols
//     x[i s + k] = c_k + sum_j h_k[j] a[i - before + j] + rest,   j = 0 .. before + after,   k = 0 .. s - 1
// The symbols of all phases are the same, so one matrix of (before + 1 + after)^2 values serves them all, and no matrix of
// samples is built. Source: L. Ljung, "System Identification: Theory for the User", 2nd ed., section 7.3 (finite impulse
// response models).
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Whether the symbol after the last one is the first one again.
enum class Wrapping { None, Circular };

/// How many symbols on either side of a UI are held to reach into it.
struct SymbolSpan {
    std::size_t before = 8;
    std::size_t after = 8;
    constexpr std::size_t Count() const { return before + 1 + after; }
};

/// Symbols first .. first + count - 1.
struct SymbolRange {
    std::size_t first = 0;
    std::size_t count = 0;
};

struct SymbolResponse {
    SymbolSpan span;
    std::vector<double> taps;         ///< h_k[j] at k span.Count() + j, per unit of the levels
    std::vector<double> constants;    ///< c_k
    std::vector<double> residualRms;  ///< of the rest, by phase: root of its sum of squares over the number of UI
    /// The unknowns a phase that the symbols could tell apart, c_k among them: of a pattern shorter than the span fewer than
    /// there are. The rest of noise of rms s has rms s sqrt(1 - unknowns/UI).
    std::size_t unknowns = 0;

    std::size_t SamplesPerUi() const { return constants.size(); }
};

/// The UI of a range whose whole span of symbols lies in the record; all of the range when it wraps.
TARNWICK_FRAMEWORK_API SymbolRange WithWholeSpan(SymbolRange range, std::size_t symbolCount, SymbolSpan span,
                                                 Wrapping wrapping);

/// The half of the fit that is the symbols' alone, for as many waveforms of them as one likes.
class TARNWICK_FRAMEWORK_API SymbolFit {
public:
    /// As FitSymbolResponse; the levels outlive the fit.
    SymbolFit(std::span<const double> symbolLevels, SymbolSpan span, Wrapping wrapping, SymbolRange range);
    SymbolFit(SymbolFit&&) noexcept;
    SymbolFit& operator=(SymbolFit&&) noexcept;
    ~SymbolFit();

    /// The UI that are explained: those with their whole span.
    SymbolRange Range() const { return range_; }
    SymbolResponse Of(std::span<const double> samples, std::size_t samplesPerUi) const;

private:
    struct Solver;
    std::span<const double> levels_;
    SymbolSpan span_;
    Wrapping wrapping_;
    SymbolRange range_;
    double middle_ = 0.0;
    double scale_ = 1.0;
    std::unique_ptr<const Solver> solver_;
};

/// The response of the smallest taps where several are equally good, as for symbols that cannot be told apart.
/// @param samples       finite, samplesPerUi for each symbol at least; later ones are left out
/// @param samplesPerUi  s, at least 1
/// @param symbolLevels  a: the level of each symbol, in any unit
/// @param range         the UI to be explained, in the record. Without wrapping those at its ends are left out whose span
///                      of symbols is not whole; with nothing left all taps, constants and residuals are 0
TARNWICK_FRAMEWORK_API SymbolResponse FitSymbolResponse(std::span<const double> samples, std::size_t samplesPerUi,
                                                        std::span<const double> symbolLevels, SymbolSpan span,
                                                        Wrapping wrapping, SymbolRange range);

/// What the symbols explain of the UI of a range, s values each. All of them have their whole span of symbols.
TARNWICK_FRAMEWORK_API std::vector<double> ExplainedSamples(const SymbolResponse& response,
                                                            std::span<const double> symbolLevels, Wrapping wrapping,
                                                            SymbolRange range);

/// The rest, of all phases together: root of the mean square of the samples of the range less what the symbols explain.
/// @param range  at least one UI; all have their whole span of symbols
TARNWICK_FRAMEWORK_API double UnexplainedRms(const SymbolResponse& response, std::span<const double> samples,
                                             std::span<const double> symbolLevels, Wrapping wrapping,
                                             SymbolRange range);

}  // namespace Tarnwick::DSO::Maths

// S-parameter files line by line: numbers, tokens and the rules that turn them into a fixture's transmission.
//     .s1p  f S11                              .s4p  four lines of four pairs, the first with f: Sdd21
//     .s21  f, dB, radians                     any other name: f S11 S21 S12 S22, of which S21
// These rules cover less than the format allows (EIA/IBIS Open Forum, "Touchstone File Format Specification", rev. 1.1):
// touchstoneplain.h reads such files as they are meant.
#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Frequency [Hz] to transmission.
using Transmission = std::map<double, std::complex<double>>;

enum class FileKind { Table, OnePort, TwoPort, FourPort };

/// By the extension, in lower case and found only once in the name; any other name is that of a two-port.
TARNWICK_FRAMEWORK_API FileKind KindOf(std::string_view fileName);

/// What the pairs of a Touchstone file are.
enum class PairFormat { Decibel, Magnitude, RealImaginary };

TARNWICK_FRAMEWORK_API std::complex<double> FromMagnitude(double magnitude, double degrees);
TARNWICK_FRAMEWORK_API std::complex<double> FromDecibels(double level, double degrees);
TARNWICK_FRAMEWORK_API std::complex<double> FromPair(PairFormat format, double a, double b);

/// How a four-port file numbers its ports: the pairs are 1, 2 and 3, 4, or 1, 3 and 2, 4.
enum class PortPairs { Neighbours, Alternate };
/// By the number in a host's settings: 0 is neighbours, any other alternate.
constexpr PortPairs PairsOf(int portOrder)
{
    return portOrder == 0 ? PortPairs::Neighbours : PortPairs::Alternate;
}

/// Sdd21 of one single-ended matrix in mixed-mode form, U = M S M^T/2, pairs 1, 2 and 3, 4.
/// Source: D. E. Bockelman, W. R. Eisenstadt, "Combined differential and common-mode scattering parameters", IEEE Trans.
/// Microwave Theory Tech. 43 (1995), with unnormalised modes.
/// @param matrix  16 values row by row; with alternate pairs the second and third of each row exchanged already
TARNWICK_FRAMEWORK_API std::complex<double> DifferentialTransmission(std::span<const std::complex<double>, 16> matrix,
                                                                     PortPairs pairs);

enum class NumberStatus { Number, Invalid, OutOfRange };

struct Number {
    double value = 0.0;
    NumberStatus status = NumberStatus::Invalid;
    std::size_t length = 0;  ///< characters up to the end of the number, leading blanks included
};

/// The longest number at the start of the text, in the "C" locale whatever the process's: as std::stod, which skips
/// blanks and takes a sign, decimals, hexadecimals behind 0x, infinity and NaN. Subnormal numbers are out of range.
TARNWICK_FRAMEWORK_API Number NumberAtStart(std::string_view text);

/// Whether there is nothing but blanks in the text.
TARNWICK_FRAMEWORK_API bool IsBlank(std::string_view text);

/// The text in upper case, ASCII letters only.
TARNWICK_FRAMEWORK_API std::string UpperCase(std::string_view text);

/// The runs of characters between delimiters. A line that ends in a delimiter, or is empty, has one more, empty token.
struct Tokens {
    static constexpr std::size_t kMostStored = 9;
    std::array<std::string_view, kMostStored> stored;
    std::size_t count = 0;  ///< of all tokens, of which the first ones are stored
};
TARNWICK_FRAMEWORK_API Tokens Split(std::string_view line, std::string_view delimiters);

/// The factor of a frequency unit's name in any case; 1 for any other name.
TARNWICK_FRAMEWORK_API double UnitOf(std::string_view name);
/// The format of a keyword in any case.
TARNWICK_FRAMEWORK_API std::optional<PairFormat> FormatOf(std::string_view name);

/// Why a line is refused.
struct LineFailure {
    enum class Reason { InvalidNumber, NumberOutOfRange, TooFewTokens, FrequencyNotANumber };
    Reason reason;
    std::size_t token;   ///< counted from 0
    std::size_t found;   ///< tokens in the line
    std::size_t needed;  ///< tokens it takes at least
    bool isOptions;      ///< the line is an option line
};

/// The text of a refusal. Numbers that cannot be read have the texts that hosts know, without name and place. Deliberate.
/// @param reader  in whose name the line is refused
TARNWICK_FRAMEWORK_API std::string RefusalOf(const LineFailure& failure, std::string_view reader,
                                             std::string_view fileName, std::size_t line);

/// Reads the lines of a file in their order. Beside the result it holds one matrix.
class TARNWICK_FRAMEWORK_API TouchstoneReader {
public:
    TouchstoneReader(FileKind kind, PortPairs pairs) : kind_(kind), pairs_(pairs) {}

    /// @param line  without its end
    /// @return why the line is refused, in which case nothing is taken from it; nothing when it is accepted
    std::optional<LineFailure> Take(std::string_view line);

    /// The result, after all lines; four-port records up to the last whole matrix.
    Transmission Finish();

    // What the option lines have set so far.
    double Multiplier() const { return multiplier_; }
    PairFormat Format() const { return format_; }

private:
    std::optional<LineFailure> TakeTableRow(std::string_view line);
    std::optional<LineFailure> TakeOptions(std::string_view line);
    std::optional<LineFailure> TakeData(std::string_view line);
    void AddRow(std::array<std::complex<double>, 4> row);
    void Set(double frequency, std::complex<double> value);

    FileKind kind_;
    PortPairs pairs_;
    double multiplier_ = -1.0;  // data before any option line get negated frequencies. Deliberate.
    PairFormat format_ = PairFormat::RealImaginary;
    Transmission transmission_;
    // For a four-port file: frequencies and matrices are collected separately and paired in Finish.
    std::vector<double> frequencies_;
    std::vector<std::complex<double>> differential_;
    std::array<std::complex<double>, 16> matrix_{};
    std::size_t filled_ = 0;
};

/// Adds a point at 0 Hz with the magnitude of the first point, if there is none and the second frequency is exactly twice
/// the first.
/// @return whether it was added
TARNWICK_FRAMEWORK_API bool AddDcPoint(Transmission& transmission);

/// Sdd21 of every whole matrix in `values` (16 a frequency) into `transmission`.
TARNWICK_FRAMEWORK_API void AddDifferentialTransmission(Transmission& transmission,
                                                        std::span<const std::complex<double>> values,
                                                        std::span<const double> frequencies, PortPairs pairs);

}  // namespace Tarnwick::DSO::Maths

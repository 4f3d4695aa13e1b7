// Touchstone files as they are meant: comments anywhere, options in any order, records over any number of lines.
// Source: EIA/IBIS Open Forum, "Touchstone File Format Specification", rev. 1.1.
#pragma once

#include <complex>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"
#include "maths/touchstone/touchstone.h"

namespace Tarnwick::DSO::Maths {

/// S11 of one port, S21 of two, Sdd21 of four.
/// @param matrix  1, 4 or 16 values row by row
TARNWICK_FRAMEWORK_API std::complex<double> TransmissionOf(std::span<const std::complex<double>> matrix,
                                                           PortPairs pairs);

class TARNWICK_FRAMEWORK_API PlainTouchstoneReader {
public:
    /// @param kind  of one, two or four ports
    PlainTouchstoneReader(FileKind kind, PortPairs pairs);

    struct Options {
        double unit = 1e9;
        PairFormat format = PairFormat::Magnitude;
        char parameter = 'S';
    };

    struct Problem {
        std::size_t token;  ///< counted from 1
        std::string reason;
    };

    /// What a line was read as.
    struct Line {
        enum class Kind { Empty, Options, FurtherOptions, Data, Noise, Keyword };
        Kind kind = Kind::Empty;
        std::size_t numbers = 0;        ///< data: tokens before a comment
        bool hasComment = false;        ///< after something else
        bool startsRecord = false;      ///< data: no record was incomplete before
        bool repeatsFrequency = false;  ///< data: a record starts whose frequency is not above the one before
        std::optional<Problem> problem;
    };
    /// What is reported about each record that closes: its frequency [Hz] and its values as they stand in the file, of any
    /// parameter.
    using TakeRecord = std::function<void(double frequency, std::vector<std::complex<double>> values)>;
    Line Take(std::string_view line, const TakeRecord& takeRecord = {});

    const Options& Settings() const { return options_; }
    bool HasSettings() const { return hasOptions_; }
    /// Numbers missing from the last record; 0 when it is complete.
    std::size_t Missing() const { return record_.empty() ? 0 : recordSize_ - record_.size(); }
    std::size_t RecordSize() const { return recordSize_; }
    const Transmission& Values() const { return transmission_; }

private:
    std::optional<Problem> TakeOptions(std::string_view line);
    void TakeData(std::string_view line, Line& taken, const TakeRecord& takeRecord);
    void CloseRecord(const TakeRecord& takeRecord);

    FileKind kind_;
    PortPairs pairs_;
    std::size_t recordSize_;
    Options options_;
    bool hasOptions_ = false;
    bool inNoise_ = false;
    std::vector<double> record_;
    std::optional<double> lastFrequency_;
    Transmission transmission_;
};

}  // namespace Tarnwick::DSO::Maths

// What an S-parameter file holds, and where the de-embedding filter reads it differently from what its author meant.
#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"
#include "workbench/network.h"
#include "workbench/touchstonecheck.h"

namespace Tarnwick::DSO::Workbench {

/// A fixture's transmission by frequency [Hz].
using FixtureTransmission = std::map<double, std::complex<double>>;

/// The whole content of a file, which is not empty.
/// @throws DataFailure  naming the file
TARNWICK_WORKBENCH_API std::string ReadFixtureText(const std::filesystem::path& path);

/// Differences of one reason, in different lines.
struct DifferenceKind {
    TouchstoneDifference first;
    std::size_t count = 0;
    std::size_t lastLine = 0;
};

/// The kinds of a list of differences, in the order of their first. Reasons that differ only in numbers and quoted words
/// are one kind.
TARNWICK_WORKBENCH_API std::vector<DifferenceKind> KindsOf(std::span<const TouchstoneDifference> differences);

/// "line 3, token 10: reason", and where there are more of the kind, how many and the last.
TARNWICK_WORKBENCH_API std::string TextOf(const DifferenceKind& kind);

/// A text that holds words of a file, which may be anything, for a terminal: no control characters, of moderate length.
TARNWICK_WORKBENCH_API std::string Printable(std::string text);

/// The value that the filter has put at 0 Hz: the magnitude at the lowest frequency, where the second is twice that.
TARNWICK_WORKBENCH_API std::optional<double> MadeAtZero(const FixtureTransmission& read);

/// Which numbering of a four-port file's ports finds the path from input to output.
struct ThroughPath {
    std::optional<PortOrderS4P> order;  ///< nothing: neither carries clearly more
    double leadDb = 0.0;  ///< power of Sdd21 of port order 1 over that of 0 in the lowest tenth of the points
};
/// @param plain  by port order
TARNWICK_WORKBENCH_API ThroughPath FindThroughPath(const std::array<FixtureTransmission, 2>& plain);
/// The same of a file's content; nothing when the name says other than four ports.
TARNWICK_WORKBENCH_API std::optional<ThroughPath> FindThroughPath(std::string_view text, const std::string& name);

enum class FixtureKind {
    Table,  ///< of frequency, dB and radians
    OnePort,
    TwoPort,
    FourPort,
};

/// What a file of this kind gives the filter: S11, S21, Sdd21 or, of a table, H.
TARNWICK_WORKBENCH_API const char* QuantityOf(std::optional<FixtureKind> kind);

struct OptionLine {
    std::size_t line = 0;       ///< 0: the file has none, and the rest are the format's defaults
    std::string frequencyUnit;  ///< Hz, kHz, MHz or GHz
    char parameter = 'S';       ///< S, Z, Y, H or G
    std::string numberFormat;   ///< DB, MA or RI
    std::string reference;      ///< [Ohm] as written
};

/// One file, read both ways.
struct TARNWICK_WORKBENCH_API FixtureFile {
    std::optional<FixtureKind> kind;                ///< that the name means
    std::optional<OptionLine> options;              ///< of a Touchstone file
    std::vector<TouchstoneReport> reports;          ///< of a four-port file by port order, else one
    std::vector<TouchstoneDifference> differences;  ///< without the value made at 0 Hz
    std::optional<double> madeAtZero;
    std::optional<ThroughPath> through;  ///< of a four-port file of single-ended ports
    /// For a Touchstone file. Where that has parameters other than S, the plain readings above are made of these, as
    /// NormaliseFixture writes them.
    Network network;

    /// The report that counts: of a four-port file that with the through path.
    const TouchstoneReport& Report() const;
    bool IsReadAsMeant() const;
};

/// @param name  says what the file is
TARNWICK_WORKBENCH_API FixtureFile DescribeFixture(std::string_view text, const std::string& name);

/// A transmission in the form in which it is shown.
struct TransmissionCurve {
    enum class Role {
        Meant,
        OtherOrder,  ///< of the port order without the through path
        AsRead,      ///< what the filter reads, where that differs
    };
    std::string name;
    Role role = Role::Meant;
    std::vector<double> frequency;    ///< [Hz]
    std::vector<double> magnitudeDb;  ///< minus infinity for a value of 0
    std::vector<double> phaseDeg;     ///< unwrapped
    std::vector<double> delay;        ///< [s] group delay between the neighbours; NaN of a single point
};

TARNWICK_WORKBENCH_API TransmissionCurve CurveOf(std::string name, const FixtureTransmission& transmission);

/// The curves to show together: both port orders, or the one that is meant; and what the filter reads, should that differ.
TARNWICK_WORKBENCH_API std::vector<TransmissionCurve> CurvesOf(const FixtureFile& file);

}  // namespace Tarnwick::DSO::Workbench

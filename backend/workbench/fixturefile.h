// What an S-parameter file holds, and where the de-embedding filter reads it otherwise than its author meant.
#pragma once

#include <array>
#include <complex>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "maths/touchstone/touchstoneplain.h"
#include "workbench/touchstonecheck.h"

namespace Tarnwick::DSO::Workbench {

/// Differences that say the same of different lines.
struct DifferenceKind {
    TouchstoneDifference first;
    std::size_t count = 0;
    std::size_t lastLine = 0;
};

/// The kinds of a list of differences, in the order in which they come up. Numbers and quoted words make no other kind.
std::vector<DifferenceKind> KindsOf(std::span<const TouchstoneDifference> differences);

/// "line 3, token 10: reason", and of several how many there are and the last.
std::string TextOf(const DifferenceKind& kind);

/// The value that the filter has put at 0 Hz: the magnitude at the lowest frequency, where the second is twice that.
std::optional<double> MadeAtZero(const std::map<double, std::complex<double>>& read);

/// Where a four-port file's through path is.
struct ThroughPath {
    std::optional<PortOrderS4P> order;  ///< nothing: neither carries clearly more
    double leadDb = 0.0;  ///< power of Sdd21 of port order 1 over that of 0 in the lowest tenth of the points
};
/// @param plain  by port order
ThroughPath FindThroughPath(const std::array<std::map<double, std::complex<double>>, 2>& plain);
/// The same of a file's content; nothing when the name says other than four ports.
std::optional<ThroughPath> FindThroughPath(std::string_view text, const std::string& name);

struct OptionLine {
    std::size_t line = 0;  ///< 0: there is none, and the settings are the defaults of the format
    DSO::Maths::PlainTouchstoneReader::Options settings;
    std::string reference;
};

/// One file, read both ways.
struct FixtureFile {
    std::optional<DSO::Maths::FileKind> kind;       ///< that the name means
    std::optional<OptionLine> options;              ///< of a Touchstone file
    std::vector<TouchstoneReport> reports;          ///< of a four-port file by port order, else one
    std::vector<TouchstoneDifference> differences;  ///< without the value made at 0 Hz
    std::optional<double> madeAtZero;
    std::optional<ThroughPath> through;  ///< of a four-port file
    /// The report that counts: of a four-port file that with the through path.
    const TouchstoneReport& Report() const;
};

/// @param name  says what the file is
FixtureFile DescribeFixture(std::string_view text, const std::string& name);

}  // namespace Tarnwick::DSO::Workbench

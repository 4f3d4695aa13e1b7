// What the de-embedding filter reads in an S-parameter file, beside what the file says.
// The filter's rules are fixed and narrow: a blank at the end of a line, a comment behind the numbers or another order of
// the options changes what they give, mostly without an error. This check says so before a waveform is spoilt.
#pragma once

#include <complex>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "filters/filters/deembeddingfilter.h"
#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

struct TouchstoneDifference {
    std::size_t line;   ///< counted from 1; 0: the file as a whole
    std::size_t token;  ///< counted from 1; 0: the line as a whole
    std::string reason;
};

struct TouchstoneReport {
    /// A plain reading by the Touchstone specification, rev. 1.1: the transmission by frequency [Hz] up to where that fails.
    /// A table (.s21) follows no standard; its plain reading passes over lines without numbers.
    std::map<double, std::complex<double>> plain;
    std::string plainFailure;  ///< why the plain reading ended; empty: it did not
    /// What DeEmbeddingFilter::loadSparamFile returns.
    std::map<double, std::complex<double>> read;
    std::string readFailure;          ///< what it throws; empty: nothing
    std::size_t readFailureLine = 0;  ///< where that is
    /// Never empty when the two differ or either fails.
    std::vector<TouchstoneDifference> differences;
};

/// Reads a file's text both ways.
/// @param fileName   says how many ports there are
/// @param portOrder  of a four-port file
TARNWICK_WORKBENCH_API TouchstoneReport CheckTouchstoneText(std::string_view text, const std::string& fileName,
                                                            PortOrderS4P portOrder);

}  // namespace Tarnwick::DSO::Workbench

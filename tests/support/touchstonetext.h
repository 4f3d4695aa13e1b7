// Pieces of S-parameter files.
#pragma once

#include <string>

namespace Tarnwick::Testing {

inline const std::string kMagnitudeOptions = "# GHz S MA R 50\n";
inline const std::string kRealOptions = "# GHz S RI R 50\n";

/// Four ports with the through path 1 to 2 and 3 to 4, a row a line; the last of 33 numbers ends the line.
/// @param between  rows
inline std::string FourPorts(const std::string& frequency, const std::string& between)
{
    return frequency + " 0 0 .9 0 .1 0 0 0" + between + ".9 0 0 0 0 0 .1 0" + between + ".1 0 0 0 0 0 .9 0" + between +
           "0 0 .1 0 .9 0 0 0\n";
}

}  // namespace Tarnwick::Testing

// The transmission of an S-parameter file as a picture.
#pragma once

#include <complex>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Tarnwick::App {

struct TransmissionLine {
    enum class Role {
        Meant,
        OtherOrder,  ///< that of the port order without the through path
        AsRead,      ///< what the filter reads, where that is not what is meant
    };
    std::string name;
    Role role = Role::Meant;
    std::vector<double> frequency;    ///< [Hz]
    std::vector<double> magnitudeDb;  ///< minus infinity for none
    std::vector<double> phaseDeg;     ///< unwrapped
};

TransmissionLine LineOf(std::string name, const std::map<double, std::complex<double>>& transmission);

/// Magnitude and unwrapped phase one above the other, as a PNG file.
/// @param lines  at least one, each of one value or more
/// @throws DataFailure  gnuplot is missing or fails; the file is complete or absent
void DrawTransmission(const std::filesystem::path& path, const std::vector<TransmissionLine>& lines,
                      const std::string& title);

}  // namespace Tarnwick::App

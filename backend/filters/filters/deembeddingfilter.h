// De-embedding: removes a fixture, described by its S-parameter file, from a waveform, or adds it.
//     remove: H = min(1/|S|, limit) exp(-i arg S),  add: H = S,  each times a taper
// S is S11 of a one-port file (.s1p), Sdd21 of a four-port file (.s4p), the magnitude and phase of a table (.s21), and S21
// of any other file. Source of the file's form: EIA/IBIS Open Forum, "Touchstone File Format Specification", rev. 1.1, of
// which it reads only a part: spelling that it does not know changes what it reads, mostly without an error.
// Error below 0.01 % of the waveform's rms within the band, for fixtures of 3 dB at 10 GHz measured in steps of 10 MHz.
// Reflections between fixture and receiver are not removed: S is a transmission alone.
#pragma once

#include <complex>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/export.h"

/// Ports of a four-port file: pairs 1, 2 and 3, 4, or 1, 3 and 2, 4. Any value but 0 stands for the second.
enum PortOrderS4P : std::int32_t {
    PORT_ORDER_12_34 = 0,
    PORT_ORDER_13_24 = 1,
};

/// What the pairs of a Touchstone file are: "DB", "MA" and "RI".
enum AmplitudeFormat : std::int32_t {
    AMPLITUDE_DB = 0,
    AMPLITUDE_MA = 1,
    AMPLITUDE_RI = 2,
};

namespace Tarnwick::DSO::Filters {

/// Noise is preserved unless the host switches it off, from noiseCornerFrequency (35 GHz) to noiseSecondParameter, or to
/// 200 GHz where that does not lie above the corner.
class TARNWICK_FILTERS_API DeEmbeddingParameters : public SystemFramework::BaseFilterParameters {
public:
    DeEmbeddingParameters();
    /// Defaults as above, with a configuration, which the filter needs to prepare.
    DeEmbeddingParameters(DeviceConfiguration* config);
    /// The first, third and twelfth argument are taken and ignored. Deliberate.
    DeEmbeddingParameters(double, int samplesPerPattern, int, bool conversionFlag, int conversionParameterA,
                          int conversionParameterB, bool preserveNoise, double noiseFrequency,
                          std::string sparamFileName, PortOrderS4P portOrder, int samplesPerUi, double);

    std::int32_t samplesPerPattern = 0;                 ///< of one repetition; written by the filter
    std::map<double, std::complex<double>> sparamData;  ///< carried; the filter reads the file
    bool conversionFlag = true;                         ///< true: remove the fixture; false: add it
    std::int32_t conversionParameterA = 30;             ///< [dB] largest boost when removing
    std::int32_t conversionParameterB = 45;             ///< [GHz] -6 dB point of the taper; 0: as far as the data go
    std::string sparamFileName;                         ///< path of the S-parameter file
    PortOrderS4P portOrder = PORT_ORDER_12_34;          ///< of a four-port file
    /// Whole ones, with which repetitions are counted also where the sampling is fractional; written by the filter. Deliberate.
    std::int32_t samplesPerUi = 0;
};

class TARNWICK_FILTERS_API DeEmbeddingFilter : public SystemFramework::BaseFilter {
public:
    /// Writes samplesPerPattern and samplesPerUi from the configuration into the parameters. Pattern lock is not asked for.
    /// @param parameters  not owned, must outlive the filter
    /// @throws std::invalid_argument  parameters is null, or a size does not fit 32 bits
    DeEmbeddingFilter(DeEmbeddingParameters* parameters);
    /// A filter without parameters, which can neither prepare nor apply.
    DeEmbeddingFilter(DeviceConfiguration* config);
    DeEmbeddingFilter(const DeEmbeddingFilter&) = default;
    DeEmbeddingFilter& operator=(const DeEmbeddingFilter&) = default;
    ~DeEmbeddingFilter() override;

    using BaseFilter::Prepare;
    /// Reads the file, dirty parameters or not, and rebuilds `kernel`; the dirty state stays. Noise that cannot be
    /// preserved switches `preserveNoise` off. A failure leaves filter and parameters as they were.
    /// @throws std::invalid_argument  no parameters or configuration, sizes that do not fit, what loadSparamFile throws, or
    ///                                settings or data from which no kernel can be made (a missing file too)
    /// @throws std::out_of_range      from loadSparamFile
    void Prepare();

    /// Prepares at every call, twice while the parameters are dirty: so a file that has changed counts at once. Each
    /// repetition of the pattern is filtered as one period of a periodic signal.
    /// @return new array of sampleCount values, zero past the last whole repetition; the caller releases it with ::operator
    ///         delete
    /// @throws std::invalid_argument  a bad record, one shorter than a repetition, and as Prepare
    double* Apply(SystemFramework::SignalData* signal) override;

    /// The fixture's transmission by frequency [Hz]: empty for a file that cannot be read. A four-port file ends at its last
    /// whole matrix. Memory is bounded by the result.
    /// @throws std::invalid_argument  "invalid stod argument": a token that is no number; or a line with too few tokens or
    ///                                a frequency that is NaN, with file and line
    /// @throws std::out_of_range      "stod argument out of range"
    virtual std::map<double, std::complex<double>> loadSparamFile(std::string fileName, PortOrderS4P portOrder);

    /// ReadDB, ReadMA with a linear magnitude or, for any other format, ReadRI.
    std::complex<double> ReadAmplitude(AmplitudeFormat format, double a, double b);
    /// @param inDb   the magnitude is in dB
    /// @param angle  [degrees]
    std::complex<double> ReadMA(double magnitude, double angle, bool inDb);
    std::complex<double> ReadDB(double level, double angle);
    std::complex<double> ReadRI(double real, double imaginary);

    /// Sdd21 at every frequency: row 2, column 1 of U = M S M^T/2 with M = [1 -1 0 0; 0 0 1 -1; 1 1 0 0; 0 0 1 1].
    /// @param result       written: a value for every frequency that has a whole matrix; other entries stay
    /// @param values       16 a frequency, row by row; with a port order other than 0 the second and third of each row
    ///                     exchanged already, of which this exchanges the rows
    /// @param frequencies  [Hz]
    /// @throws std::invalid_argument  a frequency is NaN
    void convertFromSingleEndedToMixedMode(std::map<double, std::complex<double>>& result,
                                           std::vector<std::complex<double>> values, std::vector<double> frequencies,
                                           PortOrderS4P portOrder);

    std::int32_t kernelLength = 0;  ///< taps of `kernel`, written by Prepare

private:
    struct Sizes;
    static Sizes SizesFrom(const DeviceConfiguration& config);
    static Sizes SizesFor(const DeEmbeddingParameters& parameters);
};

}  // namespace Tarnwick::DSO::Filters

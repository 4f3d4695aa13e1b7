// Prints docs/ctle-presets.md, or compares that file with what it would print.
//     tarnwick_ctle_presets            to stdout
//     tarnwick_ctle_presets FILE       exit 1 with the first line that differs
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "filters/filters/ctlefilter.h"
#include "framework/fftifft.h"
#include "maths/responses/ctle.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using Complex = std::complex<double>;
using Formula = std::function<Complex(double ghz)>;

constexpr double kAccuracy = 1e-12;  // what the table promises of the taps: rounding of transforms of 8176 points
constexpr int kUi = 511;
constexpr int kSamplesPerUi = 16;

std::string Text(const char* format, double value)
{
    char text[64];
    (void)std::snprintf(text, sizeof text, format, value);
    const std::string written = text;
    // The sign of what rounds to zero is that of the last bit.
    return written.find_first_of("123456789") == std::string::npos && written[0] == '-' ? written.substr(1) : written;
}

double Db(double ratio)
{
    return 20.0 * std::log10(ratio);
}

Complex Corner(double ghz, double corner)
{
    return {1.0, ghz / corner};
}

// The largest relative deviation of the taps' spectrum from the formula.
double Deviation(CTLE_Type type, double gain, double rateGBd, const Formula& formula)
{
    DeviceConfiguration config;
    config.baudRateGBd = rateGBd;
    config.patternLengthUi = kUi;
    config.samplesPerUi = kSamplesPerUi;
    config.patternRepeats = 1;
    config.patternLocked[0] = true;
    CTLEFilterParameters parameters(&config);
    parameters.type = type;
    parameters.gain = gain;
    CTLEFilter filter(&parameters);
    static_cast<SystemFramework::BaseFilter&>(filter).Prepare(nullptr);
    std::vector<Complex> bins(filter.filterTaps.begin(), filter.filterTaps.end());
    SystemFramework::FFTIFFT_Factory::GetInstance().FFT(bins.data(), static_cast<int>(bins.size()));
    double worst = 0.0;
    for (std::size_t k = 0; k <= bins.size() / 2; ++k) {
        const Complex expected = formula(rateGBd * static_cast<double>(k) / kUi);
        worst = std::max(worst, std::abs(bins[k] - expected) / std::abs(expected));
    }
    return worst;
}

struct Row {
    std::vector<std::string> cells;
};

void Table(std::ostream& out, const std::vector<std::string>& head, const std::vector<Row>& rows)
{
    const auto line = [&](const std::vector<std::string>& cells) {
        for (const std::string& cell : cells)
            out << "| " << cell << ' ';
        out << "|\n";
    };
    line(head);
    line(std::vector<std::string>(head.size(), "---"));
    for (const Row& row : rows)
        line(row.cells);
    out << '\n';
}

// The last cell: the promise where it holds, else the figure, which then differs from the file.
std::string Promise(double deviation)
{
    return deviation < kAccuracy ? "< 1e-12" : Text("%.1e", deviation);
}

Row Ieee(const Maths::Ieee802_3bsPreset& preset)
{
    const Formula formula = [&preset](double ghz) {
        return preset.dcGain * Corner(ghz, preset.zero1) * Corner(ghz, preset.zero2) / Corner(ghz, preset.pole1) /
               Corner(ghz, preset.pole2) / Corner(ghz, preset.pole3);
    };
    const auto peak = Maths::FindPeak([&](double f) { return formula(f / 1e9); }, 60e9);
    const double peaking = Db(peak.magnitude / preset.dcGain);
    return {{Text("%.1f", preset.keyDb), Text("%.4f", Db(preset.dcGain)),
             Text("%.6f", Db(preset.dcGain) + preset.keyDb), Text("%.3f", peaking), Text("%.2f", peak.frequency / 1e9),
             Text("%.3f", peaking - preset.keyDb),
             Promise(Deviation(CTLE_IEEE802_3bs, preset.keyDb, 26.5625, formula))}};
}

Row Hdmi(const Maths::HdmiLevel& level)
{
    const Formula formula = [&level](double ghz) {
        return Corner(ghz, 3.5 / level.peakingRatio) / Corner(ghz, 3.5) / Corner(ghz, 10.0);
    };
    const auto peak = Maths::FindPeak([&](double f) { return formula(f / 1e9); }, 60e9);
    return {{std::to_string(level.level), Text("%.2f", level.peakingRatio), Text("%.3f", Db(level.peakingRatio)),
             Text("%.3f", Db(peak.magnitude)), Text("%.2f", peak.frequency / 1e9),
             Promise(Deviation(CTLE_HDMI, level.level, 5.94, formula))}};
}

Row Peaking(double gain, double rateGBd)
{
    const auto design = Maths::DesignPeaking(rateGBd * 1e9, gain);
    const Maths::TwoPoleResponse response = design->Response();
    const double middle = std::abs(response(rateGBd * 1e9 / 2.0));
    const Formula formula = [&](double ghz) {
        return design->dcGain * Corner(ghz, design->zero / Maths::kRadPerGHz) /
               Corner(ghz, design->pole1 / Maths::kRadPerGHz) / Corner(ghz, design->pole2 / Maths::kRadPerGHz);
    };
    return {{Text("%.0f", gain), Text("%g", rateGBd), Text("%.4f", design->zero / Maths::kRadPerGHz),
             Text("%.6f", Db(middle / design->dcGain) - gain), Text("%.6f", Db(middle)),
             Text("%.6f", Db(design->dcGain) + gain), Promise(Deviation(CTLE_PEAKING, gain, rateGBd, formula))}};
}

std::string Document()
{
    std::ostringstream out;
    out << "# How near the CTLE presets come to their formulas\n\n"
           "Written by `tarnwick_ctle_presets` (tests/filters/ctlepresettable.cpp); a test compares it with what the\n"
           "library gives. Deviations in dB except the last column: the largest relative deviation of the spectrum of\n"
           "the taps from the formula, over all bins of a pattern of 511 UI with 16 samples each.\n\n"
           "## IEEE 802.3bs\n\n"
           "G (1 + jf/z1)(1 + jf/z2) / ((1 + jf/p1)(1 + jf/p2)(1 + jf/p3)). The key is the peaking, |H| at its peak\n"
           "over |H| at DC; the DC gain brings the peak to 0 dB.\n\n";
    std::vector<Row> rows;
    std::transform(Maths::kIeee802_3bsPresets.begin(), Maths::kIeee802_3bsPresets.end(), std::back_inserter(rows),
                   Ieee);
    Table(out, {"key [dB]", "DC gain [dB]", "from -key", "peaking [dB]", "at [GHz]", "from key", "taps"}, rows);

    out << "## HDMI\n\n"
           "(1 + jf A/3.5 GHz) / ((1 + jf/3.5 GHz)(1 + jf/10 GHz)): DC gain 0 dB. Poles and zero lie so near each\n"
           "other that the peak stays below the ratio A: a level is its peaking in dB.\n\n";
    rows.clear();
    std::transform(Maths::kHdmiLevels.begin(), Maths::kHdmiLevels.end(), std::back_inserter(rows), Hdmi);
    Table(out, {"level", "A", "A [dB]", "peaking [dB]", "at [GHz]", "taps"}, rows);

    out << "## Peaking\n\n"
           "Two poles, one zero; |H| is 1 at half the symbol rate and -gain at DC. The zero is searched to five\n"
           "decimals of the gain, the DC gain to five decimals of |H|.\n\n";
    rows.clear();
    for (const double rate : {10.0, 26.5625, 53.125})
        for (int gain = 0; gain <= 12; gain += 3)
            rows.push_back(Peaking(gain, rate));
    Table(out,
          {"gain [dB]", "GBd", "zero [GHz]", "peaking from gain", "at half the rate", "DC gain from -gain", "taps"},
          rows);

    out << "## HDMI 2.0 (cable model)\n\n| gain [dB] | GBd | DC gain [dB] | from gain at half the rate "
           "|\n|---|---|---|---|\n";
    for (const double gain : {-12.0, 0.0, 8.0, 20.0}) {
        const Maths::CableResponse response(5.94e9, gain);
        out << "| " << Text("%.0f", gain) << " | 5.94 | " << Text("%.6f", Db(std::abs(response(0.0)))) << " | "
            << Text("%.6f", Db(std::abs(response(2.97e9))) - gain) << " |\n";
    }
    return out.str();
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string expected = Document();
    if (argc < 2) {
        std::cout << expected;
        return 0;
    }
    std::ifstream file(argv[1]);
    std::istringstream lines(expected);
    for (std::string is, should; std::getline(lines, should);) {
        if (!std::getline(file, is) || is != should) {
            std::cerr << argv[1] << ":\n  is        " << is << "\n  should be " << should << '\n';
            return 1;
        }
    }
    if (std::string more; std::getline(file, more)) {
        std::cerr << argv[1] << ": has more: " << more << '\n';
        return 1;
    }
    return 0;
}

#include "workbench/network.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <map>
#include <numbers>
#include <numeric>
#include <span>

#include "maths/responses/fixtureresponse.h"
#include "maths/touchstone/networkparameters.h"
#include "maths/touchstone/touchstoneplain.h"
#include "workbench/plumbing/text.h"
#include "workbench/plumbing/touchstonenames.h"

namespace Tarnwick::DSO::Workbench {

using Complex = std::complex<double>;
using Maths::FileKind;
using Maths::PlainTouchstoneReader;

namespace {

constexpr double kPassiveRoom = 1e-3;     // of 1: files are rounded to four digits or so, and calibrated
constexpr double kReciprocalRoom = 0.01;  // of the waves: what cables and adapters are measured to
constexpr double kEarlyRoom = 0.01;       // of the energy
constexpr double kSmoothStep = 90.0;      // [deg] from there on the way round the circle is open to doubt
constexpr double kPathFloor = 0.5;        // of the strongest: crosstalk turns its phase at every notch

// Instruments and simulators say it in a comment or a keyword.
bool SaysMixedMode(std::string_view line)
{
    const std::size_t begin = line.find_first_of("![");
    if (begin == std::string_view::npos)
        return false;
    const std::string text = Maths::UpperCase(line.substr(begin));
    constexpr std::string_view kWords[] = {"MIXED-MODE", "MIXED MODE", "SDD21", "SDD11", "SDD(1,1)", "SDD[1,1]"};
    return std::any_of(std::begin(kWords), std::end(kWords),
                       [&](std::string_view word) { return text.find(word) != std::string::npos; });
}

void TakeMatrix(Network& network, double frequency, std::vector<Complex> values)
{
    // The format lists those of a two-port column by column.
    if (network.ports == 2)
        std::swap(values[1], values[2]);
    if (!network.converted.empty()) {
        const auto converted = Maths::ScatteringFrom(network.converted.front(), values);
        if (!converted)
            return;
        values = *converted;
    }
    const bool isFinite = std::all_of(values.begin(), values.end(), [](Complex value) {
        return std::isfinite(value.real()) && std::isfinite(value.imag());
    });
    if (!isFinite || !std::isfinite(frequency) || (!network.frequency.empty() && frequency <= network.frequency.back()))
        return;
    network.frequency.push_back(frequency);
    network.s.insert(network.s.end(), values.begin(), values.end());
}

// The ports of the path that carries most at the lowest frequency: to, from.
std::array<std::size_t, 2> ThroughPorts(const Network& network)
{
    std::array<std::size_t, 2> best = {network.ports, 1};
    for (std::size_t to = 2; to <= network.ports; ++to)
        if (std::abs(network.At(0, to, 1)) > std::abs(network.At(0, best[0], best[1])))
            best = {to, 1};
    return best;
}

// Magnitudes of all waves from port to another port, as Network has them; 0 from a port to itself.
void MagnitudesAt(const Network& network, std::size_t point, std::vector<double>& magnitudes)
{
    magnitudes.clear();
    for (std::size_t to = 1; to <= network.ports; ++to)
        for (std::size_t from = 1; from <= network.ports; ++from)
            magnitudes.push_back(from == to ? 0.0 : std::abs(network.At(point, to, from)));
}

// Twice the data's band in samples, so that the taper beyond it has room. What one period of the highest frequency holds on
// both sides of time zero is the band's end, not the fixture.
std::optional<double> EarlyEnergy(const Network& network)
{
    constexpr double kSampleRate = 4.0;  // [highest frequencies]
    constexpr std::size_t kMostPoints = 1 << 20;
    const double last = network.frequency.back();
    if (network.frequency.size() < 2 || network.frequency.front() < 0.0)
        return std::nullopt;
    const auto [to, from] = ThroughPorts(network);
    std::map<double, Complex> path;
    double step = last;
    for (std::size_t k = 0; k < network.frequency.size(); ++k) {
        path[network.frequency[k]] = network.At(k, to, from);
        if (k > 0)
            step = std::min(step, network.frequency[k] - network.frequency[k - 1]);
    }
    const double points = std::min(kSampleRate * last / step, static_cast<double>(kMostPoints));
    const auto count = static_cast<std::size_t>(std::max(points, 64.0));
    const Maths::FixtureResponse fixture(path);
    if (fixture.Strongest() == 0.0)
        return std::nullopt;
    const std::vector<double> impulse =
        Maths::FixtureSpectrum(fixture, Maths::FixtureUse::Add, {0.0, 0.0}, kSampleRate * last, count).Inverse();
    const auto energy = [](std::span<const double> values) {
        return std::inner_product(values.begin(), values.end(), values.begin(), 0.0);
    };
    const std::size_t early = count / 2 - static_cast<std::size_t>(kSampleRate);
    return energy(std::span(impulse).subspan(count - count / 2, early)) / energy(impulse);
}

}  // namespace

Network ReadNetwork(std::string_view text, const std::string& name)
{
    Network network;
    const auto kind = MeantKind(name);
    if (!kind || *kind == FileKind::Table)
        return network;
    network.ports = *kind == FileKind::OnePort ? 1 : *kind == FileKind::TwoPort ? 2 : 4;
    if (text.substr(0, 3) == "\xEF\xBB\xBF")
        text.remove_prefix(3);
    PlainTouchstoneReader reader(*kind, {});
    LineCursor lines(text);
    bool isOpen = true;
    while (const auto line = lines.Next()) {
        if (network.mixedModeLine == 0 && SaysMixedMode(*line))
            network.mixedModeLine = lines.Number();
        if (!isOpen)
            continue;
        isOpen = !reader
                      .Take(*line,
                            [&](double frequency, std::vector<Complex> values) {
                                const char parameter = reader.Settings().parameter;
                                network.converted = parameter == 'S' ? "" : std::string(1, parameter);
                                TakeMatrix(network, frequency, std::move(values));
                            })
                      .problem;
    }
    return network;
}

NetworkQuality JudgeNetwork(const Network& network)
{
    NetworkQuality quality;
    const std::size_t ports = network.ports;
    const std::size_t size = ports * ports;
    const auto take = [](NetworkFigure& figure, double value, double frequency) {
        if (value > figure.value)
            figure = {value, frequency};
    };
    if (ports > 1)
        quality.asymmetry = NetworkFigure{0.0, network.frequency.front()};
    if (ports > 1 && network.frequency.size() > 1)
        quality.phaseStep = NetworkFigure{0.0, network.frequency.front()};
    std::vector<double> magnitudes;
    for (std::size_t k = 0; k < network.frequency.size(); ++k) {
        const double frequency = network.frequency[k];
        MagnitudesAt(network, k, magnitudes);
        const double strongest = *std::max_element(magnitudes.begin(), magnitudes.end());
        const std::span<const Complex> matrix = std::span(network.s).subspan(k * size, size);
        take(quality.largestSingularValue, Maths::LargestSingularValue(matrix), frequency);
        for (std::size_t to = 1; to <= ports; ++to) {
            for (std::size_t from = 1; from <= ports; ++from) {
                if (from < to)
                    take(*quality.asymmetry, std::abs(network.At(k, to, from) - network.At(k, from, to)), frequency);
                if (k == 0 || from == to || magnitudes[(to - 1) * ports + from - 1] < kPathFloor * strongest)
                    continue;
                const double step = std::arg(network.At(k, to, from) * std::conj(network.At(k - 1, to, from)));
                take(*quality.phaseStep, std::abs(step) * 180.0 / std::numbers::pi, frequency);
            }
        }
    }
    if (ports > 1)
        quality.earlyEnergy = EarlyEnergy(network);
    return quality;
}

bool NetworkQuality::IsPassive() const
{
    return largestSingularValue.value <= 1.0 + kPassiveRoom;
}

bool NetworkQuality::IsReciprocal() const
{
    return !asymmetry || asymmetry->value <= kReciprocalRoom;
}

bool NetworkQuality::IsCausal() const
{
    return !earlyEnergy || *earlyEnergy <= kEarlyRoom;
}

bool NetworkQuality::IsSmooth() const
{
    return !phaseStep || phaseStep->value <= kSmoothStep;
}

}  // namespace Tarnwick::DSO::Workbench

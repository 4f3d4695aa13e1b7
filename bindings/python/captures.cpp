#include "captures.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "eye.h"
#include "workbench/capturereport.h"
#include "workbench/captures.h"
#include "workbench/chain.h"
#include "workbench/chaininput.h"
#include "workbench/eyereport.h"
#include "workbench/lock.h"
#include "workbench/pattern.h"
#include "workbench/signalquality.h"
#include "workbench/simulation.h"
#include "workbench/units.h"
#include "workbench/waveform.h"

namespace Tarnwick::Python {

using namespace DSO::Workbench;

namespace {

using SharedWaveform = std::shared_ptr<Waveform>;
using SharedLocked = std::shared_ptr<LockedCapture>;

SharedWaveform Read(const std::string& name, const std::string& minus, std::optional<std::size_t> skipLines,
                    const std::string& column, double sampleRateGsps, double scale)
{
    CaptureSource source{name, minus, {}};
    source.options.skipLines = skipLines;
    source.options.column = column;
    source.options.sampleRate = sampleRateGsps * kGiga;
    source.options.scale = scale;
    return std::make_shared<Waveform>(ReadCapture(source));
}

SharedWaveform Simulated(SimulatedPattern pattern, const std::string& coding, const Simulation& settings)
{
    pattern.coding = CodingOf(coding);
    // Only as much of a long pattern as the cut reaches into.
    const bool isCut = settings.lengthUi > 0;
    const std::vector<int> levels = pattern.Levels(
        isCut ? static_cast<std::size_t>(settings.firstUi) + static_cast<std::size_t>(settings.lengthUi) : 0);
    auto waveform = std::make_shared<Waveform>();
    waveform->samples = Simulate(levels, LevelCount(pattern.coding), settings);
    waveform->interval = 1.0 / (settings.symbolRateGBd * kGiga * settings.samplesPerUi);
    return waveform;
}

SharedWaveform WaveformOf(const std::string& owner, const py::object& given, double interval, double start)
{
    const Samples samples(owner, given);
    auto waveform = std::make_shared<Waveform>();
    waveform->samples.assign(samples.Values().begin(), samples.Values().end());
    waveform->interval = interval;
    waveform->start = start;
    return waveform;
}

struct LockOptions {
    std::string coding;
    double baud;
    double samplesPerUi;
    int patternLength;
    int samplesPerUiOut;
    bool isTracked;
    double loopBandwidthMHz;
    bool average;
};

SharedLocked Locked(const Waveform& waveform, const std::string& name, const std::string& device,
                    const LockOptions& options)
{
    CaptureFacts facts;
    facts.coding = CodingOf(options.coding);
    facts.symbolRateGBd = options.baud;
    facts.samplesPerUi = options.samplesPerUi;
    facts.patternLengthUi = options.patternLength;
    facts.samplesPerUiOut = options.samplesPerUiOut;
    facts.clock = options.isTracked ? ClockKind::Tracked : ClockKind::Constant;
    facts.loopBandwidthMHz = options.loopBandwidthMHz;
    facts.average = options.average;
    facts = FactsOf(ChainFile::FromText(device, name), facts);
    return std::make_shared<LockedCapture>(Lock(waveform, facts, name));
}

py::dict ClockOf(const SharedLocked& locked)
{
    const LockReport& report = locked->report;
    py::dict clock;
    clock["first"] = report.phaseFirst;
    clock["spacing"] = report.phaseSpacing;
    clock["phaseUi"] = Adopt(std::vector<double>(report.phaseUi));
    clock["trackedPhaseUi"] = Adopt(std::vector<double>(report.trackedPhaseUi));
    clock["residualUi"] = report.phaseResidualUi;
    clock["trackedResidualUi"] = report.trackedResidualUi;
    // [s] from sample to sample of the capture as it was read; 0: not known
    clock["interval"] = locked->interval * report.samplesPerUiOut / report.samplesPerUi;
    return clock;
}

Eye EyeOf(const SharedLocked& locked, double targetBer, bool bathtub)
{
    RequireLevels(locked->report, "Eye");
    EyeSettings settings = EyeSettingsOf(*locked);
    settings.targetBer = targetBer;
    settings.withBathtub = bathtub;
    return {locked->samples, settings, locked};
}

std::string Quality(const SharedLocked& locked, int numberOfTaps, const std::string& name)
{
    return QualityAsJson(*locked, MeasureSignalQuality(*locked, numberOfTaps, name));
}

}  // namespace

void BindCaptures(py::module_& module)
{
    using Released = py::call_guard<py::gil_scoped_release>;
    py::class_<Waveform, SharedWaveform>(module, "Waveform", "A capture as it was read.")
        .def_property_readonly("samples",
                               [](const py::object& self) { return View(self.cast<Waveform&>().samples, self); })
        .def_readonly("interval", &Waveform::interval)
        .def_readonly("start", &Waveform::start)
        .def_readonly("notes", &Waveform::notes)
        .def_readonly("gap", &Waveform::gap);
    module.def("read", &Read, py::arg("name"), py::arg("minus"), py::arg("skip_lines"), py::arg("column"),
               py::arg("sample_rate"), py::arg("scale"), Released());
    module.def(
        "simulate",
        [](const std::string& coding, int prbs, const std::string& symbols, double baud, double spu, int repetitions,
           double amplitude, double rise, double loss, double noise, double jitter, int length, int first, double ppm,
           int averages, bool bandLimited, std::uint64_t seed) {
            Simulation settings;
            settings.samplesPerUi = spu;
            settings.repetitions = repetitions;
            settings.symbolRateGBd = baud;
            settings.amplitude = amplitude;
            settings.riseUi = rise;
            settings.lossDb = loss;
            settings.noiseRms = noise;
            settings.averages = averages;
            settings.jitterRms = jitter;
            settings.seed = seed;
            settings.clockOffsetPpm = ppm;
            settings.firstUi = first;
            settings.lengthUi = length;
            settings.bandLimited = bandLimited;
            return Simulated({SIGNAL_CODING_UNKNOWN, prbs, symbols, false}, coding, settings);
        },
        py::arg("coding"), py::arg("prbs"), py::arg("symbols"), py::arg("baud"), py::arg("spu"), py::arg("repetitions"),
        py::arg("amplitude"), py::arg("rise"), py::arg("loss"), py::arg("noise"), py::arg("jitter"), py::arg("length"),
        py::arg("first"), py::arg("ppm"), py::arg("averages"), py::arg("band_limited"), py::arg("seed"), Released());
    module.def("waveform", &WaveformOf, py::arg("owner"), py::arg("samples"), py::arg("interval"), py::arg("start"));

    py::class_<LockedCapture, SharedLocked>(module, "Locked", "A record of whole samples per UI.")
        .def_property_readonly("samples",
                               [](const py::object& self) { return View(self.cast<LockedCapture&>().samples, self); })
        .def_readonly("interval", &LockedCapture::interval)
        .def_readonly("start", &LockedCapture::start)
        .def_property_readonly("warnings", [](const LockedCapture& locked) { return locked.report.warnings; })
        .def("report", [](const LockedCapture& locked) { return LockAsJson(locked.report); })
        .def("text", [](const LockedCapture& locked) { return LockAsText(locked.report); })
        .def("chain_file", [](const LockedCapture& locked) { return ChainFileFor(locked); })
        .def("clock", &ClockOf)
        .def("eye", &EyeOf, py::arg("target_ber"), py::arg("bathtub"), Released())
        .def("quality", &Quality, py::arg("taps"), py::arg("name"), Released());
    module.def(
        "lock",
        [](const Waveform& waveform, const std::string& name, const std::string& device, const std::string& coding,
           double baud, double samplesPerUi, int patternLength, int spu, bool tracked, double loopBandwidth,
           bool average) {
            return Locked(waveform, name, device,
                          {coding, baud, samplesPerUi, patternLength, spu, tracked, loopBandwidth, average});
        },
        py::arg("waveform"), py::arg("name"), py::arg("device"), py::arg("coding"), py::arg("baud"),
        py::arg("samples_per_ui"), py::arg("pattern_length"), py::arg("spu"), py::arg("tracked"),
        py::arg("loop_bandwidth"), py::arg("average"), Released());
}

}  // namespace Tarnwick::Python

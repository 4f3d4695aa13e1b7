// What an instrument maker does with the workbench: reads a capture, runs a chain on it, looks at the eye and the report.
#include <cmath>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "workbench/workbench.h"

using namespace Tarnwick::DSO::Workbench;

namespace {

constexpr int kSamplesPerUi = 8;

bool Check(bool holds, const char* what)
{
    if (!holds)
        std::fprintf(stderr, "chainrunner: %s\n", what);
    return holds;
}

// Two periods of PRBS7 between 0 V and 1 V.
std::vector<double> Pattern()
{
    const std::vector<int> levels = LevelsOf(PrbsSymbols(7, SIGNAL_CODING_NRZ), SIGNAL_CODING_NRZ, true);
    std::vector<double> samples;
    for (int period = 0; period < 2; ++period)
        for (const int level : levels)
            samples.insert(samples.end(), kSamplesPerUi, level);
    return samples;
}

bool Run()
{
    WriteWaveform("capture.npy", Pattern());
    const Waveform capture = ReadCapture({"capture.npy", "", {}});
    const ChainFile file = ChainFile::FromText(R"({
        "device": {"baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ", "patternLengthUi": 127},
        "filters": [{"type": "bessel-thomson"}, {"type": "ffe", "numberOfTaps": 3}]})",
                                               "chain.json");
    const ChainInput input = InputFor(file, capture, {}, "capture.npy");
    Chain chain(input.chain, input.samples.size());
    const ChainResult result = RunChain(chain, input.samples, input.eyes, "capture.npy");

    bool ok = Check(input.acquisition && input.acquisition->repetitions == 2, "the period was not found");
    ok &= Check(result.valid.count == capture.samples.size(), "samples were lost");
    ok &= Check(result.stages.size() == 3, "there is not a report for the capture and each filter");
    ok &= Check(result.stages[0].eye.eyes.at(0).height == 1.0, "the eye of the capture is not whole");
    const double received = result.stages[1].eye.eyes.at(0).height;
    ok &= Check(received > 0.5 && received < 1.0, "the receiver has not narrowed the eye, or has closed it");
    ok &= Check(result.stages[2].eye.eyes.at(0).height > 0.5, "the equaliser has closed the eye");
    const EyeReport eye = MeasureEyes(result.samples, kSamplesPerUi, 2);
    ok &= Check(eye.eyes.at(0).height == result.stages[2].eye.eyes.at(0).height, "an eye has two heights");
    ok &= Check(ReportAsJson(result.stages).find("\"appliedTaps\"") != std::string::npos, "the report holds no taps");
    try {
        Chain(ChainFile::FromText(R"({"filters": [{"typo": 1}]})", "typo.json"), 1);
        ok &= Check(false, "a wrong key was taken");
    } catch (const UsageFailure& failure) {
        ok &= Check(std::string(failure.what()).find("typo.json: filters.0") == 0, failure.what());
    }
    return ok;
}

}  // namespace

int main()
{
    try {
        return Run() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "chainrunner: %s\n", failure.what());
        return 1;
    }
}

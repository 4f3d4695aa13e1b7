#include <algorithm>
#include <cmath>
#include <complex>
#include <map>

#include "filters/filters/deembeddingfilter.h"
#include "framework/filenames.h"
#include "workbench/deembeddingreport.h"
#include "workbench/fixturefile.h"
#include "workbench/plumbing/json.h"
#include "workbench/plumbing/touchstonenames.h"
#include "workbench/plumbing/wholefile.h"
#include "workbench/stages/stages.h"
#include "workbench/touchstonecheck.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Filters::DeEmbeddingParameters;
using Transmission = std::map<double, std::complex<double>>;

void SetFile(DeEmbeddingParameters& parameters, const nlohmann::json& value, const Place& place)
{
    parameters.sparamFileName = FileFrom(value, place).string();
}

void SetPortOrder(DeEmbeddingParameters& parameters, const nlohmann::json& value, const Place& place)
{
    const std::int32_t order = IntegerFrom(value, place);
    if (order != PORT_ORDER_12_34 && order != PORT_ORDER_13_24)
        place.Fail(fmt::format("is {}; expected 0 for the pairs 1, 2 and 3, 4 or 1 for 1, 3 and 2, 4", order));
    parameters.portOrder = static_cast<PortOrderS4P>(order);
}

const std::vector<Field<DeEmbeddingParameters>>& DeEmbeddingFields()
{
    static const std::vector<Field<DeEmbeddingParameters>> fields = {
        {"sparamFileName", Setter<DeEmbeddingParameters>{&SetFile, "file"}, "", "the fixture's S-parameters", ""},
        {"portOrder", Setter<DeEmbeddingParameters>{&SetPortOrder, "whole number"}, "",
         "of a four-port file: 0 for the pairs 1, 2 and 3, 4, 1 for 1, 3 and 2, 4", "0"},
        {"conversionFlag", &DeEmbeddingParameters::conversionFlag, "", "true removes the fixture, false adds it"},
        {"conversionParameterA", &DeEmbeddingParameters::conversionParameterA, "dB", "largest boost when removing"},
        {"conversionParameterB", &DeEmbeddingParameters::conversionParameterB, "GHz",
         "bandwidth: the response is 6 dB down there; 0: as far as the data reach"},
    };
    return fields;
}

// The filter reads its file whenever it prepares, twice for one record. In a chain it is given what the stage has read.
class FilterOfReadFixture : public Filters::DeEmbeddingFilter {
public:
    using DeEmbeddingFilter::DeEmbeddingFilter;

    Transmission fixture;

    Transmission loadSparamFile(std::string, PortOrderS4P) override { return fixture; }
};

// Checks the file before the first record: what the filter would refuse, and where it reads something else than the file
// says.
// @return what the filter reads
Transmission ReadFixture(const DeEmbeddingParameters& parameters, std::vector<std::string>& notes)
{
    constexpr std::size_t kKindsNoted = 3;
    const std::string& name = parameters.sparamFileName;
    const std::string text = ReadWholeFile(PathOf(name));
    auto report = CheckTouchstoneText(text, name, parameters.portOrder);
    if (!report.readFailure.empty()) {
        const auto refused =
            std::find_if(report.differences.begin(), report.differences.end(),
                         [&](const auto& difference) { return difference.line == report.readFailureLine; });
        throw DataFailure(fmt::format(
            "{}: {}", name, refused == report.differences.end() ? report.readFailure : TextOf({*refused, 1, 0})));
    }
    const std::vector<DifferenceKind> kinds = KindsOf(report.differences);
    for (std::size_t k = 0; k < std::min(kKindsNoted, kinds.size()); ++k)
        notes.push_back(fmt::format("{}: {}", name, TextOf(kinds[k])));
    if (kinds.size() > kKindsNoted)
        notes.push_back(fmt::format("{}: {} more kinds of difference; tarnwick touchstone lists them", name,
                                    kinds.size() - kKindsNoted));
    if (MeantKind(name) == Maths::FileKind::FourPort) {
        const bool isFirst = parameters.portOrder == PORT_ORDER_12_34;
        auto other = CheckTouchstoneText(text, name, isFirst ? PORT_ORDER_13_24 : PORT_ORDER_12_34).plain;
        const ThroughPath through =
            isFirst ? FindThroughPath({report.plain, other}) : FindThroughPath({other, report.plain});
        if (through.order && *through.order != parameters.portOrder)
            notes.push_back(fmt::format("{}: portOrder is {}, but {} carries {:.1f} dB more", name,
                                        static_cast<int>(parameters.portOrder), static_cast<int>(*through.order),
                                        std::abs(through.leadDb)));
    }
    return std::move(report.read);
}

std::string Findings(const FilterOfReadFixture& filter, const DeEmbeddingParameters& parameters,
                     const DeviceConfiguration& config)
{
    const std::span<const double> kernel(filter.kernel, static_cast<std::size_t>(filter.kernelLength));
    const auto figures = FiguresOfDeEmbedding(
        kernel, config.baudRateGBd * kGiga * filter.kernelLength / config.patternLengthUi, filter.fixture,
        {parameters.conversionFlag, static_cast<double>(parameters.conversionParameterA),
         parameters.conversionParameterB * kGiga});
    const Json findings = {{"kernelLength", filter.kernelLength},
                           {"largestBoostDb", figures.largestBoostDb},
                           {"largestBoostGHz", figures.largestBoostAt / kGiga},
                           {"noiseAmplificationDb", figures.noiseAmplificationDb},
                           {"energyBeforeZeroPercent", 100.0 * figures.energyBeforeZero},
                           {"peakDelayPs", figures.peakDelay * kPicoPerUnit},
                           {"bandUsedGHz", std::vector<double>{0.0, figures.bandEnd / kGiga}},
                           {"extrapolatedGHz", std::vector<double>{0.0, figures.extrapolatedTo / kGiga}},
                           {"extrapolatedPercent", 100.0 * figures.extrapolatedTo / figures.bandEnd}};
    return findings.SortedText();
}

StagePlan PlanDeEmbedding(const nlohmann::json& settings, const Place& place, DeviceConfiguration& config)
{
    auto owned = std::make_unique<DeEmbeddingParameters>(&config);
    ReadSettings(*owned, DeEmbeddingFields(), settings, place);
    // Noise has not passed through a fixture that is only now added: raising it would give too much.
    if (!owned->conversionFlag && !Has(settings, "preserveNoise"))
        owned->preserveNoise = false;
    DeEmbeddingParameters& parameters = *owned;
    StagePlan plan;
    plan.stage.parameters = std::move(owned);
    plan.complete = [&parameters, &config, place](Stage& stage) {
        auto& filter = MakeFilter<FilterOfReadFixture>(stage, parameters, place);
        if (parameters.sparamFileName.empty())
            place.Below("sparamFileName").Fail("is missing; expected the fixture's S-parameter file");
        filter.fixture = ReadFixture(parameters, stage.notes);
        stage.findings = [&](std::span<const double>, ValidPart) { return Findings(filter, parameters, config); };
    };
    return plan;
}

}  // namespace

StageType DeEmbeddingStage()
{
    return {"deembedding", "removes a fixture described by its S-parameters, or adds it",
            [] { return KeysOf(DeEmbeddingFields(), DeEmbeddingParameters()); },
            []() -> std::unique_ptr<SystemFramework::BaseFilterParameters> {
                return std::make_unique<DeEmbeddingParameters>();
            },
            &PlanDeEmbedding};
}

}  // namespace Tarnwick::DSO::Workbench

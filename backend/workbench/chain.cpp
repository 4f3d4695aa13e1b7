#include "workbench/chain.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "maths/equalisers/decisionfeedback.h"
#include "workbench/decisions.h"
#include "workbench/deembeddingreport.h"
#include "workbench/failure.h"
#include "workbench/fixturefile.h"
#include "workbench/pattern.h"
#include "workbench/sirctable.h"

namespace Tarnwick::DSO::Workbench {

using DSO::DeviceConfiguration;
using DSO::SystemFramework::BaseFilterParameters;
using nlohmann::json;

namespace {

// Where a value stands, for messages: chain.json: filters.1.order
struct Place {
    std::string file;
    std::string key;

    Place Below(const std::string& name) const { return {file, key.empty() ? name : key + "." + name}; }
    template <typename Failure = UsageFailure>
    [[noreturn]] void Fail(const std::string& what) const
    {
        throw Failure(fmt::format("{}: {}: {}", file, key.empty() ? "the file" : key, what));
    }
};

double RealFrom(const json& value, const Place& place)
{
    if (!value.is_number())
        place.Fail(fmt::format("is {}; expected a number", value.dump()));
    return value.get<double>();
}

std::int32_t IntegerFrom(const json& value, const Place& place)
{
    if (!value.is_number_integer())
        place.Fail(fmt::format("is {}; expected a whole number", value.dump()));
    const auto wide = value.get<double>();
    if (std::abs(wide) > std::numeric_limits<std::int32_t>::max())
        place.Fail(fmt::format("is {}; expected at most {}", value.dump(), std::numeric_limits<std::int32_t>::max()));
    return value.get<std::int32_t>();
}

bool FlagFrom(const json& value, const Place& place)
{
    if (!value.is_boolean())
        place.Fail(fmt::format("is {}; expected true or false", value.dump()));
    return value.get<bool>();
}

std::string TextFrom(const json& value, const Place& place)
{
    if (!value.is_string())
        place.Fail(fmt::format("is {}; expected a text", value.dump()));
    return value.get<std::string>();
}

// A file that the chain file names, relative to where that lies.
std::filesystem::path FileFrom(const json& value, const Place& place)
{
    return std::filesystem::path(place.file).parent_path() / TextFrom(value, place);
}

const json& ObjectFrom(const json& value, const Place& place)
{
    if (!value.is_object())
        place.Fail(fmt::format("is {}; expected an object", value.type_name()));
    return value;
}

// A field of a record that a key of the same name sets; or what the key does where a value is more than a number.
template <typename Owner>
struct Field {
    const char* name;
    std::variant<double Owner::*, std::int32_t Owner::*, bool Owner::*,
                 void (*)(Owner& owner, const json& value, const Place& place)>
        member;
};

template <typename Owner>
void SetField(Owner& owner, const Field<Owner>& field, const json& value, const Place& place)
{
    std::visit(
        [&](auto member) {
            if constexpr (std::is_invocable_v<decltype(member), Owner&, const json&, const Place&>) {
                member(owner, value, place);
                return;
            } else {
                using Value = std::remove_reference_t<decltype(owner.*member)>;
                if constexpr (std::is_same_v<Value, double>)
                    owner.*member = RealFrom(value, place);
                else if constexpr (std::is_same_v<Value, bool>)
                    owner.*member = FlagFrom(value, place);
                else
                    owner.*member = IntegerFrom(value, place);
            }
        },
        field.member);
}

template <typename Owner>
const Field<Owner>* FindField(const std::vector<Field<Owner>>& fields, const std::string& name)
{
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const Field<Owner>& field) { return name == field.name; });
    return found == fields.end() ? nullptr : &*found;
}

template <typename Owner>
void AppendNames(const std::vector<Field<Owner>>& fields, std::vector<std::string>& names)
{
    for (const Field<Owner>& field : fields)
        names.emplace_back(field.name);
}

[[noreturn]] void UnknownKey(const std::string& name, const std::vector<std::string>& known, const Place& place)
{
    place.Below(name).Fail<UnknownKeyFailure>(
        fmt::format("is no known key; the nearest one is \"{}\"", Nearest(name, known)));
}

const std::vector<Field<DeviceConfiguration>>& DeviceFields()
{
    using D = DeviceConfiguration;
    static const std::vector<Field<D>> fields = {
        {"baudRateGBd", &D::baudRateGBd},
        {"patternLengthUi", &D::patternLengthUi},
        {"samplesPerPattern", &D::samplesPerPattern},
        {"withoutGrayCoding", &D::withoutGrayCoding},
        {"samplesPerUi", &D::samplesPerUi},
        {"useUserPattern", &D::useUserPattern},
        {"oeReceiverSelector", &D::oeReceiverSelector},
        {"multiplePatternRecord", &D::multiplePatternRecord},
        {"patternRepeats", &D::patternRepeats},
        {"uiDuration", &D::uiDuration},
        {"sampleSpacing", &D::sampleSpacing},
        {"useFractionalSampling", &D::useFractionalSampling},
    };
    return fields;
}

// What every filter takes beside its own keys.
const std::vector<Field<BaseFilterParameters>>& CommonFields()
{
    using P = BaseFilterParameters;
    static const std::vector<Field<P>> fields = {
        {"channel", &P::channel},
        {"preserveNoise", &P::preserveNoise},
        {"noiseCornerFrequency", &P::noiseCornerFrequency},
        {"noiseSecondParameter", &P::noiseSecondParameter},
    };
    return fields;
}

struct FilterType {
    std::string name;
    /// A stage without a filter when the settings switch it off.
    std::function<Stage(const json& settings, const Place& place, DeviceConfiguration& config)> make;
};

bool IsEnabled(const json& settings, const Place& place)
{
    return !settings.contains("enabled") || FlagFrom(settings["enabled"], place.Below("enabled"));
}

// Reads a filter's keys into its parameters, then builds the filter on them.
template <typename Filter, typename Parameters>
Stage MakeStage(std::unique_ptr<Parameters> parameters, const std::vector<Field<Parameters>>& own, const json& settings,
                const Place& place)
{
    for (const auto& [name, value] : settings.items()) {
        const Place here = place.Below(name);
        if (name == "type" || name == "enabled")
            continue;
        if (const auto* field = FindField(own, name)) {
            SetField(*parameters, *field, value, here);
        } else if (const auto* common = FindField(CommonFields(), name)) {
            SetField<BaseFilterParameters>(*parameters, *common, value, here);
        } else {
            std::vector<std::string> known = {"type", "enabled"};
            AppendNames(own, known);
            AppendNames(CommonFields(), known);
            UnknownKey(name, known, place);
        }
    }
    Stage stage;
    if (!IsEnabled(settings, place))
        return stage;
    try {
        stage.filter = std::make_unique<Filter>(parameters.get());
    } catch (const std::exception& failure) {
        place.Fail(failure.what());
    }
    stage.parameters = std::move(parameters);
    return stage;
}

struct CtleName {
    const char* name;
    CTLE_Type type;
};

constexpr CtleName kCtleNames[] = {
    {"peaking", CTLE_PEAKING},
    {"hdmi", CTLE_HDMI},
    {"hdmi2.0", CTLE_HDMI_2_0},
    {"ieee802.3bs", CTLE_IEEE802_3bs},
    {"oif-cei-112g", CTLE_OIF_CEI_112G_LINEAR_PAM4},
};

void SetCtleType(DSO::Filters::CTLEFilterParameters& parameters, const json& value, const Place& place)
{
    const std::string name = TextFrom(value, place);
    const auto* const row = std::find_if(std::begin(kCtleNames), std::end(kCtleNames),
                                         [&](const CtleName& known) { return name == known.name; });
    if (row == std::end(kCtleNames))
        place.Fail(fmt::format("is \"{}\"; expected peaking, hdmi, hdmi2.0, ieee802.3bs or oif-cei-112g", name));
    parameters.type = row->type;
}

// SiRC takes its tables from the configuration. Here each filter has one of its own, so that two on the same channel can
// have different tables; every entry holds the same, whatever channel and receiver are chosen.
class SircStageParameters : public DSO::Filters::SircFilterParameters {
public:
    explicit SircStageParameters(DeviceConfiguration config) : SircFilterParameters(&own_), own_(std::move(config))
    {
        Fill(own_.electricalResponseTable, kChannels, {});
        Fill(own_.oeResponseTable, kChannels * kReceivers, {});
        Fill(own_.referenceTable, kChannels, {});
        own_.channelBandwidths.resize(kChannels);
    }
    SircStageParameters(const SircStageParameters&) = delete;
    SircStageParameters& operator=(const SircStageParameters&) = delete;

    void ReadTables(const json& settings, const Place& place)
    {
        if (const auto response = Read("channelResponse", settings, place)) {
            Fill(own_.electricalResponseTable, kChannels, response->values);
            Fill(own_.oeResponseTable, kChannels * kReceivers, response->values);
        }
        if (const auto reference = Read("channelReference", settings, place))
            Fill(own_.referenceTable, kChannels, reference->values);
    }
    bool HasResponse() const { return !own_.electricalResponseTable.front().empty(); }
    /// Of the tables that were read, as this filter takes them.
    ChannelMeasurement Measurement(const DSO::Filters::SircFilter& filter) const
    {
        const double points = static_cast<double>(filter.generationParam2) * filter.generationParam3;
        return {own_.electricalResponseTable.front(), filter.generationParam3 / filter.generationBandwidth,
                (filter.baselineEndIndex + 1) / points, referenceCutoffPercent / 100.0 * own_.baudRateGBd * 1e9};
    }
    const std::vector<std::string>& Notes() const { return notes_; }

    static void CheckName(SircStageParameters&, const json& value, const Place& place) { (void)TextFrom(value, place); }

private:
    static constexpr std::size_t kChannels = 4;
    static constexpr std::size_t kReceivers = 3;
    using Tables = std::vector<std::vector<double>>;

    static void Fill(Tables& tables, std::size_t count, const std::vector<double>& table)
    {
        tables.assign(count, table);
    }
    std::optional<SircTable> Read(const char* key, const json& settings, const Place& place)
    {
        if (!settings.contains(key))
            return std::nullopt;
        SircTable table = ReadSircTable(FileFrom(settings[key], place.Below(key)));
        notes_.insert(notes_.end(), table.notes.begin(), table.notes.end());
        return table;
    }

    DeviceConfiguration own_;
    std::vector<std::string> notes_;
};

Stage MakeSircStage(const json& settings, const Place& place, DeviceConfiguration& config)
{
    using P = SircStageParameters;
    auto owned = std::make_unique<P>(config);
    P& parameters = *owned;
    if (IsEnabled(settings, place))
        parameters.ReadTables(settings, place);
    const bool hasResponse = parameters.HasResponse();
    const auto notes = parameters.Notes();
    Stage stage = MakeStage<DSO::Filters::SircFilter>(std::move(owned),
                                                      {{"channelResponse", &P::CheckName},
                                                       {"channelReference", &P::CheckName},
                                                       {"referenceCutoffPercent", &P::referenceCutoffPercent},
                                                       {"uiSamples", &P::uiSamples}},
                                                      settings, place);
    if (stage.filter && !hasResponse)
        place.Below("channelResponse").Fail("is missing; expected the file of the channel's measured impulse response");
    stage.notes = notes;
    if (!stage.filter)
        return stage;
    const auto& filter = static_cast<const DSO::Filters::SircFilter&>(*stage.filter);
    stage.found = [&filter](std::span<const double>) { return json{{"kernelLength", filter.kernelLength}}; };
    stage.channel = parameters.Measurement(filter);
    return stage;
}

// The file before the first waveform: what the filter would refuse, and where it reads other than the file says.
void CheckFixture(const DSO::Filters::DeEmbeddingParameters& parameters, Stage& stage)
{
    constexpr std::size_t kTold = 3;
    const std::string& name = parameters.sparamFileName;
    // A chain file from elsewhere may name a pipe or a device, which never end.
    std::error_code error;
    std::ifstream file;
    if (std::filesystem::is_regular_file(name, error))
        file.open(name, std::ios::binary);
    if (!file.is_open())
        throw DataFailure(fmt::format("{}: cannot be read", name));
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const auto report = CheckTouchstoneText(text, name, parameters.portOrder);
    if (!report.readFailure.empty()) {
        const auto refused =
            std::find_if(report.differences.begin(), report.differences.end(),
                         [&](const auto& difference) { return difference.line == report.readFailureLine; });
        throw DataFailure(fmt::format(
            "{}: {}", name, refused == report.differences.end() ? report.readFailure : TextOf({*refused, 1, 0})));
    }
    const std::vector<DifferenceKind> kinds = KindsOf(report.differences);
    for (std::size_t k = 0; k < std::min(kTold, kinds.size()); ++k)
        stage.notes.push_back(fmt::format("{}: {}", name, TextOf(kinds[k])));
    if (kinds.size() > kTold)
        stage.notes.push_back(
            fmt::format("{}: {} more kinds of difference; tarnwick touchstone lists them", name, kinds.size() - kTold));
    const auto through = FindThroughPath(text, name);
    if (through && through->order && *through->order != parameters.portOrder)
        stage.notes.push_back(fmt::format("{}: portOrder is {}, but {} carries {:.1f} dB more", name,
                                          static_cast<int>(parameters.portOrder), static_cast<int>(*through->order),
                                          std::abs(through->leadDb)));
}

// Of the file as it stands now, which the filter has just read.
json FiguresToJson(DSO::Filters::DeEmbeddingFilter& filter, const DSO::Filters::DeEmbeddingParameters& parameters,
                   const DeviceConfiguration& config)
{
    constexpr double kGiga = 1e9;
    const std::span<const double> kernel(filter.kernel, static_cast<std::size_t>(filter.kernelLength));
    const auto figures =
        FiguresOfDeEmbedding(kernel, config.baudRateGBd * kGiga * filter.kernelLength / config.patternLengthUi,
                             filter.loadSparamFile(parameters.sparamFileName, parameters.portOrder),
                             {parameters.conversionFlag, static_cast<double>(parameters.conversionParameterA),
                              parameters.conversionParameterB * kGiga});
    return {{"kernelLength", filter.kernelLength},
            {"largestBoostDb", figures.largestBoostDb},
            {"largestBoostGHz", figures.largestBoostAt / kGiga},
            {"noiseAmplificationDb", figures.noiseAmplificationDb},
            {"energyBeforeZeroPercent", 100.0 * figures.energyBeforeZero},
            {"peakDelayPs", figures.peakDelay * 1e12},
            {"bandUsedGHz", {0.0, figures.bandEnd / kGiga}},
            {"extrapolatedGHz", {0.0, figures.extrapolatedTo / kGiga}},
            {"extrapolatedPercent", 100.0 * figures.extrapolatedTo / figures.bandEnd}};
}

void SetPortOrder(DSO::Filters::DeEmbeddingParameters& parameters, const json& value, const Place& place)
{
    const std::int32_t order = IntegerFrom(value, place);
    if (order != PORT_ORDER_12_34 && order != PORT_ORDER_13_24)
        place.Fail(fmt::format("is {}; expected 0 for the pairs 1, 2 and 3, 4 or 1 for 1, 3 and 2, 4", order));
    parameters.portOrder = static_cast<PortOrderS4P>(order);
}

Stage MakeDeEmbeddingStage(const json& settings, const Place& place, DeviceConfiguration& config)
{
    using P = DSO::Filters::DeEmbeddingParameters;
    auto owned = std::make_unique<P>(&config);
    const P& parameters = *owned;
    Stage stage = MakeStage<DSO::Filters::DeEmbeddingFilter>(
        std::move(owned),
        {{"sparamFileName",
          [](P& p, const json& value, const Place& here) { p.sparamFileName = FileFrom(value, here).string(); }},
         {"portOrder", &SetPortOrder},
         {"conversionFlag", &P::conversionFlag},
         {"conversionParameterA", &P::conversionParameterA},
         {"conversionParameterB", &P::conversionParameterB}},
        settings, place);
    if (!stage.filter)
        return stage;
    if (parameters.sparamFileName.empty())
        place.Below("sparamFileName").Fail("is missing; expected the fixture's S-parameter file");
    CheckFixture(parameters, stage);
    auto& filter = static_cast<DSO::Filters::DeEmbeddingFilter&>(*stage.filter);
    stage.found = [&filter, &parameters, &config](std::span<const double>) {
        return FiguresToJson(filter, parameters, config);
    };
    return stage;
}

double SamplesPerUiOf(const DeviceConfiguration& config)
{
    const double samples =
        config.useFractionalSampling ? config.uiDuration / config.sampleSpacing : config.samplesPerUi;
    return std::isfinite(samples) ? samples : 0.0;
}

void SetTaps(std::vector<double>& taps, const json& value, const Place& place)
{
    if (!value.is_array())
        place.Fail(fmt::format("is {}; expected a list of numbers", value.type_name()));
    taps.clear();
    for (std::size_t k = 0; k < value.size(); ++k)
        taps.push_back(RealFrom(value[k], place.Below(std::to_string(k))));
}

Stage MakeFfeStage(const json& settings, const Place& place, DeviceConfiguration& config)
{
    using P = DSO::Filters::FFEFilterParameters;
    auto owned = std::make_unique<P>(&config);
    owned->tapsPerUi = 1;  // the usual equaliser, where the chain does not say
    const P& parameters = *owned;
    Stage stage = MakeStage<DSO::Filters::FFEFilter>(
        std::move(owned),
        {{"numberOfTaps", &P::numberOfTaps},
         {"tapsPerUi", &P::tapsPerUi},
         {"mainCursorPosition", &P::mainCursorPosition},
         {"useManualTaps", &P::useManualTaps},
         {"taps", [](P& p, const json& value, const Place& here) { SetTaps(p.taps, value, here); }},
         {"quantizeTaps", &P::quantizeTaps},
         {"tapResolution", &P::tapResolution},
         {"useTdecqEqualizer", &P::useTdecqEqualizer},
         {"samplesPerUi", &P::samplesPerUi},
         {"withoutGrayCoding", &P::withoutGrayCoding},
         {"useUserPattern", &P::useUserPattern},
         {"spareFlag", &P::spareFlag}},
        settings, place);
    if (!stage.filter)
        return stage;
    stage.adaptive = !parameters.useManualTaps;
    stage.needsSymbols = stage.adaptive;
    const auto& filter = static_cast<const DSO::Filters::FFEFilter&>(*stage.filter);
    stage.found = [&parameters, &filter](std::span<const double>) {
        json found = {{"taps", parameters.taps}, {"appliedTaps", parameters.appliedTaps}};
        const auto& taps = parameters.appliedTaps;
        const auto largest =
            std::max_element(taps.begin(), taps.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
        if (!taps.empty())
            found["mainCursor"] = largest - taps.begin() + 1;
        if (std::isfinite(filter.residualError))
            found["residualError"] = filter.residualError;
        return found;
    };
    return stage;
}

// Decisions and errors behind the filter where the pattern's symbols are known. Without taps to find there is no
// sampling delay either.
json DecisionsOf(const DSO::Filters::DFEFilterParameters& parameters, const DeviceConfiguration& config,
                 std::span<const double> behind)
{
    const int levelCount = LevelCount(config.signalCoding);
    const bool hasDelay = parameters.useManualTaps || parameters.numberOfTaps > 0;
    if (!hasDelay || levelCount == 0 || config.patternSymbols.empty() ||
        config.patternSymbols.size() != static_cast<std::size_t>(config.patternLengthUi))
        return json::object();
    const double samples =
        DSO::Maths::SamplesFromDelay(parameters.samplingDelayPs, parameters.samplesPerUi, config.baudRateGBd);
    const double delay = std::fmod(samples, parameters.samplesPerUi);
    const DecisionCount count =
        CountDecisions(behind, LevelsOf(config.patternSymbols, config.signalCoding, config.withoutGrayCoding),
                       levelCount, SamplesPerUiOf(config), delay < 0.0 ? delay + parameters.samplesPerUi : delay);
    return {{"decisions", count.decisions}, {"errors", count.errors}};
}

Stage MakeDfeStage(const json& settings, const Place& place, DeviceConfiguration& config)
{
    using P = DSO::Filters::DFEFilterParameters;
    auto owned = std::make_unique<P>(&config);
    const P& parameters = *owned;
    Stage stage = MakeStage<DSO::Filters::DFEFilter>(
        std::move(owned),
        {{"numberOfTaps", &P::numberOfTaps},
         {"taps", [](P& p, const json& value, const Place& here) { SetTaps(p.taps, value, here); }},
         {"samplingDelayPs", &P::samplingDelayPs},
         {"useManualTaps", &P::useManualTaps},
         {"samplesPerUi", &P::samplesPerUi},
         {"withoutGrayCoding", &P::withoutGrayCoding}},
        settings, place);
    if (!stage.filter)
        return stage;
    stage.linear = false;
    stage.adaptive = !parameters.useManualTaps;
    stage.needsSymbols = stage.adaptive && parameters.numberOfTaps > 0;
    stage.found = [&parameters, &config](std::span<const double> behind) {
        json found = {{"taps", parameters.taps}, {"samplingDelayPs", parameters.samplingDelayPs}};
        found.update(DecisionsOf(parameters, config, behind));
        return found;
    };
    return stage;
}

// A row a filter. A new filter is a new row.
const std::vector<FilterType>& FilterTypes()
{
    namespace F = DSO::Filters;
    static const std::vector<FilterType> types = {
        {"copy",
         [](const json& settings, const Place& place, DeviceConfiguration& config) {
             return MakeStage<F::Copy>(std::make_unique<F::CopyParameters>(&config), {}, settings, place);
         }},
        // Without the configuration: the record is smoothed as a whole with the centred window, where with one a record of
        // several repetitions would meet half of it.
        {"moving-average",
         [](const json& settings, const Place& place, DeviceConfiguration&) {
             using P = F::MovingAverageWindowSmoothingParameters;
             return MakeStage<F::MovingAverageSmoothingFilter>(std::make_unique<P>(),
                                                               {{"WindowLength", &P::WindowLength}}, settings, place);
         }},
        {"bessel-thomson",
         [](const json& settings, const Place& place, DeviceConfiguration& config) {
             using P = F::BesselThomsonParameters;
             return MakeStage<F::BesselThomson>(
                 std::make_unique<P>(&config),
                 {{"order", &P::order}, {"cutoffPercent", &P::cutoffPercent}, {"cutoffFrequency", &P::cutoffFrequency}},
                 settings, place);
         }},
        {"ctle",
         [](const json& settings, const Place& place, DeviceConfiguration& config) {
             using P = F::CTLEFilterParameters;
             return MakeStage<F::CTLEFilter>(std::make_unique<P>(&config),
                                             {{"ctleType", &SetCtleType},
                                              {"gain", &P::gain},
                                              {"gain2", &P::gain2},
                                              {"outputScale", &P::outputScale},
                                              {"pole1", &P::pole1},
                                              {"pole2", &P::pole2},
                                              {"pole3", &P::pole3},
                                              {"zero1", &P::zero1},
                                              {"zero2", &P::zero2},
                                              {"dcGain", &P::dcGain},
                                              {"dcGain2", &P::dcGain2},
                                              {"peakingRatio", &P::peakingRatio},
                                              {"samplesPerUi", &P::samplesPerUi}},
                                             settings, place);
         }},
        {"deembedding", MakeDeEmbeddingStage},
        {"sirc", MakeSircStage},
        {"ffe", MakeFfeStage},
        {"dfe", MakeDfeStage},
    };
    return types;
}

struct Coding {
    const char* name;
    E_SIGNAL_CODING coding;
};

constexpr Coding kCodings[] = {
    {"NRZ", SIGNAL_CODING_NRZ},
    {"PAM4", SIGNAL_CODING_PAM4},
    {"PAM3", SIGNAL_CODING_PAM3},
    {"PAM4-precoded", SIGNAL_CODING_PAM4_PRECODED},
};

E_SIGNAL_CODING CodingFrom(const json& value, const Place& place)
{
    const std::string name = TextFrom(value, place);
    for (const Coding& row : kCodings)
        if (name == row.name)
            return row.coding;
    place.Fail(fmt::format("is \"{}\"; expected NRZ, PAM4, PAM3 or PAM4-precoded", name));
}

std::vector<double> NumbersFrom(const json& value, const Place& place)
{
    if (!value.is_array())
        place.Fail(fmt::format("is {}; expected a list of numbers", value.dump()));
    std::vector<double> numbers;
    for (const json& each : value)
        numbers.push_back(RealFrom(each, place.Below(std::to_string(numbers.size()))));
    return numbers;
}

// One flag for all four channels, or a list of four.
void FlagsFrom(const json& value, const Place& place, bool (&flags)[4])
{
    if (value.is_array() && value.size() == std::size(flags)) {
        for (std::size_t k = 0; k < std::size(flags); ++k)
            flags[k] = FlagFrom(value[k], place.Below(std::to_string(k)));
        return;
    }
    if (!value.is_boolean())
        place.Fail(fmt::format("is {}; expected true, false or a list of four of them", value.dump()));
    std::fill(std::begin(flags), std::end(flags), value.get<bool>());
}

// Kernels are as long as the sizes say, whatever the record: a short chain file must not make filters take memory that
// the record gives no reason for. The first of the limits is for records that are short by mistake, which filters name.
void RequireBounded(double claimed, std::size_t sampleCount, const Place& place, const char* what)
{
    constexpr double kAlwaysTaken = 1 << 20;
    constexpr double kTimesTheRecord = 16.0;
    if (claimed > std::max(kAlwaysTaken, kTimesTheRecord * static_cast<double>(sampleCount)))
        place.Fail<DataFailure>(fmt::format("{} is {:.10g} samples; the record has {}", what, claimed, sampleCount));
}

// The same of a device. What does not fit 32 bits is left to the filters, which refuse and name it.
void RequireBounded(const DeviceConfiguration& config, std::size_t sampleCount, const Place& place)
{
    const double repeats = std::max(config.patternRepeats, 1);
    const double period = static_cast<double>(config.samplesPerUi) * config.patternLengthUi;
    const double fractional = SamplesPerUiOf(config) * config.patternLengthUi;
    const struct {
        double samples;
        const char* what;
    } claims[] = {{static_cast<double>(config.samplesPerPattern), "samplesPerPattern"},
                  {period, "patternLengthUi * samplesPerUi"},
                  {period * repeats, "patternLengthUi * samplesPerUi * patternRepeats"},
                  {fractional, "patternLengthUi * uiDuration / sampleSpacing"},
                  {fractional * repeats, "patternLengthUi * uiDuration / sampleSpacing * patternRepeats"}};
    for (const auto& claim : claims)
        if (claim.samples <= std::numeric_limits<std::int32_t>::max())
            RequireBounded(claim.samples, sampleCount, place, claim.what);
}

// And of taps, which are filled up with zeros.
void RequireBounded(const Stage& stage, const DeviceConfiguration& config, std::size_t sampleCount, const Place& place)
{
    const auto* const forward = dynamic_cast<const DSO::Filters::FFEFilterParameters*>(stage.parameters.get());
    const auto* const feedback = dynamic_cast<const DSO::Filters::DFEFilterParameters*>(stage.parameters.get());
    if (forward != nullptr)
        RequireBounded(forward->numberOfTaps * std::max(SamplesPerUiOf(config), 1.0), sampleCount, place,
                       "numberOfTaps * samplesPerUi");
    if (feedback != nullptr)
        RequireBounded(feedback->numberOfTaps, sampleCount, place, "numberOfTaps");
}

// What a value holds is copied and printed level by level on the stack, which a file must not be able to use up.
template <typename Source>
json Parsed(Source&& source, const std::string& name)
{
    constexpr int kDeepest = 32;  // a list of taps stands at 4
    const auto check = [&](int depth, json::parse_event_t, const json&) {
        if (depth > kDeepest)
            throw UsageFailure(
                fmt::format("{}: holds lists or objects in one another more than {} deep", name, kDeepest));
        return true;
    };
    try {
        return json::parse(std::forward<Source>(source), check);
    } catch (const json::exception& failure) {
        throw UsageFailure(fmt::format("{}: {}", name, failure.what()));
    }
}

}  // namespace

json ReadChainFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw UsageFailure(fmt::format("{}: cannot be read", path.string()));
    return Parsed(file, path.string());
}

json ParseChain(std::string_view text, const std::string& name)
{
    return Parsed(text, name);
}

std::string Nearest(const std::string& name, const std::vector<std::string>& known)
{
    const auto distance = [&](const std::string& other) {
        if (!name.empty() && other.compare(0, name.size(), name) == 0)
            return std::size_t{0};  // cut short, which many letters are missing from
        std::vector<std::size_t> row(other.size() + 1);
        std::iota(row.begin(), row.end(), std::size_t{0});
        for (std::size_t i = 1; i <= name.size(); ++i) {
            std::size_t corner = row[0];
            row[0] = i;
            for (std::size_t j = 1; j <= other.size(); ++j) {
                const std::size_t replaced = corner + (name[i - 1] == other[j - 1] ? 0 : 1);
                corner = row[j];
                row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
            }
        }
        return row.back();
    };
    return *std::min_element(known.begin(), known.end(),
                             [&](const std::string& a, const std::string& b) { return distance(a) < distance(b); });
}

Chain::Chain(const std::filesystem::path& path, std::size_t sampleCount)
    : Chain(ReadChainFile(path), path.string(), sampleCount)
{
}

Chain::Chain(const json& file, std::string name, std::size_t sampleCount) : name_(std::move(name))
{
    const Place top{name_, ""};
    ObjectFrom(file, top);
    for (const auto& item : file.items())
        if (item.key() != "device" && item.key() != "filters")
            UnknownKey(item.key(), {"device", "filters"}, top);
    std::fill(std::begin(config_.patternLocked), std::end(config_.patternLocked), true);
    config_.oeChannel = oeChannels_;
    if (file.contains("device"))
        ReadDevice(file["device"]);
    CompleteDevice(sampleCount);
    if (!file.contains("filters"))
        top.Below("filters").Fail("is missing; expected a list of filters");
    ReadFilters(file["filters"], sampleCount);
}

void Chain::ReadDevice(const json& device)
{
    const Place place{name_, "device"};
    ObjectFrom(device, place);
    for (const auto& [name, value] : device.items()) {
        const Place here = place.Below(name);
        if (const auto* field = FindField(DeviceFields(), name))
            SetField(config_, *field, value, here);
        else if (name == "signalCoding")
            config_.signalCoding = CodingFrom(value, here);
        else if (name == "patternLocked")
            FlagsFrom(value, here, config_.patternLocked);
        else if (name == "oeChannel")
            FlagsFrom(value, here, oeChannels_);
        else if (name == "channelBandwidths")
            config_.channelBandwidths = NumbersFrom(value, here);
        else if (name != "patternSymbols") {
            std::vector<std::string> known = {"signalCoding", "patternLocked", "oeChannel", "channelBandwidths",
                                              "patternSymbols"};
            AppendNames(DeviceFields(), known);
            UnknownKey(name, known, place);
        }
    }
    repeatsGiven_ = device.contains("patternRepeats");
    periodGiven_ = device.contains("samplesPerPattern");
    multipleGiven_ = device.contains("multiplePatternRecord");
    if (!device.contains("patternSymbols"))
        return;

    // Last: which symbols there are depends on the coding, wherever in the file it stands.
    const Place here = place.Below("patternSymbols");
    const json& symbols = device["patternSymbols"];
    try {
        if (symbols.is_object()) {
            for (const auto& item : symbols.items())
                if (item.key() != "prbs")
                    UnknownKey(item.key(), {"prbs"}, here);
            if (!symbols.contains("prbs"))
                here.Fail(R"(is empty; expected a text or {"prbs": n})");
            config_.patternSymbols =
                PrbsSymbols(IntegerFrom(symbols["prbs"], here.Below("prbs")), config_.signalCoding);
        } else {
            config_.patternSymbols = TextFrom(symbols, here);
            (void)LevelsOf(config_.patternSymbols, config_.signalCoding, config_.withoutGrayCoding);
        }
    } catch (const UsageFailure& failure) {
        if (std::string_view(failure.what()).substr(0, name_.size()) == name_)
            throw;
        here.Fail(failure.what());
    }
    if (!device.contains("patternLengthUi"))
        config_.patternLengthUi = static_cast<int>(config_.patternSymbols.size());
}

void Chain::CompleteDevice(std::size_t sampleCount)
{
    const double period = SamplesPerUi() * config_.patternLengthUi;
    // Sizes whose product does not fit are left to the filters, which name them.
    const double product = static_cast<double>(config_.samplesPerUi) * config_.patternLengthUi;
    if (!periodGiven_ && std::abs(product) <= std::numeric_limits<std::int32_t>::max())
        config_.samplesPerPattern = static_cast<std::int32_t>(product);
    if (!repeatsGiven_ && period >= 1.0)
        config_.patternRepeats = static_cast<int>(static_cast<double>(sampleCount) / period);
    if (!multipleGiven_)
        config_.multiplePatternRecord = config_.patternRepeats > 1;
}

double Chain::SamplesPerUi() const
{
    return SamplesPerUiOf(config_);
}

void Chain::ReadFilters(const json& filters, std::size_t sampleCount)
{
    const Place place{name_, "filters"};
    if (!filters.is_array())
        place.Fail(fmt::format("is {}; expected a list of filters", filters.type_name()));
    for (std::size_t k = 0; k < filters.size(); ++k) {
        const Place here = place.Below(std::to_string(k));
        const json& settings = ObjectFrom(filters[k], here);
        if (!settings.contains("type"))
            here.Below("type").Fail("is missing; expected the name of a filter");
        const std::string type = TextFrom(settings["type"], here.Below("type"));
        const auto row = std::find_if(FilterTypes().begin(), FilterTypes().end(),
                                      [&](const FilterType& known) { return known.name == type; });
        if (row == FilterTypes().end()) {
            std::vector<std::string> known;
            for (const FilterType& each : FilterTypes())
                known.push_back(each.name);
            here.Below("type").Fail(
                fmt::format("is \"{}\", no known filter; the nearest one is \"{}\"", type, Nearest(type, known)));
        }
        RequireBounded(config_, sampleCount, {name_, "device"});
        Stage stage = row->make(settings, here, config_);
        stage.name = type;
        stage.place = here.key;
        stage.index = k;
        RequireBounded(stage, config_, sampleCount, here);
        if (stage.filter)
            stages_.push_back(std::move(stage));
    }
}

}  // namespace Tarnwick::DSO::Workbench

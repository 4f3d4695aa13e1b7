#include "workbench/eyeimage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <utility>

#include "maths/captures/bandlimited.h"
#include "maths/captures/traceloops.h"
#include "workbench/eye.h"
#include "workbench/statistics.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr float kShade = 0.35F;          // exponent: between the linear scale and the logarithm rare traces show too
constexpr double kRoom = 0.08;           // of the range of the samples, above and below them
constexpr double kFlatRoom = 1e-9;       // of the value of a constant record
constexpr double kSmallestValue = 1e-3;  // [V] from which that room is reckoned at least

// Lines in one column of a picture, by the lowest row that they pass through and by how many more. Where they begin and end
// does not matter then, so that counts are whole numbers, whatever the order.
class TraceCounts {
public:
    TraceCounts(std::size_t columns, std::size_t rows)
        : rows_(rows), counts_(columns * Pitch(), 0), steep_(columns * rows, 0.0)
    {
    }

    /// A line between two rows, either first.
    void Add(std::size_t column, std::size_t a, std::size_t b)
    {
        const std::size_t first = std::min(a, b);
        const std::size_t more = std::max(a, b) - first;
        if (more < kSpans - 1) {
            ++Of(column)[PlaceOf(first, more)];
            return;
        }
        for (std::size_t r = first; r <= first + more; ++r)
            steep_[column * rows_ + r] += 1.0 / static_cast<double>(more + 1);
    }

    /// Lines between rows a[i] and b[i], which are numbered from 1; 0 and rows + 1 lie outside.
    void AddMany(std::size_t column, std::span<const std::int16_t> a, std::span<const std::int16_t> b)
    {
        std::array<std::uint16_t, kTogether> places;
        std::uint32_t* const counts = Of(column);
        for (std::size_t begin = 0; begin < a.size(); begin += kTogether) {
            const std::size_t count = std::min(kTogether, a.size() - begin);
            const std::int16_t* const as = a.data() + begin;
            const std::int16_t* const bs = b.data() + begin;
            const std::int16_t most = Maths::FastestTraceLoops().placesOf(
                as, bs, count, static_cast<std::int16_t>(kSpans), kSteep, places.data());
            // Neighbours often share a cell, and each would wait for the one before: they count apart.
            std::size_t i = 0;
            for (; i + kApart <= count; i += kApart)
                for (std::size_t k = 0; k < kApart; ++k)
                    ++counts[kApart * static_cast<std::size_t>(places[i + k]) + k];
            for (; i < count; ++i)
                ++counts[kApart * static_cast<std::size_t>(places[i])];
            if (most < kSteep)
                continue;
            for (i = 0; i < count; ++i)
                if (std::min(as[i], bs[i]) > 0 && static_cast<std::size_t>(std::max(as[i], bs[i])) <= rows_ &&
                    std::abs(as[i] - bs[i]) >= kSteep)
                    Add(column, static_cast<std::size_t>(as[i]) - 1, static_cast<std::size_t>(bs[i]) - 1);
        }
    }

    /// What falls to each row of a column: a steep line passes through several, each of which has its share.
    std::vector<double> SharesOf(std::size_t column)
    {
        const auto from = steep_.begin() + static_cast<std::ptrdiff_t>(column * rows_);
        std::vector<double> shares(from, from + static_cast<std::ptrdiff_t>(rows_));
        const std::uint32_t* const counts = Of(column);
        for (std::size_t first = 0; first < rows_; ++first)
            for (std::size_t more = 0; more + 1 < kSpans && first + more < rows_; ++more) {
                const std::uint32_t* const apart = counts + PlaceOf(first, more);
                const double share = std::accumulate(apart, apart + kApart, 0.0) / static_cast<double>(more + 1);
                for (std::size_t r = first; r <= first + more; ++r)
                    shares[r] += share;
            }
        return shares;
    }

    /// The most rows that AddMany can number.
    static constexpr std::size_t kMostRows = 4000;

private:
    static constexpr std::size_t kSpans = 8;  // 0 to 6 more rows; lines through 8 and more are added up one by one
    static constexpr std::int16_t kSteep = 7;
    static constexpr std::size_t kTogether = 512;
    static constexpr std::size_t kApart = 4;  // counts of each place, which are added up in the end

    std::size_t Pitch() const { return kApart * (rows_ + 2) * kSpans; }
    // Counts for each row, from 1, and span; rows 0 and rows + 1 hold what lies outside.
    std::uint32_t* Of(std::size_t column) { return counts_.data() + column * Pitch(); }
    static std::size_t PlaceOf(std::size_t row, std::size_t more) { return kApart * ((row + 1) * kSpans + more); }

    std::size_t rows_;
    std::vector<std::uint32_t> counts_;
    std::vector<double> steep_;
};

// Draws the lines from value to value of pieces of a waveform into one UI of a picture.
class TraceDrawing {
public:
    /// @param valuesPerUi  of the waveform
    TraceDrawing(VoltageRange range, std::size_t columns, std::size_t rows, double valuesPerUi)
        : range_(range),
          rows_(rows),
          half_(columns / 2),
          rowsPerVolt_(static_cast<double>(rows - 1) / (range.high - range.low)),
          columnsPerValue_(static_cast<double>(columns) / kEyeSpanUi / valuesPerUi),
          counts_(half_, rows)
    {
    }

    /// @param firstUi  [UI] of value 0 from the left edge or any edge of a UI there, 0 or more
    void Add(std::span<const double> values, double firstUi)
    {
        for (std::size_t k = 0; k + 1 < values.size(); ++k)
            ForColumns(ShiftOf(firstUi) + static_cast<double>(k) * columnsPerValue_,
                       [&](std::size_t column, double part, double next) {
                           const auto rowAt = [&](double along) {
                               return (values[k] + along * (values[k + 1] - values[k]) - range_.low) * rowsPerVolt_;
                           };
                           const double a = rowAt(part);
                           const double b = rowAt(next);
                           // Between the samples the waveform may leave their range.
                           if (std::min(a, b) >= 0.0 && std::max(a, b) < static_cast<double>(rows_))
                               counts_.Add(column, static_cast<std::size_t>(a), static_cast<std::size_t>(b));
                       });
    }

    /// Whole UI of as many values each, of which each column shows the same places: column by column.
    /// @param phases   values 0 to valuesPerUi of the first UI: phases[j] has one for each UI, uiCount in all
    /// @param firstUi  [UI] of value 0, as for Add
    void AddWhole(std::span<const std::vector<double>> phases, std::size_t uiCount, double firstUi)
    {
        std::vector<std::int16_t> here(uiCount);
        std::vector<std::int16_t> there(uiCount);
        for (std::size_t j = 0; j + 1 < phases.size(); ++j) {
            bool isFirst = true;  // of the line; the others begin where the one before has ended
            ForColumns(ShiftOf(firstUi) + static_cast<double>(j) * columnsPerValue_,
                       [&](std::size_t column, double part, double next) {
                           std::swap(here, there);
                           if (std::exchange(isFirst, false))
                               RowsAt(phases[j], phases[j + 1], part, here);
                           RowsAt(phases[j], phases[j + 1], next, there);
                           counts_.AddMany(column, here, there);
                       });
        }
    }
    bool CanAddWhole() const { return rows_ <= TraceCounts::kMostRows; }

    /// Both UI of the picture, the second like the first.
    EyeImage Image()
    {
        EyeImage image{2 * half_, rows_, range_, std::vector<float>(2 * half_ * rows_, 0.0F)};
        std::vector<double> all(half_ * rows_);
        double most = 0.0;
        for (std::size_t column = 0; column < half_; ++column) {
            const std::vector<double> shares = counts_.SharesOf(column);
            for (std::size_t r = 0; r < rows_; ++r)
                all[r * half_ + column] = shares[r];
            most = std::max(most, *std::max_element(shares.begin(), shares.end()));
        }
        for (std::size_t r = 0; r < rows_ && most > 0.0; ++r)
            for (std::size_t column = 0; column < half_; ++column) {
                const float shade = std::pow(static_cast<float>(all[r * half_ + column] / most), kShade);
                image.shades[r * 2 * half_ + column] = shade;
                image.shades[r * 2 * half_ + column + half_] = shade;
            }
        return image;
    }

private:
    // [columns] of value 0
    double ShiftOf(double firstUi) const { return firstUi * static_cast<double>(2 * half_) / kEyeSpanUi; }

    // The columns on a line from value to value: what part of it lies before each, and before the next one.
    template <typename Visit>
    void ForColumns(double from, Visit visit)
    {
        const double to = from + columnsPerValue_;
        for (auto column = static_cast<std::size_t>(std::ceil(from)); static_cast<double>(column) < to; ++column) {
            const double part = (static_cast<double>(column) - from) / columnsPerValue_;
            visit(column % half_, part, std::min(1.0, part + 1.0 / columnsPerValue_));
        }
    }

    // Rows from 1; 0 and rows + 1 stand for all below and above.
    void RowsAt(const std::vector<double>& from, const std::vector<double>& to, double part,
                std::vector<std::int16_t>& rows) const
    {
        Maths::FastestTraceLoops().rowsAt({range_.low, rowsPerVolt_, static_cast<double>(rows_ + 1)}, from.data(),
                                          to.data(), part, rows.size(), rows.data());
    }

    VoltageRange range_;
    std::size_t rows_;
    std::size_t half_;
    double rowsPerVolt_;
    double columnsPerValue_;
    TraceCounts counts_;
};

// Whose values are read in order once more for each column: enough of them that its counts, which lie apart, seldom leave the
// first-level cache.
constexpr std::size_t kUiTogether = 8192;

// Values phase by phase in place of UI by UI.
// @param values  [uiCount + 1][pitch], of which the first valuesPerUi count; of the last UI the first
void Transpose(std::span<const double> values, std::size_t pitch, std::size_t uiCount,
               std::vector<std::vector<double>>& phases)
{
    const std::size_t valuesPerUi = phases.size() - 1;
    for (std::vector<double>& phase : phases)
        phase.resize(uiCount);
    for (std::size_t i = 0; i < uiCount; ++i) {
        for (std::size_t j = 0; j < valuesPerUi; ++j)
            phases[j][i] = values[i * pitch + j];
        phases[valuesPerUi][i] = values[(i + 1) * pitch];
    }
}

}  // namespace

VoltageRange RangeOf(std::span<const double> samples, std::span<const double> others)
{
    VoltageRange range{samples.front(), samples.front()};
    for (const auto& part : {samples, others}) {
        for (const double sample : part) {
            range.low = std::min(range.low, sample);
            range.high = std::max(range.high, sample);
        }
    }
    const double flat = kFlatRoom * std::max({std::abs(range.low), std::abs(range.high), kSmallestValue});
    const double room = std::max(kRoom * (range.high - range.low), flat);
    return {range.low - room, range.high + room};
}

EyeImage ShadeEye(std::span<const double> samples, double samplesPerUi, double phaseUi, VoltageRange range,
                  std::size_t columns, std::size_t rows)
{
    if (!AreFinite(samples))
        return {0, 0, range, {}};
    TraceDrawing drawing(range, columns, rows, samplesPerUi);
    std::size_t done = 0;  // UI
    if (samplesPerUi == std::floor(samplesPerUi) && drawing.CanAddWhole()) {
        const auto stride = static_cast<std::size_t>(samplesPerUi);
        const std::size_t uiCount = samples.empty() ? 0 : (samples.size() - 1) / stride;
        std::vector<std::vector<double>> phases(stride + 1);
        for (; done < uiCount; done += std::min(kUiTogether, uiCount - done)) {
            const std::size_t count = std::min(kUiTogether, uiCount - done);
            Transpose(samples.subspan(done * stride), stride, count, phases);
            drawing.AddWhole(phases, count, 1.0 - phaseUi);
        }
        done = uiCount * stride;
    }
    drawing.Add(samples.subspan(done), 1.0 - phaseUi);
    return drawing.Image();
}

EyeImage ShadeBetween(std::span<const double> samples, double samplesPerUi, double phaseUi, VoltageRange range,
                      std::size_t columns, std::size_t rows)
{
    constexpr std::size_t kValuesPerUi = ReadingGrid::kValuesPerUi;
    constexpr std::size_t kBlock = std::size_t{1} << 18U;
    const std::optional<ReadingGrid> grid = GridBetween(samples.size(), samplesPerUi);
    if (!grid || !AreFinite(samples))
        return ShadeEye(samples, samplesPerUi, phaseUi, range, columns, rows);
    const auto& [first, step, count] = *grid;
    TraceDrawing drawing(range, columns, rows, static_cast<double>(kValuesPerUi));
    std::size_t begin = 0;  // [values]
    if (samplesPerUi == std::floor(samplesPerUi) && drawing.CanAddWhole()) {
        const auto stride = static_cast<std::size_t>(samplesPerUi);
        std::vector<Maths::BandLimitedReading> readings;
        for (std::size_t k = 0; k < kValuesPerUi; ++k)
            readings.push_back(Maths::ReadingAt(first + static_cast<double>(k) * step));
        const Maths::BandLimitedPhases reader(readings);
        const std::size_t uiCount = (count - 1) / kValuesPerUi;
        std::vector<double> values((kUiTogether + 1) * reader.Pitch());
        std::vector<std::vector<double>> phases(kValuesPerUi + 1);
        for (std::size_t done = 0; done < uiCount; done += kUiTogether) {
            const std::size_t some = std::min(kUiTogether, uiCount - done);
            const double* const from = samples.data() + reader.FirstSample() + done * stride;
            reader.Read(from, stride, some, values.data());
            // Of the UI behind them the first value alone: the others may reach beyond the record.
            const std::size_t behind = reader.Pitch() * some;
            ReadBetween(samples, first + static_cast<double>((done + some) * stride), step, {&values[behind], 1});
            Transpose(values, reader.Pitch(), some, phases);
            drawing.AddWhole(phases, some, 1.0 - phaseUi);
        }
        begin = uiCount * kValuesPerUi;
    }
    std::vector<double> values;
    for (; begin + 1 < count; begin += kBlock) {
        const double position = first + static_cast<double>(begin) * step;
        values.resize(std::min(kBlock + 1, count - begin));  // the last one begins the next block
        ReadBetween(samples, position, step, values);
        const double ui = position / samplesPerUi;
        drawing.Add(values, 1.0 - phaseUi + ui - std::floor(ui));
    }
    return drawing.Image();
}

}  // namespace Tarnwick::DSO::Workbench

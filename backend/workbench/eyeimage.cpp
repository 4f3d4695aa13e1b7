#include "workbench/eyeimage.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

#include "maths/captures/bandlimited.h"
#include "maths/captures/traceloops.h"
#include "maths/transforms/alignedbuffer.h"
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
        if (more <= kMost) {
            ++Of(column, more)[first];
            return;
        }
        for (std::size_t r = first; r <= first + more; ++r)
            steep_[column * rows_ + r] += 1.0 / static_cast<double>(more + 1);
    }

    /// @param counts  of lines through `more` more rows than one, by their lowest row from `first` on
    void AddMany(std::size_t column, std::size_t more, std::size_t first, std::span<const std::uint16_t> counts)
    {
        std::uint32_t* const to = Of(column, more) + first;
        for (std::size_t k = 0; k < counts.size(); ++k)
            to[k] += counts[k];
    }

    /// What falls to each row of a column: a steep line passes through several, each of which has its share.
    std::vector<double> SharesOf(std::size_t column)
    {
        const auto from = steep_.begin() + static_cast<std::ptrdiff_t>(column * rows_);
        std::vector<double> shares(from, from + static_cast<std::ptrdiff_t>(rows_));
        for (std::size_t first = 0; first < rows_; ++first)
            for (std::size_t more = 0; more <= kMost && first + more < rows_; ++more) {
                const std::uint32_t count = Of(column, more)[first];
                if (count == 0)
                    continue;
                const double share = static_cast<double>(count) / static_cast<double>(more + 1);
                for (std::size_t r = first; r <= first + more; ++r)
                    shares[r] += share;
            }
        return shares;
    }

    static constexpr std::size_t kMost = 15;  // more rows; lines through yet more are added up one by one

private:
    std::size_t Pitch() const { return rows_ * (kMost + 1); }
    std::uint32_t* Of(std::size_t column, std::size_t more) { return counts_.data() + column * Pitch() + more * rows_; }

    std::size_t rows_;
    std::vector<std::uint32_t> counts_;
    std::vector<double> steep_;
};

// Lines through two columns, one behind the other, by the keys of Maths::TraceLoops. Those that occur lie close to each other, row by
// row, so that counts stay in the first-level cache, and one count serves two columns.
class KeyCounts {
public:
    explicit KeyCounts(std::size_t rows) : rows_(rows), pitch_(PitchOf(rows)), counts_((2 * kMiddle + 1) * pitch_, 0) {}

    /// Of the keys. Behind the rows there is room for lines that are not drawn together, in the row below row 0.
    static std::size_t PitchOf(std::size_t rows) { return (rows / kLine + 1) * kLine; }

    void Add(std::span<const std::int32_t> keys)
    {
        std::uint16_t* const middle = Middle();
        // Eight at a time: no key waits until the one before is counted.
        std::size_t i = 0;
        for (; i + 8 <= keys.size(); i += 8)
            for (const std::int32_t key :
                 {keys[i], keys[i + 1], keys[i + 2], keys[i + 3], keys[i + 4], keys[i + 5], keys[i + 6], keys[i + 7]})
                ++middle[key];
        for (; i < keys.size(); ++i)
            ++middle[keys[i]];
    }

    /// A column and the next one, `ratio` times as wide; none: the keys were those of one column.
    struct Pair {
        std::size_t column;
        std::optional<std::size_t> next;
        double ratio;
    };

    /// Moves the counts to those of the columns.
    /// @param steepest  rows that a line has risen or fallen in a column at most
    void MoveTo(TraceCounts& counts, const Pair& pair, std::ptrdiff_t steepest)
    {
        const auto& [column, next, ratio] = pair;
        for (std::ptrdiff_t d = -steepest; d <= steepest; ++d) {
            const double likely = ratio * static_cast<double>(d);
            const std::ptrdiff_t least =
                next ? static_cast<std::ptrdiff_t>(std::ceil(likely - ratio - 1.0 - kSlack)) : 0;
            const std::ptrdiff_t most =
                next ? static_cast<std::ptrdiff_t>(std::floor(likely + ratio + 1.0 + kSlack)) : 0;
            for (std::ptrdiff_t e = std::max(least, -steepest); e <= std::min(most, steepest); ++e) {
                std::uint16_t* const line = Middle() + (4 * d + e) * static_cast<std::ptrdiff_t>(pitch_);
                unsigned any = 0;
                for (std::size_t row = 0; row < rows_; ++row)
                    any |= line[row];
                if (any == 0)
                    continue;
                // Lowest rows of the lines that leave a column in row 0, 1 ...
                const auto first = static_cast<std::size_t>(std::max({d, -e, std::ptrdiff_t{0}}));
                const std::span<const std::uint16_t> some(line + first, rows_ - first);
                counts.AddMany(column, static_cast<std::size_t>(std::abs(d)),
                               first - static_cast<std::size_t>(std::max(d, std::ptrdiff_t{0})), some);
                if (next)
                    counts.AddMany(*next, static_cast<std::size_t>(std::abs(e)),
                                   first - static_cast<std::size_t>(std::max(-e, std::ptrdiff_t{0})), some);
                std::fill_n(line, rows_, std::uint16_t{0});
            }
        }
    }

    static constexpr std::size_t kMostLines = 65535;  // that may be added before they are moved

private:
    static constexpr double kSlack = 1e-6;                              // of a row, for the rounding of the ratio
    static constexpr std::size_t kMiddle = 5 * TraceCounts::kMost + 2;  // of the numbers 4 d + e, which lie about 0
    static constexpr std::size_t kLine = 32;                            // counts in 64 bytes

    std::uint16_t* Middle() { return counts_.data() + kMiddle * pitch_; }

    std::size_t rows_;
    std::size_t pitch_;
    std::vector<std::uint16_t> counts_;
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
          counts_(half_, rows),
          keyCounts_(kColumnsTogether / 2, KeyCounts(CanAddWhole() ? rows : 0)),
          keys_(kColumnsTogether / 2 * kLinesTogether)
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
                           AddIfInside(column, rowAt(part), rowAt(next));
                       });
    }

    /// Whole UI of as many values each, of which each column shows the same places: two columns at a time.
    /// @param phases   values 0 to valuesPerUi of the first UI: phases[j] has one for each UI, uiCount in all
    /// @param uiCount  up to KeyCounts::kMostLines
    /// @param firstUi  [UI] of value 0, as for Add
    void AddWhole(std::span<const double* const> phases, std::size_t uiCount, double firstUi)
    {
        std::vector<Crossing> crossings;
        for (std::size_t j = 0; j + 1 < phases.size(); ++j) {
            crossings.clear();
            ForColumns(ShiftOf(firstUi) + static_cast<double>(j) * columnsPerValue_,
                       [&](std::size_t column, double part, double next) {
                           crossings.push_back({column, crossings.empty() ? part : crossings.back().end, next});
                       });
            const std::span<const Crossing> all(crossings);
            for (std::size_t c = 0; c < all.size(); c += kColumnsTogether)
                AddLines({phases[j], uiCount}, {phases[j + 1], uiCount},
                         all.subspan(c, std::min(kColumnsTogether, all.size() - c)));
        }
    }

    /// Whether there was no value among those of whole UI that is infinite or not a number.
    bool AreAllFinite() const { return areAllFinite_; }

    /// Whether rows are so few, and so much wider than the rounding of values, that AddWhole can number them.
    bool CanAddWhole() const
    {
        constexpr std::size_t kMostRows = 4000;
        return rows_ > 1 && rows_ <= kMostRows && rowsPerVolt_ > 0.0 && std::isfinite(rowsPerVolt_) &&
               Rounding() * rowsPerVolt_ < kEdge;
    }

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
    // [V] of values on a line within the picture
    double Rounding() const
    {
        return 4.0 * std::numeric_limits<double>::epsilon() * std::max(std::abs(range_.low), std::abs(range_.high));
    }

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

    // The part of a line from value to value that lies in a column.
    struct Crossing {
        std::size_t column;
        double begin;
        double end;
    };

    // Lines from a[i] to b[i] through columns one behind the other, all of them equally wide but the last one of a line.
    void AddLines(std::span<const double> a, std::span<const double> b, std::span<const Crossing> crossings)
    {
        const double columnsPerLine = std::max(1.0, columnsPerValue_);
        const Maths::TraceRows picture{
            range_.low,
            rowsPerVolt_,
            range_.low + kEdge / rowsPerVolt_,
            range_.low + (static_cast<double>(rows_) - kEdge) / rowsPerVolt_,
            (static_cast<double>(TraceCounts::kMost) - kEdge) / rowsPerVolt_ * columnsPerLine,
            30 - static_cast<int>(std::bit_width(rows_ + 1)),
            Rounding() * rowsPerVolt_};
        std::array<double, kColumnsTogether + 1> parts{crossings.front().begin};
        for (std::size_t c = 0; c < crossings.size(); ++c)
            parts[c + 1] = crossings[c].end;
        const Maths::TraceParts columns{parts.data(), crossings.size()};
        const std::size_t pairs = (crossings.size() + 1) / 2;
        double steepest = 0.0;
        for (std::size_t begin = 0; begin < a.size(); begin += kLinesTogether) {
            const std::size_t count = std::min(kLinesTogether, a.size() - begin);
            const Maths::TraceKinds kinds =
                Maths::FastestTraceLoops().keysOf(picture, columns, &a[begin], &b[begin], count,
                                                  static_cast<std::int32_t>(KeyCounts::PitchOf(rows_)), keys_.data());
            steepest = std::max(steepest, kinds.steepest);
            const std::span<const std::int32_t> keys(keys_);
            for (std::size_t pair = 0; pair < pairs; ++pair)
                keyCounts_[pair].Add(keys.subspan(pair * count, count));
            for (std::size_t i = 0; !kinds.areAll && i < count; ++i)
                if (keys[i] == Maths::kOtherLine)
                    AddLine(a[begin + i], b[begin + i], crossings);
        }
        const auto most = std::min(static_cast<std::ptrdiff_t>(steepest * rowsPerVolt_ / columnsPerLine + kEdge) + 1,
                                   static_cast<std::ptrdiff_t>(TraceCounts::kMost));
        for (std::size_t c = 0; c < crossings.size(); c += 2) {
            const Crossing& one = crossings[c];
            const bool isAlone = c + 1 == crossings.size();
            keyCounts_[c / 2].MoveTo(counts_,
                                     {one.column, isAlone ? std::nullopt : std::optional(crossings[c + 1].column),
                                      isAlone ? 0.0 : (crossings[c + 1].end - one.end) * columnsPerValue_},
                                     most);
        }
    }

    void AddLine(double a, double b, std::span<const Crossing> crossings)
    {
        areAllFinite_ = areAllFinite_ && std::isfinite(a) && std::isfinite(b);
        const auto rowAt = [&](double part) { return (a + part * (b - a) - range_.low) * rowsPerVolt_; };
        double here = rowAt(crossings.front().begin);
        for (const Crossing& crossing : crossings) {
            const double before = std::exchange(here, rowAt(crossing.end));
            AddIfInside(crossing.column, before, here);
        }
    }

    // Between the samples the waveform may leave their range.
    void AddIfInside(std::size_t column, double a, double b)
    {
        const auto end = static_cast<double>(rows_);
        if (a >= 0.0 && b >= 0.0 && a < end && b < end)
            counts_.Add(column, static_cast<std::size_t>(a), static_cast<std::size_t>(b));
    }

    static constexpr double kEdge = 1e-3;  // [rows] within which lines at the edge of the picture are drawn one by one
    static constexpr std::size_t kColumnsTogether = Maths::kMostTraceColumns;
    static constexpr std::size_t kLinesTogether = 1024;  // whose keys stay in the first-level cache

    VoltageRange range_;
    std::size_t rows_;
    std::size_t half_;
    double rowsPerVolt_;
    double columnsPerValue_;
    TraceCounts counts_;
    std::vector<KeyCounts> keyCounts_;  // of the columns that are counted together
    std::vector<std::int32_t> keys_;
    bool areAllFinite_ = true;
};

// Values of many UI, phase by phase; behind the last phase stands the first one of the next UI.
class PhaseValues {
public:
    /// @param phases   of a UI
    /// @param uiCount  in all; fewer may be held at a time
    PhaseValues(std::size_t phases, std::size_t uiCount)
        : uiCount_(std::min({std::max(kValues / phases / kLine, std::size_t{1}) * kLine,
                             KeyCounts::kMostLines / kLine * kLine, uiCount})),
          // An odd number of cache lines: phases lie apart in the cache too.
          pitch_(((uiCount_ / kLine + 1) | 1U) * kLine),
          values_(phases * pitch_)
    {
        for (std::size_t k = 0; k < phases; ++k)
            phases_.push_back(values_.Data() + k * pitch_);
        phases_.push_back(values_.Data() + 1);
    }

    std::size_t UiCount() const { return uiCount_; }
    std::span<double* const> Phases() const { return phases_; }

    /// @param samples  of UI that have as many as there are phases, and the first one behind them
    void Take(std::span<const double> samples, std::size_t uiCount)
    {
        const std::size_t stride = phases_.size() - 1;
        // A few UI at a time, whose samples stay in the first-level cache from phase to phase.
        for (std::size_t begin = 0; begin < uiCount; begin += kLine)
            for (std::size_t k = 0; k < stride; ++k)
                for (std::size_t i = begin; i < std::min(begin + kLine, uiCount); ++i)
                    phases_[k][i] = samples[i * stride + k];
        phases_.front()[uiCount] = samples[uiCount * stride];
    }

private:
    static constexpr std::size_t kValues = std::size_t{1} << 19U;  // 4 MiB
    static constexpr std::size_t kLine = 8;
    std::size_t uiCount_;
    std::size_t pitch_;
    Maths::AlignedBuffer<double> values_;
    std::vector<double*> phases_;
};

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
        PhaseValues values(stride, uiCount);
        for (; done < uiCount; done += values.UiCount()) {
            const std::size_t some = std::min(values.UiCount(), uiCount - done);
            values.Take(samples.subspan(done * stride), some);
            drawing.AddWhole(values.Phases(), some, 1.0 - phaseUi);
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
    constexpr std::size_t kUiTogether = 512;
    const std::optional<ReadingGrid> grid = GridBetween(samples.size(), samplesPerUi);
    if (!grid)
        return ShadeEye(samples, samplesPerUi, phaseUi, range, columns, rows);
    const auto& [first, step, count] = *grid;
    TraceDrawing drawing(range, columns, rows, static_cast<double>(kValuesPerUi));
    const bool hasWholeUi = samplesPerUi == std::floor(samplesPerUi) && drawing.CanAddWhole();
    const std::size_t uiCount = hasWholeUi ? (count - 1) / kValuesPerUi : 0;
    // What is not finite in whole UI is seen in the values about it.
    const auto firstSample = static_cast<std::size_t>(first);
    const auto stride = static_cast<std::size_t>(samplesPerUi);
    if (!AreFinite(samples.first(firstSample)) || !AreFinite(samples.subspan(firstSample + uiCount * stride)))
        return {0, 0, range, {}};
    std::size_t begin = 0;  // [values]
    if (hasWholeUi) {
        PhaseValues values(kValuesPerUi, uiCount);
        // Phases at samples first, then those between them: eight of the former are made of eight samples, not of 55.
        std::vector<Maths::BandLimitedReading> readings;
        std::vector<std::size_t> phases;
        for (const bool atSamples : {true, false})
            for (std::size_t k = 0; k < kValuesPerUi; ++k) {
                const Maths::BandLimitedReading reading = Maths::ReadingAt(first + static_cast<double>(k) * step);
                if ((reading.weights == nullptr) == atSamples) {
                    readings.push_back(reading);
                    phases.push_back(k);
                }
            }
        const Maths::BandLimitedPhases reader(readings);
        std::vector<double> unused(kUiTogether);
        std::vector<double*> to(reader.Pitch(), unused.data());
        for (std::size_t done = 0; done < uiCount; done += values.UiCount()) {
            const std::size_t some = std::min(values.UiCount(), uiCount - done);
            for (std::size_t i = 0; i < some; i += kUiTogether) {
                const std::size_t together = std::min(kUiTogether, some - i);
                const auto from = static_cast<std::size_t>(reader.FirstSample()) + (done + i) * stride;
                for (std::size_t k = 0; k < phases.size(); ++k)
                    to[k] = values.Phases()[phases[k]] + i;
                reader.ReadApart(&samples[from], stride, together, to);
            }
            values.Phases().front()[some] = samples[firstSample + (done + some) * stride];
            drawing.AddWhole(values.Phases(), some, 1.0 - phaseUi);
        }
        if (!drawing.AreAllFinite() && !AreFinite(samples))
            return {0, 0, range, {}};
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

#include "workbench/eyecounts.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "workbench/statistics.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kMostRows = 200;  // of an eye that is looked at by itself
constexpr double kColumnsPerRow = 1.6;
constexpr double kBytesOfAllEyes = 1.35e6;  // as they are coded; base64 makes four of three
constexpr std::size_t kMostRowEyes = 256;

// Counts the traces of a waveform that is known by values in equal steps, with lines between. A column's part of a trace reaches
// from its smallest to its largest value there.
class Counter {
public:
    // @param firstUi  [UI] of the first value, from the measuring phase of any UI before it
    Counter(EyeCounts& counts, double valuesPerUi, double firstUi)
        : counts_(counts),
          half_(counts.columns / 2),
          valuesPerColumn_(valuesPerUi / static_cast<double>(half_)),
          rowsPerVolt_(static_cast<double>(counts.rows) / (counts.range.high - counts.range.low)),
          firstColumn_(firstUi * static_cast<double>(half_)),
          column_(static_cast<std::int64_t>(std::ceil(firstColumn_))),
          place_((static_cast<std::size_t>(column_) + half_ - 1) % half_)
    {
    }

    // @param values  of which the first is the last of those before
    void Add(std::span<const double> values)
    {
        double edge = NextEdge();
        for (std::size_t k = 0; k + 1 < values.size(); ++k) {
            while (edge <= static_cast<double>(k + 1)) {
                const double value = values[k] + (edge - static_cast<double>(k)) * (values[k + 1] - values[k]);
                Extend(value);
                if (hasBegun_)
                    Hit(place_);
                hasBegun_ = true;
                place_ = place_ + 1 == half_ ? 0 : place_ + 1;
                low_ = value;
                high_ = value;
                ++column_;
                edge = NextEdge();
            }
            Extend(values[k + 1]);
        }
        before_ += static_cast<std::int64_t>(values.size()) - 1;
    }

private:
    // Where the next column begins, from the first of the values.
    double NextEdge() const
    {
        return (static_cast<double>(column_) - firstColumn_) * valuesPerColumn_ - static_cast<double>(before_);
    }

    void Extend(double value)
    {
        low_ = std::min(low_, value);
        high_ = std::max(high_, value);
    }

    void Hit(std::size_t column)
    {
        const double first = (low_ - counts_.range.low) * rowsPerVolt_;
        const double last = (high_ - counts_.range.low) * rowsPerVolt_;
        const auto end = static_cast<double>(counts_.rows);
        if (last < 0.0 || first >= end)
            return;
        const auto from = static_cast<std::int64_t>(std::max(first, 0.0));
        const auto to = static_cast<std::int64_t>(std::min(last, end - 1.0));
        std::size_t cell = static_cast<std::size_t>(from) * counts_.columns + column;
        for (std::int64_t row = from; row <= to; ++row, cell += counts_.columns)
            ++counts_.hits[cell];
    }

    EyeCounts& counts_;
    std::size_t half_;
    double valuesPerColumn_;
    double rowsPerVolt_;
    double firstColumn_;       // of the first value, from the measuring phase of some UI
    std::int64_t column_;      // the next one that begins
    std::size_t place_;        // in a UI, of the one that ends there
    std::int64_t before_ = 0;  // values
    bool hasBegun_ = false;    // the first column with all of its values
    double low_ = 0.0;         // [V] of the column so far
    double high_ = 0.0;
};

}  // namespace

EyeCounts CountEye(std::span<const double> samples, double samplesPerUi, double phaseUi, VoltageRange range,
                   EyeGrid grid)
{
    constexpr std::size_t kBlock = std::size_t{1} << 18U;
    if (samples.size() < 2 || !AreFinite(samples))
        return {};
    EyeCounts counts{grid.columns, grid.rows, range, std::vector<std::uint32_t>(grid.columns * grid.rows, 0)};
    const double firstUi = std::ceil(phaseUi) - phaseUi;  // of the start of any UI
    if (const auto between = GridBetween(samples.size(), samplesPerUi)) {
        Counter counter(counts, static_cast<double>(ReadingGrid::kValuesPerUi), firstUi);
        std::vector<double> values;
        for (std::size_t begin = 0; begin + 1 < between->count; begin += kBlock) {
            values.resize(std::min(kBlock + 1, between->count - begin));  // the last one begins the next block
            ReadBetween(samples, between->first + static_cast<double>(begin) * between->step, between->step, values);
            counter.Add(values);
        }
    } else {
        Counter counter(counts, samplesPerUi, firstUi);
        counter.Add(samples);
    }
    const std::size_t half = grid.columns / 2;
    for (auto row = counts.hits.begin(); row != counts.hits.end(); row += static_cast<std::ptrdiff_t>(grid.columns))
        std::copy_n(row, half, row + static_cast<std::ptrdiff_t>(half));
    return counts;
}

EyeGrid GridForReport(std::size_t eyes, std::size_t traces)
{
    // As they are coded, a cell takes as many bytes as its number has groups of 7 bits, or two for a run of empty cells.
    constexpr std::size_t kOneByte = 1U << 7U;
    constexpr std::size_t kTwoBytes = 1U << 14U;
    const double bytesPerCell = traces < kOneByte ? 1.5 : traces < kTwoBytes ? 2.0 : 3.0;
    const double cells = kBytesOfAllEyes / bytesPerCell / static_cast<double>(std::max<std::size_t>(eyes, 1));
    const auto rows =
        std::clamp<std::size_t>(static_cast<std::size_t>(std::sqrt(cells / kColumnsPerRow)), 1, kMostRows);
    return {std::max<std::size_t>(2 * static_cast<std::size_t>(0.5 * kColumnsPerRow * static_cast<double>(rows)), 2),
            rows};
}

RowEyes::RowEyes(std::size_t rows, Keep keep) : kept_(std::min(rows, kMostRowEyes)), keep_(keep) {}

void RowEyes::Add(const std::string& row, double figure, const EyeReport& report, std::span<const double> samples,
                  double samplesPerUi)
{
    {
        const std::lock_guard lock(mutex_);
        const auto before = eyes_.find(row);
        if (before != eyes_.end() ? before->second.figure <= figure : eyes_.size() == kept_ && !IsToMakeWay(figure))
            return;
    }
    const auto traces = static_cast<std::size_t>(static_cast<double>(samples.size()) / samplesPerUi);
    // A quarter of what it might be to look at: the table shows them small, and the file is to be mailed.
    EyeGrid grid = GridForReport(kept_, traces);
    constexpr std::size_t kMostSmallRows = 100;
    if (grid.rows > kMostSmallRows)
        grid = {static_cast<std::size_t>(kColumnsPerRow * kMostSmallRows), kMostSmallRows};
    Eye eye{figure, report, CountEye(samples, samplesPerUi, report.phaseUi, RangeOf(samples), grid)};
    eye.report.bathtub.clear();
    const std::lock_guard lock(mutex_);
    eyes_.insert_or_assign(row, std::move(eye));
    if (eyes_.size() <= kept_)
        return;
    const auto last = std::max_element(eyes_.begin(), eyes_.end(), [&](const auto& one, const auto& other) {
        return keep_ == Keep::Best ? one.second.figure > other.second.figure : one.second.figure < other.second.figure;
    });
    eyes_.erase(last);
}

// Whether one that is kept matters less.
bool RowEyes::IsToMakeWay(double figure) const
{
    return std::any_of(eyes_.begin(), eyes_.end(), [&](const auto& one) {
        return keep_ == Keep::Best ? one.second.figure < figure : one.second.figure > figure;
    });
}

const RowEyes::Eye* RowEyes::Find(const std::string& row) const
{
    const auto eye = eyes_.find(row);
    return eye == eyes_.end() ? nullptr : &eye->second;
}

}  // namespace Tarnwick::DSO::Workbench

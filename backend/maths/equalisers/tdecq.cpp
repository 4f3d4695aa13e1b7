#include "maths/equalisers/tdecq.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>

#include <Eigen/Core>
#include <Eigen/LU>

#include "maths/patterns/alignment.h"
#include "maths/patterns/idealsignal.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

// IEEE 802.3 clause 121.8.5
constexpr double kErrorRatio = 4.8e-4;  // largest symbol error ratio that the noise may cause
constexpr double kQt = 3.414;  // an ideal eye of four levels has that ratio when sigma is 1/kQt of half its opening
constexpr double kSliceOffset = 0.05;     // [UI] of the two time slices from the phase
constexpr std::size_t kMostLevels = 4;    // the clause is for PAM4; fewer are scored alike
constexpr std::size_t kCursorsTried = 3;  // the largest tap is tap 1, 2 or 3
// Choices of this search: the clause asks for the least TDECQ and leaves open how it is found.
constexpr std::size_t kPhases = 16;                                            // over one UI
constexpr std::array<double, 5> kNoiseLoads = {1e-4, 1e-3, 3e-3, 1e-2, 2e-2};  // of the capture's variance
constexpr std::size_t kBins = 64;                                              // of a level's histogram
constexpr double kSigmaPrecision = 1e-12;                                      // of the OMA
constexpr double kClosedDb = 50.0;                                             // [dB] scores of closed eyes start here
constexpr double kFirstEdge = 0.05;                                            // [UI] or tap weight, of a simplex
constexpr double kLastEdge = 0.01;                                             // [UI] or tap weight
constexpr double kFarthestPhase = 1.0;                                         // [UI]
constexpr double kFlatDb = 1e-3;         // [dB] a simplex that differs by no more has converged
constexpr double kLeastGainDb = 2e-3;    // [dB] for which it is restarted
constexpr int kMostTrials = 400;         // of a cursor
constexpr double kSimplexGainDb = 0.3;   // [dB] hardly ever more: a cursor that much behind is not searched
constexpr double kCursorGainDb = 0.012;  // [dB] for less the cursor of the best start stays: noise should not move it
// Autocorrelation of white noise behind the reference receiver, a fourth-order Bessel-Thomson response of half the symbol
// rate, at whole UI: the same for every rate.
constexpr std::array<double, 4> kNoiseCorrelation = {1.0, 0.02056, 0.00135, -0.00008};

double NoiseCorrelation(std::size_t lag)
{
    return lag < kNoiseCorrelation.size() ? kNoiseCorrelation[lag] : 0.0;
}

double NoiseGain(std::span<const double> taps)
{
    double power = 0.0;
    for (std::size_t j = 0; j < taps.size(); ++j)
        for (std::size_t k = 0; k < taps.size(); ++k)
            power += taps[j] * taps[k] * NoiseCorrelation(j > k ? j - k : k - j);
    return std::sqrt(std::max(power, 0.0));
}

double UpperTail(double z)
{
    return 0.5 * std::erfc(z / std::sqrt(2.0));
}

std::size_t LargestTap(std::span<const double> taps)
{
    return static_cast<std::size_t>(
        std::max_element(taps.begin(), taps.end(), [](double a, double b) { return std::abs(a) < std::abs(b); }) -
        taps.begin());
}

// Consecutive places in the order of the symbols, round the record's end.
struct Stretch {
    std::size_t first;
    std::size_t count;
};

// The capture without the mean of what counts, a sample a UI at any phase: that of symbol i at index i.
class Sampler {
public:
    Sampler(std::span<const double> capture, const ReferenceSymbols& symbols, std::size_t samplesPerUi,
            std::size_t ignoredUi)
        : samples_(capture.begin(), capture.end()),
          samplesPerUi_(samplesPerUi),
          firstCentre_(symbols.firstCentre),
          valid_{0, samples_.size() / samplesPerUi}
    {
        const std::size_t ends = ignoredUi == 0 ? 0 : ignoredUi + kTdecqReachUi;
        const auto inner = std::span(samples_).subspan(ends * samplesPerUi, samples_.size() - 2 * ends * samplesPerUi);
        const double mean = Mean(inner);
        for (double& sample : samples_)
            sample -= mean;
        variance_ =
            std::inner_product(inner.begin(), inner.end(), inner.begin(), 0.0) / static_cast<double>(inner.size());
        if (ends == 0)
            return;
        const std::size_t uiCount = valid_.count;
        const std::size_t offset = firstCentre_ / samplesPerUi % uiCount;
        valid_ = {(ends + uiCount - offset) % uiCount, uiCount - 2 * ends};
    }
    double Variance() const { return variance_; }
    /// The samples of At that are not ignored, at any phase.
    Stretch Valid() const { return valid_; }
    /// The symbols whose taps see nothing else.
    Stretch Counted(std::size_t taps, std::size_t cursor) const
    {
        const std::size_t uiCount = samples_.size() / samplesPerUi_;
        if (valid_.count == uiCount)
            return valid_;
        return {(valid_.first + taps - 1 + uiCount - cursor) % uiCount, valid_.count - (taps - 1)};
    }
    void At(double phaseUi, std::vector<double>& values) const
    {
        const std::size_t count = samples_.size();
        values.resize(count / samplesPerUi_);
        const double shift = phaseUi * static_cast<double>(samplesPerUi_);
        const double whole = std::floor(shift);
        const double fraction = shift - whole;
        std::size_t place = WrappedIndex(static_cast<long long>(firstCentre_) + static_cast<long long>(whole), count);
        for (double& value : values) {
            value = SampleBetween(samples_, place, fraction);
            place += samplesPerUi_;
            if (place >= count)
                place -= count;
        }
    }

private:
    std::vector<double> samples_;
    std::size_t samplesPerUi_;
    std::size_t firstCentre_;
    Stretch valid_;
    double variance_ = 0.0;
};

// y[i] = sum_j w_j v[(i + c - j) mod n]
void Equalise(std::span<const double> v, std::span<const double> taps, std::size_t cursor, std::vector<double>& y)
{
    y.assign(v.size(), 0.0);
    for (std::size_t j = 0; j < taps.size(); ++j)
        AddRotated(y, taps[j], v, static_cast<long long>(cursor) - static_cast<long long>(j));
}

// Calls back with each index of a stretch of a circular record, in its order.
template <typename Call>
void ForEach(Stretch stretch, std::size_t size, const Call& call)
{
    const std::size_t head = std::min(stretch.count, size - stretch.first);
    for (std::size_t i = stretch.first; i < stretch.first + head; ++i)
        call(i);
    for (std::size_t i = 0; i < stretch.count - head; ++i)
        call(i);
}

// The values of each level in one time slice, as histograms.
class Slice {
public:
    void Fill(std::span<const double> y, const ReferenceSymbols& symbols, Stretch counted)
    {
        levels_.assign(static_cast<std::size_t>(symbols.levelCount), {});
        ForEach(counted, y.size(), [&](std::size_t i) {
            Level& level = levels_[static_cast<std::size_t>(symbols.levels[i])];
            level.low = std::min(level.low, y[i]);
            level.high = std::max(level.high, y[i]);
        });
        ForEach(counted, y.size(), [&](std::size_t i) {
            Level& level = levels_[static_cast<std::size_t>(symbols.levels[i])];
            const double width = level.high - level.low;
            const double place = width > 0.0 ? (y[i] - level.low) / width * static_cast<double>(kBins) : 0.0;
            level.counts[std::min(static_cast<std::size_t>(place), kBins - 1)] += 1.0;
        });
        total_ = static_cast<double>(counted.count);
    }
    /// Share of symbols on the wrong side of a threshold when noise of this sigma is added; 0: none is.
    double ErrorRatio(double sigma, std::span<const double> thresholds) const
    {
        double errors = 0.0;
        for (std::size_t k = 0; k < levels_.size(); ++k) {
            const Level& level = levels_[k];
            const double step = (level.high - level.low) / static_cast<double>(kBins);
            for (std::size_t bin = 0; bin < kBins; ++bin) {
                if (level.counts[bin] == 0.0)
                    continue;
                const double value = level.low + (static_cast<double>(bin) + 0.5) * step;
                double share = 0.0;
                if (k > 0)
                    share += Beyond(value - thresholds[k - 1], sigma);
                if (k + 1 < levels_.size())
                    share += Beyond(thresholds[k] - value, sigma);
                errors += level.counts[bin] * share;
            }
        }
        return errors / total_;
    }

private:
    struct Level {
        double low = std::numeric_limits<double>::infinity();
        double high = -std::numeric_limits<double>::infinity();
        std::array<double, kBins> counts{};
    };
    // Probability that noise carries a value over a threshold `distance` away.
    static double Beyond(double distance, double sigma)
    {
        constexpr double kNever = 9.0;  // beyond it the probability is below 1e-18
        if (distance > kNever * sigma)
            return 0.0;
        return sigma > 0.0 ? UpperTail(distance / sigma) : 1.0;
    }

    std::vector<Level> levels_;
    double total_ = 0.0;
};

// The largest sigma below `high` at which a ratio that grows with it is at most kErrorRatio. Its logarithm is nearly a straight
// line over 1 / sigma^2: regula falsi (Illinois), a halving where the ratio is still 0.
template <typename ErrorRatio>
double LargestSigma(double high, const ErrorRatio& errorRatio)
{
    const auto excess = [&](double sigma) { return std::log(errorRatio(sigma) / kErrorRatio); };
    const double precision = kSigmaPrecision * high;
    double low = 0.0;
    double excessAtLow = -std::numeric_limits<double>::infinity();
    double excessAtHigh = excess(high);
    int side = 0;  // which the last step moved
    while (high - low > precision) {
        double sigma = 0.5 * (low + high);
        if (std::isfinite(excessAtLow)) {
            const double share = excessAtLow / (excessAtLow - excessAtHigh);
            const double inverse = 1.0 / (low * low);
            const double secant = 1.0 / std::sqrt(inverse + share * (1.0 / (high * high) - inverse));
            if (secant > low && secant < high)
                sigma = secant;
        }
        const double here = excess(sigma);
        if (std::abs(here) <= kSigmaPrecision)
            return sigma;
        if (here < 0.0) {
            if (side < 0)
                excessAtHigh *= 0.5;
            side = std::isfinite(excessAtLow) ? -1 : 0;
            low = sigma;
            excessAtLow = here;
        } else {
            if (side > 0)
                excessAtLow *= 0.5;
            side = 1;
            high = sigma;
            excessAtHigh = here;
        }
    }
    return low;
}

// Scores taps at a phase; what depends on the phase alone is kept.
class Scorer {
public:
    Scorer(const Sampler& sampler, const ReferenceSymbols& symbols) : sampler_(sampler), symbols_(symbols) {}

    EyeClosure Score(std::span<const double> taps, std::size_t cursor, double phaseUi)
    {
        if (phaseUi != phaseUi_) {
            sampler_.At(phaseUi, centre_);
            sampler_.At(phaseUi - kSliceOffset, before_);
            sampler_.At(phaseUi + kSliceOffset, after_);
            phaseUi_ = phaseUi;
        }
        const auto levels = static_cast<std::size_t>(symbols_.levelCount);
        Equalise(centre_, taps, cursor, y_);
        std::vector<double> sums(levels, 0.0);
        std::vector<double> counts(levels, 0.0);
        const Stretch counted = sampler_.Counted(taps.size(), cursor);
        const auto total = static_cast<double>(counted.count);
        ForEach(counted, y_.size(), [&](std::size_t i) {
            sums[static_cast<std::size_t>(symbols_.levels[i])] += y_[i];
            counts[static_cast<std::size_t>(symbols_.levels[i])] += 1.0;
        });
        const double mean = std::accumulate(sums.begin(), sums.end(), 0.0) / total;
        EyeClosure closure;
        closure.oma = sums.back() / counts.back() - sums.front() / counts.front();
        closure.noiseGain = NoiseGain(taps);
        const double spacing = closure.oma / static_cast<double>(levels - 1);
        const double middle = 0.5 * static_cast<double>(levels - 2);
        std::vector<double> thresholds(levels - 1);
        for (std::size_t k = 0; k + 1 < levels; ++k)
            thresholds[k] = mean + spacing * (static_cast<double>(k) - middle);
        double error = 0.0;
        ForEach(counted, y_.size(), [&](std::size_t i) {
            const double ideal = mean + spacing * (symbols_.levels[i] - 0.5 * static_cast<double>(levels - 1));
            error += (y_[i] - ideal) * (y_[i] - ideal);
        });

        Equalise(before_, taps, cursor, y_);
        early_.Fill(y_, symbols_, counted);
        Equalise(after_, taps, cursor, y_);
        late_.Fill(y_, symbols_, counted);
        const auto errorRatio = [&](double sigma) {
            return std::max(early_.ErrorRatio(sigma, thresholds), late_.ErrorRatio(sigma, thresholds));
        };
        closure.closed = !(closure.oma > 0.0) || errorRatio(0.0) > kErrorRatio;
        if (!closure.closed)
            closure.sigma = LargestSigma(closure.oma, errorRatio);
        const double ideal = 2.0 * static_cast<double>(levels - 1) * kQt;
        closure.tdecqDb = closure.sigma > 0.0
                              ? 10.0 * std::log10(closure.oma * closure.noiseGain / (ideal * closure.sigma))
                              : kClosedDb + error / total / (closure.oma * closure.oma);
        return closure;
    }

private:
    const Sampler& sampler_;
    const ReferenceSymbols& symbols_;
    double phaseUi_ = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> centre_, before_, after_, y_;
    Slice early_, late_;
};

// Means of x[m - j] y[m - k] over the rows m, each difference of j and k summed once; in one running sum where all rows count.
class RowMeans {
public:
    RowMeans(std::span<const double> x, std::span<const double> y, Stretch rows)
        : x_(x), y_(y), rows_(rows), products_(x, y, rows.count)
    {
    }
    double At(std::size_t j, std::size_t k)
    {
        const long long lag = static_cast<long long>(j) - static_cast<long long>(k);
        const auto count = static_cast<double>(rows_.count);
        if (rows_.count < x_.size())
            return products_.At(static_cast<long long>(rows_.first) - static_cast<long long>(j), lag) / count;
        const auto [place, isNew] = whole_.try_emplace(lag);
        if (isNew)
            place->second = CircularDotInOrder(x_, y_, lag) / count;
        return place->second;
    }

private:
    std::span<const double> x_;
    std::span<const double> y_;
    Stretch rows_;
    StretchProducts products_;
    std::map<long long, double> whole_;
};

// Least squares of the equalised samples v on scaled and shifted levels a, for taps that sum to 1. Every column of the
// regression is a rotation of v: the sums below are all it takes, whatever cursor and noise load. A row is the place m of the
// last sample that the taps see, its symbol the one at m - cursor.
class Regression {
public:
    /// @param rows  those whose taps see nothing that is ignored
    Regression(const std::vector<double>& v, const ReferenceSymbols& symbols, std::size_t taps, Stretch rows)
        : taps_(taps),
          a_(ScaledLevels(symbols)),
          ones_(v.size(), 1.0),
          itself_(v, v, rows),
          across_(a_, v, rows),
          meanV_(v, ones_, rows),
          meanA_(a_, ones_, rows),
          squareA_(a_, a_, rows)
    {
    }
    std::vector<double> Solve(std::size_t cursor, double load)
    {
        const auto n = static_cast<Eigen::Index>(taps_);
        Eigen::MatrixXd system = Eigen::MatrixXd::Zero(n + 3, n + 3);
        for (Eigen::Index j = 0; j < n; ++j) {
            const auto tap = static_cast<std::size_t>(j);
            for (Eigen::Index k = 0; k < n; ++k) {
                const auto [earlier, later] = std::minmax({tap, static_cast<std::size_t>(k)});
                system(j, k) = itself_.At(later, earlier) + load * NoiseCorrelation(later - earlier);
            }
            system(j, n) = system(n, j) = -across_.At(cursor, tap);
            system(j, n + 1) = system(n + 1, j) = -meanV_.At(tap, tap);
            system(j, n + 2) = system(n + 2, j) = 1.0;
        }
        system(n, n) = squareA_.At(cursor, cursor);
        system(n, n + 1) = system(n + 1, n) = meanA_.At(cursor, cursor);
        system(n + 1, n + 1) = 1.0;
        Eigen::VectorXd right = Eigen::VectorXd::Zero(n + 3);
        right(n + 2) = 1.0;
        const Eigen::VectorXd solution = system.partialPivLu().solve(right);
        return {solution.begin(), solution.begin() + n};
    }

private:
    static std::vector<double> ScaledLevels(const ReferenceSymbols& symbols)
    {
        std::vector<double> a(symbols.levels.size());
        for (std::size_t i = 0; i < a.size(); ++i)
            a[i] = 2.0 * symbols.levels[i] / (symbols.levelCount - 1.0) - 1.0;
        return a;
    }

    std::size_t taps_;
    std::vector<double> a_, ones_;
    RowMeans itself_, across_, meanV_, meanA_, squareA_;
};

double PhaseUi(std::size_t k)
{
    return static_cast<double>(k) / static_cast<double>(kPhases) - 0.5;
}

// Simplex search (J. A. Nelder, R. Mead, "A simplex method for function minimization", 1965) on the taps beside the cursor,
// which makes the sum 1, and the phase.
class SimplexSearch {
public:
    SimplexSearch(Scorer& scorer, ReferenceEqualizer& best) : scorer_(scorer), best_(best) {}

    /// A collapsed simplex is restarted where it ended, until that gains nothing.
    void Run()
    {
        double before = std::numeric_limits<double>::infinity();
        double edge = kFirstEdge;
        while (trials_ < kMostTrials && before - best_.closure.tdecqDb > kLeastGainDb) {
            before = best_.closure.tdecqDb;
            Begin(edge);
            while (trials_ < kMostTrials && vertices_.back().tdecqDb - vertices_.front().tdecqDb > kFlatDb)
                Step();
            edge = std::max(edge / 2.0, kLastEdge);
        }
    }

private:
    struct Vertex {
        std::vector<double> place;  // the taps, but the phase where the cursor is
        double tdecqDb;
    };

    Vertex At(std::vector<double> place)
    {
        ++trials_;
        ReferenceEqualizer trial{place, best_.cursor, place[best_.cursor], {}};
        trial.taps[trial.cursor] = 0.0;
        trial.taps[trial.cursor] = 1.0 - std::accumulate(trial.taps.begin(), trial.taps.end(), 0.0);
        if (LargestTap(trial.taps) != trial.cursor || std::abs(trial.phaseUi) > kFarthestPhase)
            return {std::move(place), std::numeric_limits<double>::infinity()};
        trial.closure = scorer_.Score(trial.taps, trial.cursor, trial.phaseUi);
        const double tdecqDb = trial.closure.tdecqDb;
        if (tdecqDb < best_.closure.tdecqDb)
            best_ = std::move(trial);
        return {std::move(place), tdecqDb};
    }

    // `reach` times as far from b as b is from a, on the other side of it.
    static std::vector<double> Beyond(std::span<const double> a, std::span<const double> b, double reach)
    {
        std::vector<double> place(b.begin(), b.end());
        for (std::size_t k = 0; k < place.size(); ++k)
            place[k] += reach * (b[k] - a[k]);
        return place;
    }

    void Begin(double edge)
    {
        std::vector<double> place = best_.taps;
        place[best_.cursor] = best_.phaseUi;
        vertices_ = {{place, best_.closure.tdecqDb}};
        for (std::size_t k = 0; k < place.size(); ++k) {
            std::vector<double> corner = place;
            corner[k] += edge;
            vertices_.push_back(At(std::move(corner)));
        }
        Sort();
    }

    void Sort() { std::ranges::stable_sort(vertices_, {}, &Vertex::tdecqDb); }

    void Step()
    {
        const Vertex& first = vertices_.front();
        Vertex& last = vertices_.back();
        std::vector<double> middle(first.place.size(), 0.0);
        for (std::size_t v = 0; v + 1 < vertices_.size(); ++v)
            for (std::size_t k = 0; k < middle.size(); ++k)
                middle[k] += vertices_[v].place[k] / static_cast<double>(middle.size());
        Vertex reflected = At(Beyond(last.place, middle, 1.0));
        if (reflected.tdecqDb < first.tdecqDb) {
            Vertex expanded = At(Beyond(last.place, middle, 2.0));
            last = std::move(expanded.tdecqDb < reflected.tdecqDb ? expanded : reflected);
        } else if (reflected.tdecqDb < vertices_[vertices_.size() - 2].tdecqDb) {
            last = std::move(reflected);
        } else {
            const bool isOutside = reflected.tdecqDb < last.tdecqDb;
            Vertex contracted = At(Beyond(last.place, middle, isOutside ? 0.5 : -0.5));
            if (contracted.tdecqDb < std::min(reflected.tdecqDb, last.tdecqDb)) {
                last = std::move(contracted);
            } else {
                for (std::size_t v = 1; v < vertices_.size(); ++v)
                    vertices_[v] = At(Beyond(vertices_[v].place, first.place, -0.5));
            }
        }
        Sort();
    }

    Scorer& scorer_;
    ReferenceEqualizer& best_;
    std::vector<Vertex> vertices_;  // one more than there are places, the best first
    int trials_ = 0;
};

// The symbols that a waveform of held symbols stands for. UI boundaries lie where it steps most; the level of a UI is
// read at its middle.
std::optional<ReferenceSymbols> SymbolsOfReference(std::span<const double> reference, std::size_t samplesPerUi)
{
    std::vector<double> steps(samplesPerUi, 0.0);
    for (std::size_t i = 0; i < reference.size(); ++i)
        steps[i % samplesPerUi] += std::abs(reference[i] - reference[i == 0 ? reference.size() - 1 : i - 1]);
    const auto boundary = static_cast<std::size_t>(std::max_element(steps.begin(), steps.end()) - steps.begin());

    ReferenceSymbols symbols;
    symbols.firstCentre = boundary + samplesPerUi / 2;
    std::vector<double> values(reference.size() / samplesPerUi);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = reference[(symbols.firstCentre + i * samplesPerUi) % reference.size()];
    std::vector<double> distinct = values;
    std::sort(distinct.begin(), distinct.end());
    // Levels that went through the same sums in another order differ in their last bits.
    const double close = 1e-9 * (distinct.back() - distinct.front());
    distinct.erase(
        std::unique(distinct.begin(), distinct.end(), [close](double a, double b) { return b - a <= close; }),
        distinct.end());
    if (distinct.size() < 2 || distinct.size() > kMostLevels)
        return std::nullopt;
    symbols.levelCount = static_cast<int>(distinct.size());
    for (const double value : values)
        symbols.levels.push_back(
            static_cast<int>(std::upper_bound(distinct.begin(), distinct.end(), value + close) - distinct.begin()) - 1);
    return symbols;
}

// Whether a symbol is left that counts when the ends are ignored.
bool LeavesSymbols(std::size_t uiCount, std::size_t taps, std::size_t ignoredUi)
{
    return ignoredUi == 0 || (ignoredUi < uiCount && uiCount + 1 > 2 * (ignoredUi + kTdecqReachUi) + taps);
}

// Moves the symbols to where the capture has them; in an inverted one the lowest level is the highest.
void Align(ReferenceSymbols& symbols, const Alignment& alignment)
{
    symbols.firstCentre += alignment.lag;
    if (alignment.isInverted)
        for (int& level : symbols.levels)
            level = symbols.levelCount - 1 - level;
}

}  // namespace

std::optional<ReferenceSymbols> SymbolsOfPattern(std::span<const int> pattern, std::size_t uiCount,
                                                 std::size_t samplesPerUi)
{
    std::vector<int> used(pattern.begin(), pattern.end());
    std::sort(used.begin(), used.end());
    used.erase(std::unique(used.begin(), used.end()), used.end());
    if (used.size() < 2 || used.size() > kMostLevels)
        return std::nullopt;
    ReferenceSymbols symbols{{}, static_cast<int>(used.size()), samplesPerUi / 2};
    symbols.levels.resize(uiCount);
    for (std::size_t i = 0; i < symbols.levels.size(); ++i) {
        const auto level = std::lower_bound(used.begin(), used.end(), pattern[i % pattern.size()]);
        symbols.levels[i] = static_cast<int>(level - used.begin());
    }
    return symbols;
}

std::optional<ReferenceSymbols> LocatePattern(std::span<const double> capture, std::span<const int> pattern,
                                              std::size_t samplesPerUi, std::size_t ignoredUi)
{
    std::optional<ReferenceSymbols> symbols = SymbolsOfPattern(pattern, capture.size() / samplesPerUi, samplesPerUi);
    const std::size_t ends = ignoredUi * samplesPerUi;
    if (2 * ends >= capture.size())
        return std::nullopt;
    if (symbols) {
        const std::vector<double> held = IdealSignal(symbols->levels, {-1.0, 1.0, symbols->levelCount},
                                                     static_cast<double>(samplesPerUi), capture.size());
        Align(*symbols, ends == 0 ? AlignmentOf(capture, held) : AlignmentOf(WithoutMean(capture, ends), held));
    }
    return symbols;
}

std::optional<ReferenceSymbols> LocateReference(std::span<const double> capture, std::span<const double> reference,
                                                std::size_t samplesPerUi)
{
    std::optional<ReferenceSymbols> symbols = SymbolsOfReference(reference, samplesPerUi);
    if (symbols)
        Align(*symbols, AlignmentOf(capture, reference));
    return symbols;
}

EyeClosure MeasureClosure(std::span<const double> capture, const ReferenceSymbols& symbols, std::size_t samplesPerUi,
                          std::span<const double> taps, std::size_t ignoredUi)
{
    ReferenceEqualizer best{{taps.begin(), taps.end()}, LargestTap(taps), 0.0, {}};
    best.closure.tdecqDb = std::numeric_limits<double>::infinity();
    if (!LeavesSymbols(capture.size() / samplesPerUi, taps.size(), ignoredUi))
        return best.closure;
    const Sampler sampler(capture, symbols, samplesPerUi, ignoredUi);
    Scorer scorer(sampler, symbols);
    for (std::size_t k = 0; k < kPhases; ++k) {
        const EyeClosure closure = scorer.Score(taps, best.cursor, PhaseUi(k));
        if (closure.tdecqDb < best.closure.tdecqDb)
            best.closure = closure;
    }
    return best.closure;
}

std::optional<ReferenceEqualizer> FindReferenceEqualizer(std::span<const double> capture,
                                                         const ReferenceSymbols& symbols, std::size_t samplesPerUi,
                                                         std::size_t numberOfTaps, std::optional<std::size_t> cursor,
                                                         std::size_t ignoredUi)
{
    if (!LeavesSymbols(capture.size() / samplesPerUi, numberOfTaps, ignoredUi))
        return std::nullopt;
    const Sampler sampler(capture, symbols, samplesPerUi, ignoredUi);
    Scorer scorer(sampler, symbols);
    const std::size_t first = cursor.value_or(0);
    const std::size_t last = cursor.value_or(std::min(kCursorsTried, numberOfTaps) - 1);
    std::vector<ReferenceEqualizer> ofCursor(last + 1);
    for (ReferenceEqualizer& none : ofCursor)
        none.closure.tdecqDb = std::numeric_limits<double>::infinity();
    std::vector<double> v;
    for (std::size_t k = 0; k < kPhases; ++k) {
        sampler.At(PhaseUi(k), v);
        // At cursor 0 a symbol's place is that of its row.
        Regression regression(v, symbols, numberOfTaps, sampler.Counted(numberOfTaps, 0));
        for (std::size_t c = first; c <= last; ++c) {
            for (const double load : kNoiseLoads) {
                std::vector<double> taps = regression.Solve(c, load * sampler.Variance());
                if (!std::all_of(taps.begin(), taps.end(), [](double tap) { return std::isfinite(tap); }) ||
                    LargestTap(taps) != c)
                    continue;
                const EyeClosure closure = scorer.Score(taps, c, PhaseUi(k));
                if (closure.tdecqDb < ofCursor[c].closure.tdecqDb)
                    ofCursor[c] = {std::move(taps), c, PhaseUi(k), closure};
            }
        }
    }
    const auto leastFirst = [](const ReferenceEqualizer& a, const ReferenceEqualizer& b) {
        return a.closure.tdecqDb < b.closure.tdecqDb;
    };
    std::ranges::stable_sort(ofCursor, leastFirst);
    const double worthTryingDb = ofCursor.front().closure.tdecqDb + kSimplexGainDb;
    for (ReferenceEqualizer& start : ofCursor)
        if (!start.taps.empty() && start.closure.tdecqDb <= worthTryingDb)
            SimplexSearch(scorer, start).Run();
    ReferenceEqualizer best = ofCursor.front();
    const ReferenceEqualizer& least = *std::ranges::min_element(ofCursor, leastFirst);
    if (least.closure.tdecqDb < best.closure.tdecqDb - kCursorGainDb)
        best = least;
    if (best.taps.empty())
        return std::nullopt;
    // The search keeps the sum to rounding; what is handed out has it as near to 1 as doubles come.
    const double sum = std::accumulate(best.taps.begin(), best.taps.end(), 0.0);
    best.taps[best.cursor] += 1.0 - sum;
    return best;
}

}  // namespace Tarnwick::DSO::Maths

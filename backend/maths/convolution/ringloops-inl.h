// The loops of RingTransform (ringtransform.h). Included by hotloops-inl.h, once for each target.

namespace Tarnwick::DSO::Maths {

namespace {

namespace TARNWICK_LOOP_TARGET {

// ---- between sequences and rows

// values[at .. at + kPack - 1] of a sequence whose values past its end are zeros and whose values in front of its start
// are those a length later times `wrap`, as far as there are any.
TARNWICK_ALWAYS_INLINE void LoadExtended(const double* values, std::size_t count, std::ptrdiff_t at, double wrap,
                                         Pack& to)
{
    const auto length = static_cast<std::ptrdiff_t>(count);
    constexpr auto lanes = static_cast<std::ptrdiff_t>(kPack);
    if (at >= 0 && at + lanes <= length) {
        Load(values + at, to);
        return;
    }
    if (at + lanes <= 0 && at + length >= 0) {
        Load(values + at + length, to);
        to = wrap * to;
        return;
    }
    double some[kPack] = {};
    for (std::ptrdiff_t c = at; c < at + lanes; ++c) {
        if (c >= 0 && c < length)
            some[c - at] = values[c];
        else if (c < 0 && c + length >= 0)
            some[c - at] = wrap * values[c + length];
    }
    Load(some, to);
}

// To values[at .. at + kPack - 1], those of them that lie in the sequence.
TARNWICK_ALWAYS_INLINE void StoreExtended(const Pack& from, std::ptrdiff_t at, std::size_t count, double* values)
{
    const auto length = static_cast<std::ptrdiff_t>(count);
    constexpr auto lanes = static_cast<std::ptrdiff_t>(kPack);
    if (at >= 0 && at + lanes <= length) {
        Store(from, values + at);
        return;
    }
    double some[kPack];
    Store(from, some);
    for (std::ptrdiff_t c = at; c < at + lanes; ++c)
        if (c >= 0 && c < length)
            values[c] = some[c - at];
}

// The values from `column` on of input row t. z^M = -i: the upper half of 2 M real ones enters as -i times its values.
TARNWICK_ALWAYS_INLINE void LoadInput(const RingPlan& plan, const RealInput& input, std::size_t t, std::size_t column,
                                      Pack& real, Pack& imag)
{
    const auto at = static_cast<std::ptrdiff_t>(t * plan.rowLength + column) - static_cast<std::ptrdiff_t>(input.gap);
    Pack low;
    Pack high;
    LoadExtended(input.values, input.count, at, input.wrap, low);
    LoadExtended(input.values, input.count, at + static_cast<std::ptrdiff_t>(plan.rowCount * plan.rowLength),
                 input.wrap, high);
    real = plan.inputReal[t] * low + plan.inputImag[t] * high;
    imag = plan.inputImag[t] * low - plan.inputReal[t] * high;
}

TARNWICK_ALWAYS_INLINE void LoadInput(const RingPlan& plan, const ComplexInput& input, std::size_t t,
                                      std::size_t column, Pack& real, Pack& imag)
{
    const auto at = static_cast<std::ptrdiff_t>(t * plan.rowLength + column) - static_cast<std::ptrdiff_t>(input.gap);
    LoadExtended(input.real, input.count, at, 1.0, real);
    LoadExtended(input.imag, input.count, at, 1.0, imag);
    if (at >= 0)
        return;
    // In front of the start: times the complex factor, in the lanes that lie there.
    double wrapReal[kPack];
    double wrapImag[kPack];
    for (std::size_t c = 0; c < kPack; ++c) {
        const bool isInFront = at + static_cast<std::ptrdiff_t>(c) < 0;
        wrapReal[c] = isInFront ? input.wrapReal : 1.0;
        wrapImag[c] = isInFront ? input.wrapImag : 0.0;
    }
    Pack factorReal;
    Pack factorImag;
    Load(wrapReal, factorReal);
    Load(wrapImag, factorImag);
    const Pack rotated = factorReal * real - factorImag * imag;
    imag = factorReal * imag + factorImag * real;
    real = rotated;
}

TARNWICK_ALWAYS_INLINE void LoadInput(const RingPlan& plan, const PairsInput& input, std::size_t t, std::size_t column,
                                      Pack& real, Pack& imag)
{
    const double* from = Parts(input.values) + 2 * (t * plan.rowLength + column);
    double first[kPack];
    double second[kPack];
    TARNWICK_UNROLL
    for (std::size_t c = 0; c < kPack; ++c) {
        first[c] = from[2 * c];
        second[c] = from[2 * c + 1];
    }
    Load(input.isImaginaryFirst ? second : first, real);
    Load(input.isImaginaryFirst ? first : second, imag);
}

// The values from `column` on of output row t.
TARNWICK_ALWAYS_INLINE void StoreOutput(const RingPlan& plan, const Pack& real, const Pack& imag, std::size_t t,
                                        std::size_t column, const RealOutput& output)
{
    const auto at = static_cast<std::ptrdiff_t>(t * plan.rowLength + column) - static_cast<std::ptrdiff_t>(output.gap);
    if (at + static_cast<std::ptrdiff_t>(kPack) > 0)
        StoreExtended(plan.inputReal[t] * real + plan.inputImag[t] * imag, at, output.count, output.values);
    StoreExtended(plan.inputImag[t] * real - plan.inputReal[t] * imag,
                  at + static_cast<std::ptrdiff_t>(plan.rowCount * plan.rowLength), output.count, output.values);
}

TARNWICK_ALWAYS_INLINE void StoreOutput(const RingPlan& plan, const Pack& real, const Pack& imag, std::size_t t,
                                        std::size_t column, const ComplexOutput& output)
{
    const auto at = static_cast<std::ptrdiff_t>(t * plan.rowLength + column) - static_cast<std::ptrdiff_t>(output.gap);
    StoreExtended(real, at, output.count, output.real);
    StoreExtended(imag, at, output.count, output.imag);
}

// kPack rows lie side by side: of each column the real parts, then the imaginary parts.
inline constexpr std::size_t kColumn = 2 * kPack;  // [doubles]

struct ToRows {
    template <std::size_t Q, typename Input>
    TARNWICK_ALWAYS_INLINE static void Run(const RingPlan& plan, const Input& input, double* rows)
    {
        for (std::size_t column = 0; column < plan.rowLength; column += kLine) {
            Pack real[kPacksPerLine][Q];
            Pack imag[kPacksPerLine][Q];
            // A cache line of each row at a time: rows may lie a large power of two apart and compete for cache sets.
            for (std::size_t t = 0; t < Q; ++t)
                for (std::size_t part = 0; part < kPacksPerLine; ++part)
                    LoadInput(plan, input, t, column + part * kPack, real[part][t], imag[part][t]);
            for (std::size_t part = 0; part < kPacksPerLine; ++part) {
                ForwardComplex<Q>(real[part], imag[part]);
                double* to = rows + (column + part * kPack) * kColumn;
                for (std::size_t k = 0; k < Q; k += kPack, to += plan.groupPitch) {
                    Pack sideReal[kPack];
                    Pack sideImag[kPack];
                    TARNWICK_UNROLL
                    for (std::size_t lane = 0; lane < kPack; ++lane) {
                        sideReal[lane] = real[part][DigitReversed<Q>(k + lane)];
                        sideImag[lane] = imag[part][DigitReversed<Q>(k + lane)];
                    }
                    Transpose(sideReal);
                    Transpose(sideImag);
                    TARNWICK_UNROLL
                    for (std::size_t c = 0; c < kPack; ++c) {
                        Store(sideReal[c], to + c * kColumn);
                        Store(sideImag[c], to + c * kColumn + kPack);
                    }
                }
            }
        }
    }
};

struct FromRows {
    template <std::size_t Q, typename Output>
    TARNWICK_ALWAYS_INLINE static void Run(const RingPlan& plan, const double* rows, const Output& output)
    {
        for (std::size_t column = 0; column < plan.rowLength; column += kLine) {
            Pack real[kPacksPerLine][Q];
            Pack imag[kPacksPerLine][Q];
            for (std::size_t part = 0; part < kPacksPerLine; ++part) {
                const double* from = rows + (column + part * kPack) * kColumn;
                for (std::size_t k = 0; k < Q; k += kPack, from += plan.groupPitch) {
                    Pack sideReal[kPack];
                    Pack sideImag[kPack];
                    TARNWICK_UNROLL
                    for (std::size_t c = 0; c < kPack; ++c) {
                        Load(from + c * kColumn, sideReal[c]);
                        Load(from + c * kColumn + kPack, sideImag[c]);
                    }
                    Transpose(sideReal);
                    Transpose(sideImag);
                    TARNWICK_UNROLL
                    for (std::size_t lane = 0; lane < kPack; ++lane) {
                        real[part][DigitReversed<Q>(k + lane)] = sideReal[lane];
                        imag[part][DigitReversed<Q>(k + lane)] = sideImag[lane];
                    }
                }
                BackwardComplex<Q>(real[part], imag[part]);
            }
            for (std::size_t t = 0; t < Q; ++t)
                for (std::size_t part = 0; part < kPacksPerLine; ++part)
                    StoreOutput(plan, real[part][t], imag[part][t], t, column + part * kPack, output);
        }
    }
};

inline void RealToRows(const RingPlan& plan, const RealInput& input, double* rows)
{
    ForRowCount<ToRows, kPack, kMostRingRows>(plan.rowCount, plan, input, rows);
}

inline void ComplexToRows(const RingPlan& plan, const ComplexInput& input, double* rows)
{
    ForRowCount<ToRows, kPack, kMostRingRows>(plan.rowCount, plan, input, rows);
}

inline void PairsToRows(const RingPlan& plan, const PairsInput& input, double* rows)
{
    ForRowCount<ToRows, kPack, kMostRingRows>(plan.rowCount, plan, input, rows);
}

inline void BinsToPairs(const RingPlan& plan, const double* rows, const std::size_t* order, const PairsOutput& output)
{
    const std::size_t first = output.isImaginaryFirst ? kPack : 0;
    for (std::size_t column = 0; column < plan.rowLength; ++column) {
        double* to = Parts(output.values) + 2 * plan.rowCount * order[column];
        const double* from = rows + column * kColumn;
        for (std::size_t k = 0; k < plan.rowCount; k += kPack, from += plan.groupPitch, to += kColumn) {
            TARNWICK_UNROLL
            for (std::size_t lane = 0; lane < kPack; ++lane) {
                to[2 * lane] = from[first + lane];
                to[2 * lane + 1] = from[kPack - first + lane];
            }
        }
    }
}

inline void RealFromRows(const RingPlan& plan, const double* rows, const RealOutput& output)
{
    ForRowCount<FromRows, kPack, kMostRingRows>(plan.rowCount, plan, rows, output);
}

inline void ComplexFromRows(const RingPlan& plan, const double* rows, const ComplexOutput& output)
{
    ForRowCount<FromRows, kPack, kMostRingRows>(plan.rowCount, plan, rows, output);
}

// ---- along the rows

// w, w^2 .. w^(P - 1) of the ring z^n = w^P, that of one row in each lane.
template <std::size_t P>
struct Powers {
    Pack real[P - 1];
    Pack imag[P - 1];
};

template <std::size_t P>
TARNWICK_ALWAYS_INLINE void LoadPowers(const double* root, Powers<P>& w)
{
    Load(root, w.real[0]);
    Load(root + kPack, w.imag[0]);
    TARNWICK_UNROLL
    for (std::size_t m = 1; m + 1 < P; ++m) {
        const std::size_t a = (m - 1) / 2;  // w^(m + 1) = w^(a + 1) w^(m - a)
        const std::size_t b = m - 1 - a;
        w.real[m] = w.real[a] * w.real[b] - w.imag[a] * w.imag[b];
        w.imag[m] = w.real[a] * w.imag[b] + w.imag[a] * w.real[b];
    }
}

// One column of P blocks, in place: the remainders of the P factors of z^n - w^P.
template <std::size_t P>
TARNWICK_ALWAYS_INLINE void Divide(const double* block, std::size_t stride, const Powers<P>& w, Pack* real, Pack* imag)
{
    Load(block, real[0]);
    Load(block + kPack, imag[0]);
    TARNWICK_UNROLL
    for (std::size_t t = 1; t < P; ++t) {
        Pack x;
        Pack y;
        Load(block + t * stride, x);
        Load(block + t * stride + kPack, y);
        real[t] = x * w.real[t - 1] - y * w.imag[t - 1];
        imag[t] = x * w.imag[t - 1] + y * w.real[t - 1];
    }
    FewPoints<P, false>(real, imag);
}

// And back, times P.
template <std::size_t P>
TARNWICK_ALWAYS_INLINE void Unite(Pack* real, Pack* imag, const Powers<P>& w, double* block, std::size_t stride)
{
    FewPoints<P, true>(real, imag);
    Store(real[0], block);
    Store(imag[0], block + kPack);
    TARNWICK_UNROLL
    for (std::size_t t = 1; t < P; ++t) {
        Store(real[t] * w.real[t - 1] + imag[t] * w.imag[t - 1], block + t * stride);
        Store(imag[t] * w.real[t - 1] - real[t] * w.imag[t - 1], block + t * stride + kPack);
    }
}

template <std::size_t P>
TARNWICK_ALWAYS_INLINE void DivideBlocks(double* block, std::size_t stride, const Powers<P>& w)
{
    for (double* column = block; column < block + stride; column += kColumn) {
        Pack real[P];
        Pack imag[P];
        Divide<P>(column, stride, w, real, imag);
        TARNWICK_UNROLL
        for (std::size_t t = 0; t < P; ++t) {
            Store(real[t], column + t * stride);
            Store(imag[t], column + t * stride + kPack);
        }
    }
}

template <std::size_t P>
TARNWICK_ALWAYS_INLINE void UniteBlocks(double* block, std::size_t stride, const Powers<P>& w)
{
    for (double* column = block; column < block + stride; column += kColumn) {
        Pack real[P];
        Pack imag[P];
        TARNWICK_UNROLL
        for (std::size_t t = 0; t < P; ++t) {
            Load(column + t * stride, real[t]);
            Load(column + t * stride + kPack, imag[t]);
        }
        Unite<P>(real, imag, w, column, stride);
    }
}

// The last level, four values: without a spectrum their bins, else their product with it, back in order.
TARNWICK_ALWAYS_INLINE void Leaf(double* block, const double* root, const double* spectrum)
{
    Powers<4> w;
    LoadPowers<4>(root, w);
    Pack real[4];
    Pack imag[4];
    Divide<4>(block, kColumn, w, real, imag);
    if (spectrum == nullptr) {
        TARNWICK_UNROLL
        for (std::size_t t = 0; t < 4; ++t) {
            Store(real[t], block + t * kColumn);
            Store(imag[t], block + t * kColumn + kPack);
        }
        return;
    }
    TARNWICK_UNROLL
    for (std::size_t t = 0; t < 4; ++t) {
        Pack x;
        Pack y;
        Load(spectrum + t * kColumn, x);
        Load(spectrum + t * kColumn + kPack, y);
        const Pack product = real[t] * x - imag[t] * y;
        imag[t] = real[t] * y + imag[t] * x;
        real[t] = product;
    }
    Unite<4>(real, imag, w, block, kColumn);
}

inline void Walk(const RingLevel* level, double* block, const double* root, const double* spectrum);

// Depth first: a part is finished in the first-level cache before the next is touched.
template <std::size_t P>
inline void WalkBy(const RingLevel* level, double* block, const double* root, const double* spectrum)
{
    Powers<P> w;
    LoadPowers<P>(root, w);
    const RingLevel* const next = level + 1;
    const std::size_t stride = next->length * kColumn;
    DivideBlocks<P>(block, stride, w);
    const double* nextRoot = root + kColumn;
    for (std::size_t j = 0; j < P; ++j) {
        const double* const part = spectrum == nullptr ? nullptr : spectrum + j * stride;
        if (next->length == 4)
            Leaf(block + j * stride, nextRoot, part);
        else
            Walk(next, block + j * stride, nextRoot, part);
        nextRoot += next->nodes * kColumn;
    }
    if (spectrum != nullptr)
        UniteBlocks<P>(block, stride, w);
}

inline void Walk(const RingLevel* level, double* block, const double* root, const double* spectrum)
{
    switch (level->radix) {
        case 2: WalkBy<2>(level, block, root, spectrum); break;
        case 3: WalkBy<3>(level, block, root, spectrum); break;
        case 5: WalkBy<5>(level, block, root, spectrum); break;
        default: WalkBy<4>(level, block, root, spectrum);
    }
}

inline void RowsToBins(const RingPlan& plan, double* rows)
{
    for (std::size_t group = 0; group < plan.rowCount / kPack; ++group)
        Walk(plan.levels, rows + group * plan.groupPitch, plan.roots + group * plan.levels->nodes * kColumn, nullptr);
}

inline void MultiplyRows(const RingPlan& plan, const double* spectrum, double* rows)
{
    for (std::size_t group = 0; group < plan.rowCount / kPack; ++group)
        Walk(plan.levels, rows + group * plan.groupPitch, plan.roots + group * plan.levels->nodes * kColumn,
             spectrum + group * plan.rowLength * kColumn);
}

}  // namespace TARNWICK_LOOP_TARGET

}  // namespace

}  // namespace Tarnwick::DSO::Maths

// Short transforms of packs. Included by hotloops-inl.h, once for each target, behind the packs and the tables of roots.

namespace Tarnwick::DSO::Maths {

namespace {

namespace TARNWICK_LOOP_TARGET {

TARNWICK_ALWAYS_INLINE double* Parts(Complex* values)
{
    return reinterpret_cast<double*>(values);
}

TARNWICK_ALWAYS_INLINE const double* Parts(const Complex* values)
{
    return reinterpret_cast<const double*>(values);
}

// ---- transforms of a few points, one in each lane

TARNWICK_ALWAYS_INLINE void TwoPoint(Pack& a, Pack& b)
{
    const Pack difference = a - b;
    a = a + b;
    b = difference;
}

// In place of elements 0, step, 2 step and 3 step, with exp(-i ..) or, back, with exp(+i ..).
template <bool Back>
TARNWICK_ALWAYS_INLINE void FourPoint(Pack* real, Pack* imag, std::size_t step)
{
    const Pack sumReal = real[0] + real[2 * step];
    const Pack sumImag = imag[0] + imag[2 * step];
    const Pack differenceReal = real[0] - real[2 * step];
    const Pack differenceImag = imag[0] - imag[2 * step];
    const Pack oddReal = real[step] + real[3 * step];
    const Pack oddImag = imag[step] + imag[3 * step];
    const Pack crossReal = real[step] - real[3 * step];
    const Pack crossImag = imag[step] - imag[3 * step];
    constexpr std::size_t first = Back ? 3 : 1;
    constexpr std::size_t third = Back ? 1 : 3;
    real[0] = sumReal + oddReal;
    imag[0] = sumImag + oddImag;
    real[2 * step] = sumReal - oddReal;
    imag[2 * step] = sumImag - oddImag;
    real[first * step] = differenceReal + crossImag;
    imag[first * step] = differenceImag - crossReal;
    real[third * step] = differenceReal - crossImag;
    imag[third * step] = differenceImag + crossReal;
}

// An odd number of points in place: pairs of elements t and P - t share their products with the cosines and sines.
template <std::size_t P, bool Back>
TARNWICK_ALWAYS_INLINE void OddPoint(Pack* real, Pack* imag)
{
    constexpr std::size_t kPairs = P / 2;
    Pack sumReal[kPairs];
    Pack sumImag[kPairs];
    Pack differenceReal[kPairs];
    Pack differenceImag[kPairs];
    const Pack firstReal = real[0];
    const Pack firstImag = imag[0];
    TARNWICK_UNROLL
    for (std::size_t t = 0; t < kPairs; ++t) {
        sumReal[t] = real[t + 1] + real[P - 1 - t];
        sumImag[t] = imag[t + 1] + imag[P - 1 - t];
        differenceReal[t] = real[t + 1] - real[P - 1 - t];
        differenceImag[t] = imag[t + 1] - imag[P - 1 - t];
        real[0] = real[0] + sumReal[t];
        imag[0] = imag[0] + sumImag[t];
    }
    TARNWICK_UNROLL
    for (std::size_t k = 1; k <= kPairs; ++k) {
        Pack evenReal = firstReal;
        Pack evenImag = firstImag;
        Pack oddReal = {};
        Pack oddImag = {};
        TARNWICK_UNROLL
        for (std::size_t t = 0; t < kPairs; ++t) {
            const double cosine = OddRoots<P>::cosine[k * (t + 1) % P];
            const double sine = Back ? -OddRoots<P>::sine[k * (t + 1) % P] : OddRoots<P>::sine[k * (t + 1) % P];
            evenReal = evenReal + cosine * sumReal[t];
            evenImag = evenImag + cosine * sumImag[t];
            oddReal = oddReal + sine * differenceImag[t];
            oddImag = oddImag + sine * differenceReal[t];
        }
        real[k] = evenReal - oddReal;
        imag[k] = evenImag + oddImag;
        real[P - k] = evenReal + oddReal;
        imag[P - k] = evenImag - oddImag;
    }
}

// P points in place, in order.
template <std::size_t P, bool Back>
TARNWICK_ALWAYS_INLINE void FewPoints(Pack* real, Pack* imag)
{
    if constexpr (P == 2) {
        TwoPoint(real[0], real[1]);
        TwoPoint(imag[0], imag[1]);
    } else if constexpr (P == 4) {
        FourPoint<Back>(real, imag, 1);
    } else {
        OddPoint<P, Back>(real, imag);
    }
}

// ---- short transforms down the columns, Q points, over one table of roots

// Times exp(-2 pi i n / Q), or its conjugate where the direction is -1.
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void Rotate(Pack& real, Pack& imag, std::size_t n, double direction)
{
    const double cosine = kRoots.cosine[n * (kMostRows / Q)];
    const double sine = direction * kRoots.sine[n * (kMostRows / Q)];
    const Pack rotated = cosine * real - sine * imag;
    imag = cosine * imag + sine * real;
    real = rotated;
}

// Where bin k of a complex transform in place ends up: its digits, base 4, backwards.
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE constexpr std::size_t DigitReversed(std::size_t bin)
{
    if constexpr (Q <= 2)
        return bin;
    else
        return bin % 4 * (Q / 4) + DigitReversed<Q / 4>(bin / 4);
}

// Complex values in place, radix 4: in order to digit-reversed ...
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void ForwardComplex(Pack* real, Pack* imag)
{
    if constexpr (Q == 2) {
        TwoPoint(real[0], real[1]);
        TwoPoint(imag[0], imag[1]);
    } else if constexpr (Q >= 4) {
        constexpr std::size_t step = Q / 4;
        FourPoint<false>(real, imag, step);
        for (std::size_t n = 1; n < step; ++n) {
            FourPoint<false>(real + n, imag + n, step);
            for (std::size_t m = 1; m < 4; ++m)
                Rotate<Q>(real[n + m * step], imag[n + m * step], m * n, 1.0);
        }
        for (std::size_t m = 0; m < 4; ++m)
            ForwardComplex<step>(real + m * step, imag + m * step);
    }
}

// ... and back.
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void BackwardComplex(Pack* real, Pack* imag)
{
    if constexpr (Q == 2) {
        TwoPoint(real[0], real[1]);
        TwoPoint(imag[0], imag[1]);
    } else if constexpr (Q >= 4) {
        constexpr std::size_t step = Q / 4;
        for (std::size_t m = 0; m < 4; ++m)
            BackwardComplex<step>(real + m * step, imag + m * step);
        FourPoint<true>(real, imag, step);
        for (std::size_t n = 1; n < step; ++n) {
            for (std::size_t m = 1; m < 4; ++m)
                Rotate<Q>(real[n + m * step], imag[n + m * step], m * n, -1.0);
            FourPoint<true>(real + n, imag + n, step);
        }
    }
}

// Real values `stride` apart to bins 0 .. Q/2, radix 2: half the work of the complex transform.
template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void ForwardReal(const Pack* values, std::size_t stride, Pack* real, Pack* imag)
{
    if constexpr (Q == 2) {
        real[0] = values[0] + values[stride];
        real[1] = values[0] - values[stride];
        imag[0] = Pack{};
        imag[1] = Pack{};
    } else {
        Pack evenReal[Q / 4 + 1];
        Pack evenImag[Q / 4 + 1];
        Pack oddReal[Q / 4 + 1];
        Pack oddImag[Q / 4 + 1];
        ForwardReal<Q / 2>(values, 2 * stride, evenReal, evenImag);
        ForwardReal<Q / 2>(values + stride, 2 * stride, oddReal, oddImag);
        for (std::size_t k = 0; k <= Q / 4; ++k) {
            const std::size_t mirror = Q / 2 - k;
            Rotate<Q>(oddReal[k], oddImag[k], k, 1.0);
            real[mirror] = evenReal[k] - oddReal[k];
            imag[mirror] = oddImag[k] - evenImag[k];
            real[k] = evenReal[k] + oddReal[k];
            imag[k] = evenImag[k] + oddImag[k];
        }
    }
}

template <std::size_t Q>
TARNWICK_ALWAYS_INLINE void BackwardReal(const Pack* real, const Pack* imag, Pack* values, std::size_t stride)
{
    if constexpr (Q == 2) {
        values[0] = real[0] + real[1];
        values[stride] = real[0] - real[1];
    } else {
        Pack evenReal[Q / 4 + 1];
        Pack evenImag[Q / 4 + 1];
        Pack oddReal[Q / 4 + 1];
        Pack oddImag[Q / 4 + 1];
        for (std::size_t k = 0; k <= Q / 4; ++k) {
            const std::size_t mirror = Q / 2 - k;
            evenReal[k] = real[k] + real[mirror];
            evenImag[k] = imag[k] - imag[mirror];
            oddReal[k] = real[k] - real[mirror];
            oddImag[k] = imag[k] + imag[mirror];
            Rotate<Q>(oddReal[k], oddImag[k], k, -1.0);
        }
        BackwardReal<Q / 2>(evenReal, evenImag, values, 2 * stride);
        BackwardReal<Q / 2>(oddReal, oddImag, values + stride, 2 * stride);
    }
}

// Calls the loop that is compiled for this number of rows, a power of two from Q to Most.
template <typename Loop, std::size_t Q, std::size_t Most, typename... Arguments>
TARNWICK_ALWAYS_INLINE void ForRowCount(std::size_t rowCount, const Arguments&... arguments)
{
    if constexpr (Q < Most) {
        if (rowCount != Q) {
            ForRowCount<Loop, 2 * Q, Most>(rowCount, arguments...);
            return;
        }
    }
    Loop::template Run<Q>(arguments...);
}

}  // namespace TARNWICK_LOOP_TARGET

}  // namespace

}  // namespace Tarnwick::DSO::Maths

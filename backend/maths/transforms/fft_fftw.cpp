// FFTW 3 behind the seam. Plans are made with FFTW_ESTIMATE: measured plans differ from process to process, and so
// would the results. FFTW's planner may not be entered by two threads (that corrupts the heap), so plans are made and
// destroyed under one mutex; they are executed through the new-array calls, which need none. fftw_cleanup is never
// called: it would invalidate plans in use.
#include <climits>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>

#include <fftw3.h>

#include "maths/transforms/fft.h"
#include "maths/transforms/lengths.h"
#include "maths/transforms/lifetimes.h"
#include "maths/transforms/plancache.h"

namespace Tarnwick::DSO::Maths {

namespace {

std::mutex& PlannerMutex()
{
    static NeverDestroyed<std::mutex> mutex;
    return *mutex;
}

fftw_complex* Raw(Complex* data)
{
    return reinterpret_cast<fftw_complex*>(data);  // std::complex guarantees this layout
}

int PlanLength(std::size_t length)
{
    if (length > INT_MAX)
        throw std::invalid_argument("FFT: length is " + std::to_string(length) +
                                    "; expected at most 2147483647 values");
    return static_cast<int>(length);
}

class Plan {
public:
    template <typename Make>
    explicit Plan(Make make)
    {
        const std::lock_guard lock(PlannerMutex());
        plan_ = make();
        if (plan_ == nullptr)
            throw std::bad_alloc();
    }
    Plan(const Plan&) = delete;
    Plan& operator=(const Plan&) = delete;
    ~Plan()
    {
        const std::lock_guard lock(PlannerMutex());
        fftw_destroy_plan(plan_);
    }
    fftw_plan Get() const { return plan_; }

private:
    fftw_plan plan_ = nullptr;
};

class FftwReal final : public RealTransform {
public:
    FftwReal(int length, double* values, Complex* bins)
        : forward_([=] { return fftw_plan_dft_r2c_1d(length, values, Raw(bins), FFTW_ESTIMATE); }),
          inverse_([=] { return fftw_plan_dft_c2r_1d(length, Raw(bins), values, FFTW_ESTIMATE); })
    {
    }
    void Forward(double* values, Complex* bins) const override
    {
        fftw_execute_dft_r2c(forward_.Get(), values, Raw(bins));
    }
    void Inverse(Complex* bins, double* values) const override
    {
        fftw_execute_dft_c2r(inverse_.Get(), Raw(bins), values);
    }

private:
    Plan forward_;
    Plan inverse_;
};

class FftwComplex final : public ComplexTransform {
public:
    FftwComplex(int length, Complex* data)
        : forward_([=] { return fftw_plan_dft_1d(length, Raw(data), Raw(data), FFTW_FORWARD, FFTW_ESTIMATE); }),
          inverse_([=] { return fftw_plan_dft_1d(length, Raw(data), Raw(data), FFTW_BACKWARD, FFTW_ESTIMATE); })
    {
    }
    void Forward(Complex* data) const override { fftw_execute_dft(forward_.Get(), Raw(data), Raw(data)); }
    void Inverse(Complex* data) const override { fftw_execute_dft(inverse_.Get(), Raw(data), Raw(data)); }

private:
    Plan forward_;
    Plan inverse_;
};

}  // namespace

std::shared_ptr<const RealTransform> RealTransform::Of(std::size_t length)
{
    RequireRealLength(length);
    static NeverDestroyed<PlanCache<RealTransform>> cache;
    return cache->Get(length, [length] {
        // With FFTW_ESTIMATE the planner looks at the arrays' alignment and does not write to them.
        AlignedBuffer<double> values(length);
        AlignedBuffer<Complex> bins(length / 2 + 1);
        return std::make_shared<FftwReal>(PlanLength(length), values.Data(), bins.Data());
    });
}

std::shared_ptr<const ComplexTransform> ComplexTransform::Of(std::size_t length)
{
    RequireComplexLength(length);
    static NeverDestroyed<PlanCache<ComplexTransform>> cache;
    return cache->Get(length, [length] {
        AlignedBuffer<Complex> data(length);
        return std::make_shared<FftwComplex>(PlanLength(length), data.Data());
    });
}

}  // namespace Tarnwick::DSO::Maths

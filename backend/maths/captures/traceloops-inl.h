// The loops of traceloops.h, included once for each target as hotloops-inl.h is, and with the same care: nothing of std:: is called.

namespace Tarnwick::DSO::Maths {

namespace {

namespace TARNWICK_LOOP_TARGET {

inline void RowsAt(const TraceRows& picture, const double* a, const double* b, double part, std::size_t count,
                   std::int16_t* __restrict rows)
{
    const double low = picture.low;
    const double rowsPerVolt = picture.rowsPerVolt;
    const double beyond = picture.beyond;
    for (std::size_t i = 0; i < count; ++i) {
        double row = (a[i] + part * (b[i] - a[i]) - low) * rowsPerVolt + 1.0;
        row = row > 0.0 ? row : 0.0;
        row = row < beyond ? row : beyond;
        rows[i] = static_cast<std::int16_t>(static_cast<std::int32_t>(row));
    }
}

inline std::int16_t PlacesOf(const std::int16_t* a, const std::int16_t* b, std::size_t count, std::int16_t spans,
                             std::int16_t steep, std::uint16_t* __restrict places)
{
    std::int16_t most = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::int16_t low = a[i] < b[i] ? a[i] : b[i];
        const std::int16_t high = a[i] < b[i] ? b[i] : a[i];
        const auto more = static_cast<std::int16_t>(high - low);
        most = more > most ? more : most;
        const auto span = static_cast<std::int16_t>(more < steep ? more : steep);
        places[i] = static_cast<std::uint16_t>(low * spans + span);
    }
    return most;
}

inline constexpr TraceLoops kLoops = {RowsAt, PlacesOf};

}  // namespace TARNWICK_LOOP_TARGET

}  // namespace

}  // namespace Tarnwick::DSO::Maths

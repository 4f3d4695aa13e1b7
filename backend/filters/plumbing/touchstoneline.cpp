#include "filters/plumbing/touchstoneline.h"

#include <stdexcept>

#include "framework/plumbing/error.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::Refuse;

void RefuseLine(const char* filter, const Maths::LineFailure& failure, const std::string& fileName, std::size_t line)
{
    using Reason = Maths::LineFailure::Reason;
    const std::string place = " in line " + std::to_string(line) + " of " + fileName;
    switch (failure.reason) {
        // Texts that hosts know, without a place. Deliberate.
        case Reason::InvalidNumber: throw std::invalid_argument("invalid stod argument");
        case Reason::NumberOutOfRange: throw std::out_of_range("stod argument out of range");
        case Reason::FrequencyNotANumber: Refuse(filter, "frequency" + place, "nan", "a number");
        case Reason::TooFewTokens: break;
    }
    Refuse(
        filter, "number of tokens" + place, failure.found,
        "at least " + std::to_string(failure.needed) + (failure.isOptions ? " in an option line" : " in a data line"));
}

}  // namespace Tarnwick::DSO::Filters

#include "workbench/pattern.h"

#include <algorithm>
#include <cstdint>

#include <fmt/format.h>

#include "maths/patterns/codings.h"
#include "maths/patterns/prbs.h"
#include "workbench/failure.h"
#include "workbench/plumbing/fields.h"

namespace Tarnwick::DSO::Workbench {

int LevelCount(E_SIGNAL_CODING coding)
{
    return Maths::LevelCount(coding);
}

std::vector<std::string> CodingNames()
{
    return NamesOf(Maths::kCodings);
}

E_SIGNAL_CODING CodingOf(std::string_view name)
{
    const Maths::Coding* const row = Maths::FindCoding(name);
    return row == nullptr ? SIGNAL_CODING_UNKNOWN : row->coding;
}

std::string PrbsSymbols(int order, E_SIGNAL_CODING coding, std::size_t count)
{
    const Maths::PrbsPolynomial* const polynomial = Maths::FindPrbs(order);
    if (polynomial == nullptr)
        throw UsageFailure(fmt::format("PRBS order is {}; expected 7, 9, 11, 13, 15, 23 or 31", order));
    const int levels = LevelCount(coding);
    if (levels != 2 && levels != 4)
        throw UsageFailure(
            fmt::format("a PRBS has no {} symbols; give them as a text", levels == 3 ? "PAM3" : "uncoded"));
    constexpr std::size_t kLongest = std::size_t{1} << 30U;
    const std::size_t period = polynomial->Period();
    const std::size_t length = count > 0 ? std::min(count, period) : period;
    if (length > kLongest)
        throw UsageFailure(
            fmt::format("PRBS{} has {} symbols; expected at most {}, a part of it", order, period, kLongest));
    const std::size_t bitsPerSymbol = levels == 2 ? 1 : 2;
    const std::vector<std::uint8_t> bits = Maths::PrbsBits(*polynomial, std::min(bitsPerSymbol * length, period));
    std::string symbols;
    symbols.reserve(length);
    for (std::size_t k = 0; k < length; ++k)
        symbols +=
            static_cast<char>('0' + (levels == 2 ? bits[k] : 2 * bits[2 * k % period] + bits[(2 * k + 1) % period]));
    return symbols;
}

std::vector<int> LevelsOf(std::string_view symbols, E_SIGNAL_CODING coding, bool withoutGrayCoding)
{
    const Maths::Coding* const row = Maths::FindCoding(coding);
    const auto map = withoutGrayCoding ? Maths::SymbolMap::Level : Maths::SymbolMap::Gray;
    const std::string_view alphabet = row == nullptr ? "0123456789" : row->Alphabet(map);
    const std::size_t foreign = symbols.find_first_not_of(alphabet);
    if (foreign != std::string_view::npos)
        throw UsageFailure(
            fmt::format("symbol {} is '{}'; expected a digit below {}", foreign, symbols[foreign], alphabet.size()));
    return Maths::LevelsOf(symbols, alphabet);
}

}  // namespace Tarnwick::DSO::Workbench

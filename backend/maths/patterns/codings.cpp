#include "maths/patterns/codings.h"

#include <algorithm>

namespace Tarnwick::DSO::Maths {

namespace {

template <typename Key>
const Coding* Find(Key Coding::*field, Key key)
{
    const auto* const row = std::find_if(kCodings.begin(), kCodings.end(),
                                         [field, key](const Coding& candidate) { return candidate.*field == key; });
    return row == kCodings.end() ? nullptr : row;
}

}  // namespace

const Coding* FindCoding(E_SIGNAL_CODING coding)
{
    return Find(&Coding::coding, coding);
}

const Coding* FindCoding(std::string_view name)
{
    return Find(&Coding::name, name);
}

int LevelCount(E_SIGNAL_CODING coding)
{
    const Coding* const row = FindCoding(coding);
    return row == nullptr ? 0 : row->levelCount;
}

std::string Alphabet(E_SIGNAL_CODING coding, SymbolMap map, std::string_view symbols)
{
    if (const Coding* const row = FindCoding(coding))
        return std::string(row->Alphabet(map));
    constexpr std::string_view kDigits = "0123456789";
    std::size_t highest = 1;
    for (const char symbol : symbols)
        if (const std::size_t digit = kDigits.find(symbol); digit != std::string_view::npos)
            highest = std::max(highest, digit);
    return std::string(kDigits.substr(0, highest + 1));
}

std::vector<int> LevelsOf(std::string_view symbols, std::string_view alphabet)
{
    std::vector<int> levels(symbols.size());
    std::transform(symbols.begin(), symbols.end(), levels.begin(),
                   [alphabet](char symbol) { return static_cast<int>(alphabet.find(symbol)); });
    return levels;
}

std::string SymbolsOf(std::span<const int> levels, std::string_view alphabet)
{
    std::string symbols(levels.size(), ' ');
    std::transform(levels.begin(), levels.end(), symbols.begin(),
                   [alphabet](int level) { return alphabet[static_cast<std::size_t>(level)]; });
    return symbols;
}

}  // namespace Tarnwick::DSO::Maths

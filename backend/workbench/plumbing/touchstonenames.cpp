#include "workbench/plumbing/touchstonenames.h"

#include <algorithm>
#include <vector>

#include "workbench/plumbing/text.h"

namespace Tarnwick::DSO::Workbench {

using Maths::FileKind;

std::optional<FileKind> MeantKind(std::string_view name)
{
    const std::size_t dot = name.rfind('.');
    std::string ending(dot == std::string_view::npos ? "" : name.substr(dot));
    std::transform(ending.begin(), ending.end(), ending.begin(), [](char letter) {
        return letter == 'S' ? 's' : letter == 'P' ? 'p' : letter;
    });
    const bool saysPorts = ending.size() > 3 && ending[1] == 's' && ending.back() == 'p' &&
                           ending.find_first_not_of("0123456789", 2) == ending.size() - 1;
    const FileKind kind = Maths::KindOf(ending);
    return saysPorts && ending != EndingOf(kind) ? std::nullopt : std::optional(kind);
}

const char* EndingOf(FileKind kind)
{
    switch (kind) {
        case FileKind::Table: return ".s21";
        case FileKind::OnePort: return ".s1p";
        case FileKind::TwoPort: return ".s2p";
        case FileKind::FourPort: break;
    }
    return ".s4p";
}

std::string UnitName(double unit)
{
    return unit == 1e9 ? "GHz" : unit == 1e6 ? "MHz" : unit == 1e3 ? "kHz" : "Hz";
}

std::string FormatName(Maths::PairFormat format)
{
    switch (format) {
        case Maths::PairFormat::Decibel: return "DB";
        case Maths::PairFormat::Magnitude: return "MA";
        case Maths::PairFormat::RealImaginary: break;
    }
    return "RI";
}

std::string ReferenceOf(std::string_view optionLine)
{
    const std::vector<std::string> words = WordsOf(optionLine.substr(0, optionLine.find('!')));
    for (std::size_t k = 0; k + 1 < words.size(); ++k)
        if (Maths::UpperCase(words[k]) == "R")
            return words[k + 1];
    return "50";
}

}  // namespace Tarnwick::DSO::Workbench

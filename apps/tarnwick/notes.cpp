#include "notes.h"

#include <cstdio>

namespace Tarnwick::App {

void PrintNotes(const std::vector<std::string>& notes)
{
    for (const std::string& note : notes)
        PrintNote(note);
}

void PrintNote(const std::optional<std::string>& note)
{
    if (note)
        (void)std::fputs(("tarnwick: " + *note + "\n").c_str(), stderr);
}

void StageNotes::Print(DSO::Workbench::Chain& chain)
{
    const auto& stages = chain.Stages();
    told_.resize(stages.size(), 0);
    for (std::size_t k = 0; k < stages.size(); ++k)
        for (; told_[k] < stages[k].notes.size(); ++told_[k])
            PrintNote(stages[k].notes[told_[k]]);
}

}  // namespace Tarnwick::App

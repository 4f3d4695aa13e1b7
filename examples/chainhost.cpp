// A host of the workbench: chainhost CHAIN CAPTURE runs a capture about which nothing is known through a chain file.
#include <cstdio>
#include <exception>
#include <iostream>
#include <span>

#include "workbench/workbench.h"

using namespace Tarnwick::DSO::Workbench;

int main(int count, char** arguments)
{
    if (count != 3) {
        std::cerr << "usage: chainhost CHAIN CAPTURE\n";
        return 2;
    }
    try {
        const char* const name = arguments[2];
        const Waveform capture = ReadCapture({name, "", {}});  // a capture to subtract, and how to read them
        const ChainInput input = InputFor(ChainFile(arguments[1]), capture, {}, name);  // locked, the device completed
        for (const auto& note : input.notes)
            std::printf("note: %s\n", note.c_str());
        Chain chain(input.chain, input.samples.size());
        const ChainResult result = RunChain(chain, input.samples, input.eyes, name);
        for (const StageReport& stage : result.stages)
            for (const EyeOpening& eye : stage.eye.eyes)
                std::printf("%-16s eye of %+.4f V\n", stage.name.c_str(), eye.height);  // negative: closed
        const std::span<const double> valid = result.valid.Of(result.samples);  // of a single shot without its ends
        std::printf("%zu samples, of which %zu are valid\n", result.samples.size(), valid.size());
    } catch (const std::exception& failure) {
        std::cerr << "chainhost: " << failure.what() << '\n';
        return 1;
    }
}

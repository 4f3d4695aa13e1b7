// Filters of several threads at once, each thread with its own: the numbers are those of one thread alone.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "faults/everyfilter.h"
#include "support/expectations.h"

namespace {

using namespace Tarnwick::Testing;
using Tarnwick::DSO::Filters::Filtered;

// Every filter made, prepared, applied, changed, copied and destroyed, one after the other from the given one on.
std::vector<std::vector<double>> Results(std::size_t from, int samplesPerUi)
{
    const std::vector<FilterKind>& kinds = EveryFilter();
    std::vector<std::vector<double>> results(3 * kinds.size());
    for (std::size_t k = 0; k < kinds.size(); ++k) {
        const std::size_t place = (from + k) % kinds.size();
        const std::unique_ptr<Rig> rig = kinds[place].make(samplesPerUi);
        results[3 * place] = rig->Apply(rig->first);
        const auto copy = rig->CopyOf(rig->Filter());
        rig->Change(true);
        results[3 * place + 1] = rig->Apply(rig->second);
        results[3 * place + 2] = Filtered(*copy, rig->first);
    }
    return results;
}

TEST(Threads, GetTheNumbersOfOneAlone)
{
    // Lengths that no test before has planned a transform for: the threads plan them together.
    constexpr int kShortest = 7;
    constexpr std::size_t kRounds = 2;
    constexpr std::size_t kMost = 8;
    using Round = std::vector<std::vector<double>>;
    for (const std::size_t threadCount : {2, 4, 8}) {
        const auto samplesPerUi = [&](std::size_t round) { return kShortest + static_cast<int>(threadCount + round); };
        std::vector<std::vector<Round>> results(threadCount, std::vector<Round>(kRounds));
        std::atomic<std::size_t> waiting{threadCount};
        std::vector<std::thread> threads;
        threads.reserve(threadCount);
        for (std::size_t thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([&, thread] {
                --waiting;
                while (waiting > 0)
                    std::this_thread::yield();
                for (std::size_t round = 0; round < kRounds; ++round)
                    results[thread][round] = Results(thread * EveryFilter().size() / kMost, samplesPerUi(round));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        for (std::size_t round = 0; round < kRounds; ++round) {
            const Round alone = Results(0, samplesPerUi(round));
            for (std::size_t thread = 0; thread < threadCount; ++thread) {
                for (std::size_t k = 0; k < alone.size(); ++k) {
                    EXPECT_FALSE(alone[k].empty());
                    EXPECT_TRUE(HaveSameBits(results[thread][round][k], alone[k]))
                        << EveryFilter()[k / 3].name << " in thread " << thread << " of " << threadCount;
                }
            }
        }
    }
}

}  // namespace

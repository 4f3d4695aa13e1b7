// What a call fails with.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>

namespace Tarnwick::Testing {

/// The text of the exception of this type that `run` throws.
template <typename Failure, typename Run>
std::string FailureOf(Run run)
{
    try {
        run();
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "nothing was thrown";
}

/// Inputs, each with the message that `run` fails with when it is given it; all messages begin with `place`.
template <typename Failure, typename Run>
void ExpectFailures(const std::string& place, std::initializer_list<std::pair<std::string, std::string>> failures,
                    Run run)
{
    for (const auto& [input, message] : failures)
        EXPECT_EQ(FailureOf<Failure>([&, &text = input] { (void)run(text); }), place + message) << input;
}

}  // namespace Tarnwick::Testing

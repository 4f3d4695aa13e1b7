// Files for the targets whose filters read some: S-parameters of every kind, tables, and names without a file.
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <utility>

namespace Tarnwick::Fuzz {

inline constexpr std::pair<const char*, const char*> kFixtures[] = {
    {"one.s1p", "# GHz S MA R 50\n0 .9 0\n10 .8 -40\n20 .7 -80\n"},
    {"two.s2p", "# GHz S RI R 50\n0 0 0 1 0 1 0 0 0\n10 .1 0 .7 -.5 .7 -.5 .1 0\n20 .1 .1 .1 -.6 .1 -.6 .1 .1\n"},
    {"four.s4p",
     "# GHz S RI R 50\n"
     "0 0 0 0 0 1 0 0 0\n 0 0 0 0 0 0 1 0\n 1 0 0 0 0 0 0 0\n 0 0 1 0 0 0 0 0\n"
     "30 0 0 0 0 .5 -.5 0 0\n 0 0 0 0 0 0 .5 -.5\n .5 -.5 0 0 0 0 0 0\n 0 0 .5 -.5 0 0 0 0\n"},
    {"table.s21", "0,0,0\n10e9,-3,-1\n20e9,-6,-2\n"},
    {"zero.s2p", "# Hz S RI R 50\n0 0 0 0 0 0 0 0 0\n1 0 0 0 0 0 0 0 0\n1e300 0 0 0 0 0 0 0 0\n"},
    {"decay.csv", "0,0\n1e-11,1\n2e-11,.5\n3e-11,.25\n4e-11,.125\n5e-11,.0625\n6e-11,0\n"},
    {"flat.csv", "0\n0\n0\n0\n"},
    {"empty.csv", ""},
};

/// One of the names, or that of a file that is not there; the same for the same text.
inline std::string NameOfFixture(std::string_view text)
{
    std::size_t sum = text.size();
    for (const char letter : text)
        sum += static_cast<unsigned char>(letter);
    for (const auto& [name, content] : kFixtures)
        if (text == name)
            return name;
    const std::size_t index = sum % (std::size(kFixtures) + 1);
    return index < std::size(kFixtures) ? kFixtures[index].first : "missing";
}

class Fixtures {
public:
    Fixtures()
        : folder_(std::filesystem::temp_directory_path() / ("tarnwick-fuzz-" + std::to_string(std::random_device()())))
    {
        std::filesystem::create_directories(folder_);
        for (const auto& [name, content] : kFixtures)
            std::ofstream(folder_ / name, std::ios::binary) << content;
    }
    Fixtures(const Fixtures&) = delete;
    Fixtures& operator=(const Fixtures&) = delete;
    ~Fixtures()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    const std::filesystem::path& Folder() const { return folder_; }

private:
    std::filesystem::path folder_;
};

}  // namespace Tarnwick::Fuzz

// Files for one test, or for a program without tests, in a folder of its own that goes with it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "framework/filenames.h"

namespace Tarnwick::Testing {

class TestFolder {
public:
    TestFolder()
    {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        const std::string name = test ? std::string(test->test_suite_name()) + "-" + test->name() : "process";
        // A blank, and a letter that hardly any code page has: what opens a file by other means than a path does not find it.
        path_ = std::filesystem::temp_directory_path() /
                DSO::PathOf("tarnwick 50 \u03a9-" + name + "-" + std::to_string(std::random_device()()));
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::filesystem::path operator/(const std::string& name) const { return path_ / DSO::PathOf(name); }
    std::filesystem::path Write(const std::string& name, std::string_view content) const
    {
        std::ofstream(*this / name, std::ios::binary) << content;
        return *this / name;
    }
    std::string Read(const std::string& name) const
    {
        std::ifstream file(*this / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::size_t Count() const
    {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(path_), std::filesystem::directory_iterator()));
    }

private:
    std::filesystem::path path_;
};

}  // namespace Tarnwick::Testing

// The S-parameter reader, its check, and the description and the new form of a file on any text. The first byte chooses the
// file's kind and the port order.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "framework/plumbing/linereader.h"
#include "framework/sparameter.h"
#include "maths/touchstone/touchstone.h"
#include "workbench/failure.h"
#include "workbench/fixturereport.h"
#include "workbench/touchstonecheck.h"
#include "workbench/touchstonenormal.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Workbench;
using SystemFramework::LineReader;

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

// The reader alone, over lines: false when it refuses one.
bool Read(std::string_view text, const std::string& name, PortOrderS4P order, Maths::Transmission& transmission)
{
    std::istringstream source{std::string(text)};
    LineReader lines(source);
    Maths::TouchstoneReader reader(Maths::KindOf(name), Maths::PairsOf(order));
    while (const auto line = lines.Next())
        if (reader.Take(*line))
            return false;
    transmission = reader.Finish();
    Maths::AddDcPoint(transmission);
    return true;
}

bool AreSame(const Maths::Transmission& a, const Maths::Transmission& b)
{
    const auto isSame = [](double x, double y) { return x == y || (x != x && y != y); };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [&](const auto& x, const auto& y) {
               return x.first == y.first && isSame(x.second.real(), y.second.real()) &&
                      isSame(x.second.imag(), y.second.imag());
           });
}

// Every text has a description; its new form is read as it is meant, or it has none.
void Describe(std::string_view text, const std::string& name)
{
    const Workbench::FixtureFile file = Workbench::DescribeFixture(text, name);
    Require(!FixtureAsText(file, name).empty() && !FixtureAsJson(file, name).empty());
    Require(!Workbench::TransmissionColumns(CurvesOf(file)).empty());
    static const char* const kEndings[] = {".s21", ".s1p", ".s2p", ".s4p"};
    try {
        (void)Workbench::NormaliseFixture(
            text, name, std::string("out") + (file.kind ? kEndings[static_cast<int>(*file.kind)] : ""));
    } catch (const Workbench::DataFailure&) {
    }
}

// What is read makes an impulse response or is refused.
void Convert(const Maths::Transmission& transmission)
{
    int length = 0;
    bool applied = false;
    try {
        ::operator delete(SystemFramework::SParameter::ConvertSparamFilterDataToImpulseResponse(
            length, 26.5625, 64, 4, transmission, true, 30, 45, true, 35e9, 0.0, nullptr, applied));
    } catch (const std::invalid_argument&) {
        Require(length == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    static const char* const kNames[] = {"a.s1p", "a.s2p", "a.s4p", "a.s21", "a.S4P", "a.s3p", "a.S21", "a.s4p.s4p"};
    const std::string name = kNames[data[0] % 8];
    const auto order = static_cast<PortOrderS4P>(data[0] / 8 % 2);
    const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

    Maths::Transmission transmission;
    const bool isRead = Read(text, name, order, transmission);
    const TouchstoneReport report = CheckTouchstoneText(text, name, order);
    Require(isRead == report.readFailure.empty());
    Require(AreSame(report.read, transmission));
    const bool agrees = isRead && report.plainFailure.empty() && AreSame(report.plain, report.read);
    Require(agrees || !report.differences.empty());
    if (isRead)
        Convert(transmission);
    Describe(text, name);
    return 0;
}

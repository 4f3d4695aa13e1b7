#include "workbench/touchstonenormal.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "support/failures.h"
#include "support/touchstonetext.h"
#include "workbench/failure.h"
#include "workbench/fixturefile.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::FailureOf;
using Testing::FourPorts;
using Testing::kMagnitudeOptions;

const std::string kRow = "1 .1 0 .5 -90 .5 -90 .1 0\n";
const std::string kRow3 = "3 .2 0 .4 -90 .4 -90 .2 0\n";

TEST(TouchstoneNormal, IsReadAsTheOriginalIsMeant)
{
    const std::string clean = kMagnitudeOptions + kRow;
    const std::string rows = "\n    ";
    const struct {
        const char* label;
        const char* name;
        std::string text;
        std::string normalised;
        bool isPlain = true;  // the plain reading of both is the same
    } cases[] = {
        {"blanks at the end", "a.s2p", kMagnitudeOptions + "1 .1 0 .5 -90 .5 -90 .1 0 \t\n", clean},
        {"comments", "a.s2p", " ! x\n# GHz S MA R 50 ! y\n1 .1 0 .5 -90 .5 -90 .1 0! z\n\n",
         "! x\n" + kMagnitudeOptions + "! y\n" + kRow + "! z\n"},
        {"order of the options", "a.s2p", "# r 75 ri s mhz\n" + kRow, "# MHz S RI R 75\n" + kRow},
        {"options left out", "a.s2p", "#\n" + kRow, clean},
        {"no options", "a.s2p", kRow, clean},
        {"tab behind #", "a.s2p", "#\tGHz\tS MA R 50\n" + kRow, clean},
        {"blanks before #", "a.s2p", "  # GHz S MA R 50\n" + kRow, clean},
        {"options again", "a.s2p", clean + "# Hz S RI R 50\n" + kRow3, clean + "! # Hz S RI R 50\n" + kRow3},
        {"byte order mark, carriage returns", "a.s2p", "\xEF\xBB\xBF# GHz S MA R 50\r\n1 .1 0 .5 -90 .5 -90 .1 0\r\n",
         clean},
        {"upper-case ending", "A.S2P", clean, clean},
        {"record over lines", "a.s2p", kMagnitudeOptions + "1 .1 0\n.5 -90 ! S21\n.5 -90\n.1 0\n",
         kMagnitudeOptions + "! S21\n" + kRow},
        {"noise block", "a.s2p", clean + kRow3 + "1 2 .3 40 .5\n2 2 .3 40 .5 ! n\n",
         clean + kRow3 + "! noise parameters: 1 2 .3 40 .5\n! noise parameters: 2 2 .3 40 .5\n! n\n"},
        {"noise behind a record", "a.s2p", kMagnitudeOptions + "3 .2 0 .4\n-90 .4 -90 .2 0 1 2 .3 40 .5\n",
         kMagnitudeOptions + kRow3 + "! noise parameters: 1 2 .3 40 .5\n"},
        {"one port on lines", "a.s1p", kMagnitudeOptions + "1 .5\n-90 2 .4 -90\n",
         kMagnitudeOptions + "1 .5 -90\n2 .4 -90\n"},
        {"four ports on a line", "A.S4P", "# Hz S RI R 50\n" + FourPorts("1", " "),
         "# Hz S RI R 50\n" + FourPorts("1", rows)},
        {"admittance in MA", "a.s1p", "# GHz Y R 50\n1 3 0\n", "# GHz S RI R 50\n1 -0.5 0\n", false},
        // A matched input that drives a current source: S21 comes before S12.
        {"hybrid", "a.s2p", "# GHz H RI R 50\n1 1 0 1 0 0 0 0 0\n", "# GHz S RI R 50\n1 0 0 -1 0 0 0 1 0\n", false},
        {"table", "a.s21",
         "\xEF\xBB\xBF"
         "1e9,-6,0.5\nfreq,dB\n\n 2e9 , -7\n3e9,-8,1,9\n",
         "1e9,-6,0.5\n2e9,-7\n3e9,-8,1\n", false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const NormalisedFile normalised = NormaliseTouchstone(row.text, row.name);
        EXPECT_EQ(normalised.text, row.normalised);
        std::string output = row.name;  // the filter knows endings in lower case alone
        std::replace(output.begin(), output.end(), 'S', 's');
        std::replace(output.begin(), output.end(), 'P', 'p');
        for (const PortOrderS4P order : {PORT_ORDER_12_34, PORT_ORDER_13_24}) {
            const auto after = CheckTouchstoneText(normalised.text, output, order);
            FixtureTransmission read = after.read;
            if (MadeAtZero(read))
                read.erase(0.0);
            EXPECT_EQ(read, after.plain);
            EXPECT_LE(after.differences.size(), MadeAtZero(after.read) ? 1U : 0U);
            if (row.isPlain) {
                EXPECT_EQ(after.plain, CheckTouchstoneText(row.text, row.name, order).plain);
            }
        }
    }
}

TEST(TouchstoneNormal, RefusesWhatHasNoOneMeaning)
{
    const struct {
        const char* name;
        std::string text;
        const char* message;
    } cases[] = {
        {"a.s2p", kMagnitudeOptions + kRow + "2 .1 0\n", "line 3: the last record lacks 6 of its 9 numbers"},
        {"a.s2p", kRow + kMagnitudeOptions + kRow3,
         "line 2: an option line behind data, which were in GHz and MA up to here"},
        {"a.s2p", kMagnitudeOptions + kRow + kRow,
         "line 3, token 1: the frequency does not lie above the one before, which begins noise parameters; those "
         "come 5 a line, but here are 9 numbers"},
        {"a.s1p", kMagnitudeOptions + "2 1 0\n1 1 0\n",
         "line 3: the frequency does not lie above the one before; which of them counts is open"},
        {"a.s1p", "# GHz Z RI R 50\n1 -1 0\n", "line 2: no S-parameters follow from these Z-parameters"},
        {"a.s2p", kMagnitudeOptions + "1 \x1b[2J\n", "line 2, token 2: \"?[2J\" is no decimal number"},
        {"a.s2p", kMagnitudeOptions, "holds no data"},
        {"a.s3p", kMagnitudeOptions, "a file of so many ports has no one transmission"},
        {"a.s21", "1e9;-6\n",
         "line 1: is no row of a table: frequency in Hz, level in dB and phase in radians by commas"},
    };
    for (const auto& [name, text, message] : cases)
        EXPECT_EQ(FailureOf<DataFailure>([&, &name = name, &text = text] { (void)NormaliseTouchstone(text, name); }),
                  std::string(name) + ": " + message);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench

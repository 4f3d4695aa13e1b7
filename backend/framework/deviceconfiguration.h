#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "framework/arrayowner.h"
#include "framework/capturedata.h"
#include "framework/export.h"
#include "framework/otoereceiverinfo.h"
#include "framework/signalcoding.h"

namespace Tarnwick::DSO {

/// The instrument's configuration as the host fills it; the filters read the fields that carry a comment.
///
/// The host owns it and whatever its pointers name, except a published TDECQ equaliser. Copies are member-wise in
/// declaration order: vectors, texts and maps are copied deeply, pointers as pointers. Fields called setting, table, vector
/// or flag are carried and read by no filter.
class TARNWICK_FRAMEWORK_API DeviceConfiguration {
public:
    // 1. identity
    std::int32_t setting1 = 0;
    std::int16_t setting2 = 0;
    std::int8_t setting3 = 0;
    std::string text1;
    bool text1Flag1 = false, text1Flag2 = false, text1Flag3 = false;
    std::string text2;
    bool text2Flag1 = false, text2Flag2 = false, text2Flag3 = false;
    std::string text3;
    bool text3Flag1 = false, text3Flag2 = false;
    std::string text4;

    // 2. tables
    std::vector<double> table1, table2, table3, table4, table5, table6, table7;
    std::vector<double> table8, table9, table10, table11, table12, table13, table14;
    std::vector<std::vector<double>> electricalResponseTable;  ///< measured responses, one entry per channel
    std::vector<std::vector<double>>
        oeResponseTable;                              ///< measured responses of O/E channels, three entries per channel
    std::vector<double> channelBandwidths;            ///< one per channel [Hz]; 0 or NaN stand for 39.8 GHz
    std::vector<std::vector<double>> referenceTable;  ///< reference responses, one entry per channel
    std::vector<std::int32_t> indexTable1;
    std::int64_t indexTable1Stamp = 0;
    std::vector<std::int32_t> indexTable2;
    std::int64_t indexTable2Stamp = 0;
    std::vector<double> table15, table16, table17, table18;
    std::vector<std::int16_t> shortTable;

    // 3. capture settings
    double baudRateGBd = 0.0;               ///< symbol rate [GBd]
    std::int32_t patternLengthUi = 0;       ///< pattern length [UI]
    std::int32_t samplesPerPattern = 0;     ///< samples of one repetition when useFractionalSampling is false
    bool withoutGrayCoding = false;         ///< PAM4 symbols are level indices, not Gray codes
    std::int32_t samplesPerUi = 0;          ///< samples per UI when useFractionalSampling is false
    std::string patternSymbols;             ///< one character per symbol
    char* patternSequenceBuffer = nullptr;  ///< handed to the PAM4 pattern detection; read only
    bool useUserPattern = false;            ///< patternSymbols is taken as given
    E_SIGNAL_CODING signalCoding = SIGNAL_CODING_UNKNOWN;
    std::int32_t oeReceiverSelector = 0;    ///< which of a channel's three O/E responses applies: 0, 1, else the third
    double* tdecqEqualizer = nullptr;       ///< impulse response of the TDECQ reference equaliser, written by the FFE
    std::int32_t tdecqEqualizerLength = 0;  ///< values in tdecqEqualizer
    bool* oeChannel = nullptr;              ///< one per channel: fed through an O/E converter; null: none is
    double* gaussianFilter = nullptr;       ///< Gaussian taps handed to the FFE
    std::int32_t gaussianFilterLength = 0;  ///< values in gaussianFilter
    bool multiplePatternRecord = false;     ///< the record holds several pattern repetitions

    // 4. acquisition
    std::vector<std::string> labels;
    double setting4 = 0.0;
    std::int32_t setting5 = 0;
    SystemFramework::CaptureData capture;
    std::vector<double> table19, table20;
    std::int32_t setting6 = 0;
    std::int32_t patternRepeats = 0;  ///< pattern repetitions in one record
    std::int32_t setting7 = 0;

    // 5. locking and sampling
    std::vector<double> table21;
    std::string text5, text6, text7, text8, text9;
    double setting8 = 0.0;
    std::int32_t setting9 = 0;
    bool patternLocked[4] = {false, false, false, false};  ///< pattern lock, one per channel
    double uiDuration = 0.0;                               ///< one unit interval, in the unit of sampleSpacing
    double sampleSpacing = 0.0;                            ///< time between two samples
    double setting10 = 0.0, setting11 = 0.0;
    /// Samples per UI is uiDuration / sampleSpacing instead of samplesPerUi. Where that has a fraction some filters work with
    /// the whole samples per UI (see theirs): a host does better with whole ones.
    bool useFractionalSampling = false;
    std::int64_t setting12 = 0, setting13 = 0, setting14 = 0, setting15 = 0, setting16 = 0, setting17 = 0;
    std::vector<double> table22;
    std::map<std::int32_t, double> settingMap;
    std::int32_t setting18 = 0, setting19 = 0, setting20 = 0;
    bool flag1 = false, flag2 = false, flag3 = false, flag4 = false;
    std::int64_t setting21 = 0, setting22 = 0, setting23 = 0, setting24 = 0;

    /// Replaces tdecqEqualizer by `taps`. The array replaced is released: at once if the host assigned it, with the last
    /// copy of the configuration that shares it if this call did.
    /// @param taps  made by ::operator new; shared by copies of this object, released with the last or when replaced
    void PublishTdecqEqualizer(double* taps, std::int32_t length);

private:
    SystemFramework::ArrayOwner tdecqOwner_;
};

}  // namespace Tarnwick::DSO

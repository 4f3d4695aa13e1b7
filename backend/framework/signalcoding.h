#pragma once

/// Line coding of the captured signal.
enum E_SIGNAL_CODING : int {
    SIGNAL_CODING_UNKNOWN = 0,
    SIGNAL_CODING_NRZ = 1,
    SIGNAL_CODING_PAM4 = 2,
    SIGNAL_CODING_PAM3 = 3,
    SIGNAL_CODING_PAM4_PRECODED = 4,
};

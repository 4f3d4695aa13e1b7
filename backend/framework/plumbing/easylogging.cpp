// Easylogging++ as it comes, compiled into this library; its storage is made in storagesinglton.cpp.
#include TARNWICK_EASYLOGGING_SOURCE  // NOLINT(bugprone-suspicious-include)

// Easylogging++ as a host compiles it.
#include TARNWICK_EASYLOGGING_SOURCE

// Everything a host needs: the filters, their parameters, the framework's records and bases.
#pragma once

#include "filters/filters/besselthomson.h"
#include "filters/filters/copy.h"
#include "filters/filters/ctlefilter.h"
#include "filters/filters/dfefilter.h"
#include "filters/filters/ffefilter.h"
#include "filters/filters/movingaveragesmoothingfilter.h"
#include "filters/filters/patternlockfailed.h"
#include "filters/filters/sircfilter.h"
#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/capturedata.h"
#include "framework/deviceconfiguration.h"
#include "framework/otoereceiverinfo.h"
#include "framework/signal.h"
#include "framework/signalcoding.h"
#include "framework/signaldata.h"

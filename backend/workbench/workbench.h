// Everything that tarnwick_workbench offers: captures and their files, chains of filters, eyes and other measurements,
// S-parameter files.
#pragma once

#include "workbench/captures.h"
#include "workbench/chain.h"
#include "workbench/chainkeys.h"
#include "workbench/correctedchannel.h"
#include "workbench/decisions.h"
#include "workbench/deembeddingreport.h"
#include "workbench/eye.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/fixturefile.h"
#include "workbench/networkparameters.h"
#include "workbench/pattern.h"
#include "workbench/run.h"
#include "workbench/sirctable.h"
#include "workbench/symbols.h"
#include "workbench/touchstonenormal.h"
#include "workbench/transferfunction.h"
#include "workbench/waveform.h"

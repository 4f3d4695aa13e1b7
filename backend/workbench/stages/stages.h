// The types of stage that a chain may have, a file each. A new filter is a new file and a row in stages.cpp.
#pragma once

#include <span>

#include "workbench/plumbing/stagetype.h"

namespace Tarnwick::DSO::Workbench {

/// In the order in which the reference lists them.
std::span<const StageType> StageTypes();

StageType CopyStage();
StageType MovingAverageStage();
StageType BesselThomsonStage();
StageType CtleStage();
StageType FfeStage();
StageType DfeStage();
StageType DeEmbeddingStage();
StageType SircStage();

}  // namespace Tarnwick::DSO::Workbench

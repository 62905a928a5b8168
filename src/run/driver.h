// run/driver.h - one run from the command line to the written model.
#pragma once

#include "mesh/context.h"

namespace velmora {

/// The whole program. Everything it has to say stands in the log and in the output files.
/// @return 0, or -1 when an option was wrong or the run was stopped; a run that fails on its data
///         returns 0, and the log tells
int velmora_main(int argc, char** argv);

} // namespace velmora

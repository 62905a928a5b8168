#include "mesh/tolerances.h"

namespace velmora {

float merge_tol = k_default_merge_tol;
double kill_value = k_default_kill_value;

} // namespace velmora

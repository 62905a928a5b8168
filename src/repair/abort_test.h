// repair/abort_test.h - the question whether the user has stopped the run, as the loops ask it.
#pragma once

namespace velmora {

/// Always no: a Stop takes effect between the stages, where the run itself looks for it.
constexpr bool abort_test()
{
    return false;
}

} // namespace velmora

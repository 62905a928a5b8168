// mesh/checked.h - bounds that are lower in checked builds.
#pragma once

namespace velmora {

/// A bound from which another method serves, with the same result. In checked builds that is soon,
/// so that small tests and the fuzzer come through it.
template <class number_t> constexpr number_t bound_or(number_t usual, number_t when_checked)
{
#ifdef VELMORA_CHECKED
    static_cast<void>(usual);
    return when_checked;
#else
    static_cast<void>(when_checked);
    return usual;
#endif
}

} // namespace velmora

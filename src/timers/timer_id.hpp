// Timer identifiers: handed out from 1 upward, back to 1 past the largest int.
#pragma once

namespace vxu::timers {

inline int next_timer_id(int *last_id)
{
    // Computed in unsigned arithmetic: no signed overflow at the wrap.
    *last_id = static_cast<int>(static_cast<unsigned>(*last_id) + 1u);
    if (*last_id <= 0)
        *last_id = 1;
    return *last_id;
}

}  // namespace vxu::timers

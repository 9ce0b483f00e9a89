// State shared by the loop registry and the dispatch.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vxutil/loop.h>

#include "common/list.hpp"

namespace vxu::loop {

// The process-wide registry; null until vxu_loop_init.
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): a declaration; defined as null
extern vxu_loop_state *g_state;

// Dispatch walks in progress, outermost first. They live in static storage,
// not on the stack: a callback that leaves vxu_loop_run with longjmp leaves
// no pointer into a dead frame behind. Removing the entry a walk is about to
// visit moves the walk past it, so callbacks may remove any entry safely.
struct walk {
    vxu_list_link *next;
    uintptr_t frame;  // stack frame of the vxu_loop_run that owns the walk
};
constexpr int kMostNestedRuns = 32;
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): a declaration; zero-initialised
extern walk g_walks[kMostNestedRuns];
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): a declaration; defined as 0
extern int g_walk_count;

inline vxu_loop_entry *entry_of(vxu_list_link *link)
{
    return container_of<vxu_loop_entry>(link, offsetof(vxu_loop_entry, link));
}

}  // namespace vxu::loop

// State shared by the loop registry and the dispatch.
#pragma once

#include <stddef.h>

#include <vxutil/loop.h>

#include "common/list.hpp"

namespace vxu::loop {

// The process-wide registry; null until vxu_loop_init.
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): a declaration; defined as null
extern vxu_loop_state *g_state;

// A dispatch walk in progress. Removing the entry a walk is about to visit
// moves the walk past it, so callbacks may remove any entry safely.
struct walk {
    vxu_list_link *next;
    walk *outer;  // walk of an enclosing vxu_loop_run, if a callback nested one
};
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): a declaration; defined as null
extern walk *g_walks;

inline vxu_loop_entry *entry_of(vxu_list_link *link)
{
    return container_of<vxu_loop_entry>(link, offsetof(vxu_loop_entry, link));
}

}  // namespace vxu::loop

// Intrusive doubly linked list over the public vxu_list_link record.
#pragma once

#include <stddef.h>

#include <vxutil/base.h>

namespace vxu {

inline void list_init(vxu_list_link *head) { head->next = head->prev = head; }

inline bool list_empty(const vxu_list_link *head) { return head->next == head; }

// Links node directly after pos.
inline void list_insert_after(vxu_list_link *pos, vxu_list_link *node)
{
    node->prev = pos;
    // pos is always linked; the analyzer loses track of a sentinel's links when
    // a list is emptied and refilled through container_of.
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): see above
    node->next = pos->next;
    pos->next->prev = node;
    pos->next = node;
}

// Links node directly before pos (at the tail when pos is the sentinel).
inline void list_insert_before(vxu_list_link *pos, vxu_list_link *node)
{
    list_insert_after(pos->prev, node);
}

// Unlinks node and clears both of its pointers.
inline void list_unlink(vxu_list_link *node)
{
    node->next->prev = node->prev;
    node->prev->next = node->next;
    node->next = node->prev = nullptr;
}

inline size_t list_count(const vxu_list_link *head)
{
    size_t n = 0;
    for (const vxu_list_link *it = head->next; it != head; it = it->next)
        ++n;
    return n;
}

// The record that embeds link at byte offset link_offset (use offsetof).
template <typename Record>
inline Record *container_of(vxu_list_link *link, size_t link_offset)
{
    return reinterpret_cast<Record *>(reinterpret_cast<char *>(link) - link_offset);
}

}  // namespace vxu

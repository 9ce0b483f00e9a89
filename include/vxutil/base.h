/**
 * @file base.h
 * @brief Declarations shared by every public header: linkage macros and the
 *        intrusive list link.
 */
#ifndef VXUTIL_BASE_H
#define VXUTIL_BASE_H

#ifdef __cplusplus
#define VXU_BEGIN_DECLS extern "C" {
#define VXU_END_DECLS }
#else
#define VXU_BEGIN_DECLS
#define VXU_END_DECLS
#endif

/* Marks the library's exported entry points; everything else stays hidden. */
#if defined(VXU_BUILDING_LIBRARY)
#define VXU_API __attribute__((visibility("default")))
#else
#define VXU_API
#endif

VXU_BEGIN_DECLS

/**
 * @brief Link of an intrusive doubly linked list.
 *
 * Records that take part in a list embed one link; the owner keeps a
 * sentinel link whose @c next and @c prev point to itself while the list is
 * empty. A link taken off a list has both pointers null.
 */
typedef struct vxu_list_link {
    struct vxu_list_link *next; /**< Following link (the sentinel after the last record). */
    struct vxu_list_link *prev; /**< Preceding link (the sentinel before the first record). */
} vxu_list_link;

VXU_END_DECLS

#endif /* VXUTIL_BASE_H */

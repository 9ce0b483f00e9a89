/* vxutil: declarations shared by every public header. */
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

/*
 * Intrusive doubly linked list link. Records embed one; an owner keeps a
 * sentinel whose next and prev point to itself while the list is empty.
 */
typedef struct vxu_list_link {
    struct vxu_list_link *next;
    struct vxu_list_link *prev;
} vxu_list_link;

VXU_END_DECLS

#endif /* VXUTIL_BASE_H */

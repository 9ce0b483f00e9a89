// Lookups in a caller's value/name table ending at the first NULL name.
#include <string.h>

#include <vxutil/text.h>

extern "C" {

VXU_API const char *vxu_v2n(const vxu_v2n_t *table, int value)
{
    for (const vxu_v2n_t *e = table; e && e->name; ++e) {
        if (e->value == value)
            return e->name;
    }
    return "null_unknow";
}

VXU_API int vxu_n2v(const vxu_v2n_t *table, const char *name)
{
    if (!name || !*name)
        return -1;
    for (const vxu_v2n_t *e = table; e && e->name; ++e) {
        if (strcmp(e->name, name) == 0)
            return e->value;
    }
    return -1;
}

}  // extern "C"

#include <stdio.h>

#include <vxutil/vxutil.h>

int main(void)
{
    /* One loop pass over an empty registry: 0 conditions. */
    if (vxu_loop_init(0) != 0 || vxu_loop_run(0) != 0)
        return 1;
    return vxu_mem_dump(stdout) == 30 ? 0 : 1;
}

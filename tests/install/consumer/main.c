#include <stdio.h>

#include <vxutil/vxutil.h>

/* One loop pass over an empty registry (0 conditions), then the memory report. */
int main(void)
{
    return vxu_loop_init(0) != 0 || vxu_loop_run(0) != 0 || vxu_mem_dump(stdout) != 30;
}

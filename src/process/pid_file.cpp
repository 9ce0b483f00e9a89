// The caller's process id in a pid file, for others to find it by.
#include <stdio.h>
#include <unistd.h>

#include <vxutil/process.h>

extern "C" {

VXU_API int vexmar_write_pid_file(const char *path)
{
    if (!path)
        return -1;
    FILE *file = fopen(path, "we");
    if (!file)
        return -1;
    // Only the open is checked: the write and the close are not reported.
    (void)fprintf(file, "%u\n", static_cast<unsigned>(getpid()));
    (void)fclose(file);
    return 0;
}

}  // extern "C"

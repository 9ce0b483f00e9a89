/* Writes each log call as one line on standard error: "<level> <function>: <text>". */
#include "vxlog.h"

#include <stdarg.h>
#include <stdio.h>

int __vx_log(void *handle, const char *function, int level, const char *format, ...)
{
    char text[1024];
    va_list ap;

    (void)handle;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    /* One fprintf keeps lines from concurrent threads whole. */
    fprintf(stderr, "<%d> %s: %s\n", level, function ? function : "?", text);
    return 0;
}

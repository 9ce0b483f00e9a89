/* The device logging library's one entry point. */
#ifndef VXLOG_H
#define VXLOG_H

#ifdef __cplusplus
extern "C" {
#endif

int __vx_log(void *handle, const char *function, int level, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif

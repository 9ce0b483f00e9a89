/*
 * vxutil process: shell commands, daemon launcher and kill, process
 * inspection through /proc, pid files, the single-instance lock and flag
 * files. Nothing here keeps state between calls; every command runner
 * blocks its thread until the command has ended.
 */
#ifndef VXUTIL_PROCESS_H
#define VXUTIL_PROCESS_H

#include <vxutil/base.h>

/* Lets the compiler check the formats handed to the command runners. */
#ifndef VXU_PRINTF_FORMAT
#if defined(__GNUC__)
#define VXU_PRINTF_FORMAT(fmt_index, first_arg)                                                    \
    __attribute__((format(printf, fmt_index, first_arg)))
#else
#define VXU_PRINTF_FORMAT(fmt_index, first_arg)
#endif
#endif

VXU_BEGIN_DECLS

/* ---- Shell commands -------------------------------------------------------
 * The command text reaches the shell unquoted. No runner reports the
 * command's own exit status: success means it was started and has ended.
 */

/* Formats the command (any length) and runs it through popen; its standard
 * input reads end-of-file. 0 (also when the text is empty and nothing ran),
 * or -1 when memory or popen failed. */
VXU_API int vxu_os_system(const char *fmt, ...) VXU_PRINTF_FORMAT(1, 2);
/* Same as vxu_os_system. */
VXU_API int vexmar_do_system_call(const char *fmt, ...) VXU_PRINTF_FORMAT(1, 2);
/* Runs the command through popen and stores the first len bytes of its
 * standard output in buf, without a terminating zero. Returns the count
 * stored, or -1 for an empty command, a negative len, or a failed
 * allocation or popen. */
VXU_API int vxu_os_system_ex(char *buf, int len, const char *fmt, ...) VXU_PRINTF_FORMAT(3, 4);
/* Runs the first 255 characters of the command through "/bin/sh -c" in a
 * child that keeps only descriptors 0 to 2 (closed ones become /dev/null).
 * Every signal is blocked in the calling thread until the child is reaped.
 * 0 once reaped, -1 fork failed, -2 waitpid failed. */
VXU_API int vxu_com_system(const char *fmt, ...) VXU_PRINTF_FORMAT(1, 2);
/* "pidof <name>": 0 running, 1 not running, -1 empty name or popen failed. */
VXU_API int vxu_com_app_exist(const char *name);
/* "fsync -d <path>" through vxu_com_system: 0, or -1 for an empty path. */
VXU_API int vxu_com_file_sync(const char *path);

/* ---- Daemons ---------------------------------------------------------------- */

/* Splits the first 255 characters of the command line at blanks and tabs
 * (at most 29 words, no shell) and executes the first word, not looked up
 * on PATH, in a detached grandchild: own session, descriptors 0 to 2 on
 * /dev/null, nothing else open. Stores the daemon's pid in *pid (may be
 * NULL; -1 when the launch could not be reported). 0, -2 pipe failed,
 * -3 fork failed. */
VXU_API int vxu_com_start_daemon(int *pid, const char *fmt, ...) VXU_PRINTF_FORMAT(2, 3);
/* Sends SIGTERM (SIGKILL when force != 0) to pid when /proc/<pid>/exe
 * exists and, if name is given and non-empty, its target contains name.
 * kill's result (0 or -1), -2 name mismatch, -3 no such process. */
VXU_API int vxu_com_kill(int pid, const char *name, int force);

/* ---- Process inspection and single instance ---------------------------------
 * A process matches a name when the name is a case-insensitive prefix of
 * the base name of the process's first argument.
 */

/* 0 when some process matches, else -1. */
VXU_API int vexmar_check_process_by_name(const char *name);
/* 0 when process pid matches, else -1. */
VXU_API int vexmar_check_process_by_pid(int pid, const char *name);
/* 0 when the process whose id starts the pid file's first line matches. */
VXU_API int vexmar_check_process_by_pid_file(const char *path, const char *name);
/* Writes getpid() as "%u\n": 0, or -1 when the file cannot be opened. */
VXU_API int vexmar_write_pid_file(const char *path);
/* Waits for an exclusive flock on the lock file (created with mode 0666)
 * and returns the descriptor holding it; -1 on failure, -2 for no path.
 * The descriptor is inherited by children and keeps the lock with them. */
VXU_API int vexmar_set_process_single_instance(const char *path);
/* Unlocks and closes a descriptor from the function above; fd <= 0 is ignored. */
VXU_API void vexmar_release_process_single_instance(int fd);
/* 0 when nobody holds the lock (also none in this process), else -1. */
VXU_API int vexmar_check_process_singal_instance(const char *path);
/* Resident set size of the calling process in pages, or -1. */
VXU_API int vxu_com_mem_get_rss(void);
/* The calling thread's kernel thread id. */
VXU_API int vxu_com_gettid(void);

/* ---- Flag files --------------------------------------------------------------
 * "/tmp/vx_flags/<name>.flag" and "<name>.remove", each holding the uptime
 * at which it was written as "<seconds>.<milliseconds>\n". The directory
 * must exist. A NULL name gives -1 without touching any file.
 */

/* Writes the flag file: 0, or -1 when it cannot be opened. */
VXU_API int vxu_com_add_flag_file(const char *name);
/* Deletes the flag file and writes the removal file: 0; -1 when the removal
 * file cannot be opened; -2 when there was no flag file. */
VXU_API int vxu_com_del_flag_file(const char *name);

VXU_END_DECLS

#endif /* VXUTIL_PROCESS_H */

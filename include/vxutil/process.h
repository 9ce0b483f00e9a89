/**
 * @file process.h
 * @brief Processes: shell commands, the daemon launcher and kill, process
 *        inspection through /proc, pid files, the single-instance lock and
 *        flag files.
 *
 * Nothing here keeps state between calls, and every function may be called
 * from any thread. Every command runner blocks its thread until the command
 * has ended. Nothing is logged; errno is left as the failing call set it.
 */
#ifndef VXUTIL_PROCESS_H
#define VXUTIL_PROCESS_H

#include <vxutil/base.h>

/**
 * @def VXU_PRINTF_FORMAT(fmt_index, first_arg)
 * @brief Lets the compiler check the formats handed to the command runners.
 *
 * Under GCC and Clang it marks argument @p fmt_index as a printf format whose
 * arguments start at @p first_arg; elsewhere it expands to nothing. A
 * definition made before this header is included is kept.
 * @param fmt_index Position of the format argument, from 1.
 * @param first_arg Position of the first formatted argument.
 */
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
 * The command text reaches the shell unquoted: blanks, quotes and other
 * special characters in the arguments are the shell's to interpret. No
 * runner reports the command's own exit status: success means it was
 * started and has ended. Commands run through popen inherit the caller's
 * descriptors that are not close-on-exec.
 */

/**
 * @brief Runs a command of any length through popen and waits for it to
 *        end; its standard input reads end-of-file, its output and errors go
 *        to the caller's own.
 * @param fmt printf-style format of the command.
 * @param ... Its arguments.
 * @return 0 once the command has ended, whatever its status, and also when
 *         the text is empty (or cannot be formatted) and nothing ran; -1
 *         when memory is short or popen fails.
 */
VXU_API int vxu_os_system(const char *fmt, ...) VXU_PRINTF_FORMAT(1, 2);

/**
 * @brief Same as vxu_os_system().
 * @param fmt printf-style format of the command.
 * @param ... Its arguments.
 * @return As vxu_os_system().
 */
VXU_API int vexmar_do_system_call(const char *fmt, ...) VXU_PRINTF_FORMAT(1, 2);

/**
 * @brief Runs a command of any length through popen and captures the start
 *        of its standard output; its standard input and errors are the
 *        caller's own.
 *
 * No terminating zero is written and the bytes past the count are left as
 * they were. Output beyond @p len is not read: the command meets a closed
 * pipe (SIGPIPE or EPIPE) if it is still writing.
 * @param buf Receives at most @p len bytes of the output.
 * @param len Size of @p buf, 0 or more.
 * @param fmt printf-style format of the command.
 * @param ... Its arguments.
 * @return The number of bytes stored, 0 to @p len; -1 (nothing run) for a
 *         negative @p len, a NULL @p buf with @p len above 0, a NULL or empty
 *         or unformattable command, short memory or a failed popen.
 */
VXU_API int vxu_os_system_ex(char *buf, int len, const char *fmt, ...) VXU_PRINTF_FORMAT(3, 4);

/**
 * @brief Runs a command through "/bin/sh -c" in a child of its own and waits
 *        for it to end.
 *
 * Only the first 255 characters of the command are run. The child keeps
 * descriptors 0 to 2 as inherited (a closed one becomes /dev/null) and
 * closes every other, also those above the current soft limit. Every signal is blocked in the
 * calling thread from before the fork until the child is reaped, then the previous mask is back and
 * pending signals arrive; the shell starts with the caller's previous mask. If /bin/sh cannot run,
 * the child ends through exit(255), which runs the caller's atexit handlers and flushes its stdio
 * buffers a second time.
 * @param fmt printf-style format of the command.
 * @param ... Its arguments.
 * @return 0 once the child is reaped, whatever its status; -1 fork failed;
 *         -2 waitpid failed other than by EINTR, e.g. ECHILD when SIGCHLD is
 *         ignored or another thread reaped the child first.
 */
VXU_API int vxu_com_system(const char *fmt, ...) VXU_PRINTF_FORMAT(1, 2);

/**
 * @brief Asks "pidof <name>", run through popen, whether a program runs.
 * @param name Program name, as pidof matches it; cut so that the command
 *             keeps 255 characters.
 * @return 0 running (pidof printed an id); 1 not running (no output, or
 *         output not starting with a digit, e.g. pidof missing); -1 for a
 *         NULL or empty @p name (nothing run) or a failed popen.
 */
VXU_API int vxu_com_app_exist(const char *name);

/**
 * @brief Runs "fsync -d <path>" through vxu_com_system(), with its
 *        descriptor and signal rules; the tool's result is not reported.
 * @param path File or directory to flush; cut so that the command keeps
 *             255 characters.
 * @return 0 once the command was handed on (also when it could not run);
 *         -1 for a NULL or empty @p path (nothing run).
 */
VXU_API int vxu_com_file_sync(const char *path);

/* ---- Daemons ---------------------------------------------------------------- */

/**
 * @brief Starts a program as a detached daemon, without a shell.
 *
 * The first 255 characters of the command line are split at blanks and
 * tabs (quotes are ordinary characters; at most 29 words are kept). The
 * first word is the program's path, not looked up on PATH; argument 0 is its
 * base name. The program runs in a grandchild with a session of its own,
 * descriptors 0 to 2 on /dev/null and no other descriptor open (also none
 * above the current soft limit); it keeps
 * the caller's environment, working directory, umask and previous signal
 * mask. Every signal is blocked in the calling thread until the launch is
 * reported. The call never waits for the daemon, but the intermediate child
 * it forked stays a zombie until the caller reaps it (waitpid(-1, ...,
 * WNOHANG) from a SIGCHLD handler, or SIGCHLD ignored). A program that
 * cannot be executed (or an empty command line) is not reported: its
 * grandchild ends with status 255.
 * @param pid Receives the daemon's process id, or -1 when the second fork
 *            failed or no report arrived; may be NULL.
 * @param fmt printf-style format of the command line.
 * @param ... Its arguments.
 * @return 0 (see @p pid); -2 pipe failed; -3 fork failed. Nothing is
 *         started on -2 or -3.
 */
VXU_API int vxu_com_start_daemon(int *pid, const char *fmt, ...) VXU_PRINTF_FORMAT(2, 3);

/**
 * @brief Sends SIGTERM, or SIGKILL, to a process whose executable can be
 *        reached as "/proc/<pid>/exe", optionally only when it is the
 *        expected program. Does not wait for the process to end.
 * @param pid Process id; 0 and below never reach kill (no group signals).
 * @param name Expected text within the executable's path (case-sensitive
 *             substring); NULL or empty skips the check.
 * @param force Non-zero sends SIGKILL, 0 SIGTERM.
 * @return kill's result: 0 sent, -1 not sent; -2 @p name given and the
 *         executable's path cannot be read or does not contain it; -3
 *         "/proc/<pid>/exe" cannot be reached: no such process, a kernel
 *         thread, or a process the caller may not inspect.
 */
VXU_API int vxu_com_kill(int pid, const char *name, int force);

/* ---- Process inspection and single instance ---------------------------------
 * A process matches a name when the name is a case-insensitive prefix of
 * the base name of the process's first argument (its first 255 bytes):
 * "net" matches a process started as /usr/sbin/NetD, not one run as
 * "sh /etc/init.d/netd".
 */

/**
 * @brief Scans /proc for a process that matches a name; the calling
 *        process is among those scanned.
 * @param name Wanted name; an empty one matches any process with a command
 *             line.
 * @return 0 when some process matches; -1 when none does, @p name is NULL
 *         or /proc cannot be opened.
 */
VXU_API int vexmar_check_process_by_name(const char *name);

/**
 * @brief Tells whether a process runs under a name.
 * @param pid Process id.
 * @param name Wanted name; a kernel thread matches only an empty one.
 * @return 0 when process @p pid matches; -1 when it does not, no such
 *         process exists or @p name is NULL.
 */
VXU_API int vexmar_check_process_by_pid(int pid, const char *name);

/**
 * @brief vexmar_check_process_by_pid() for the id that starts the first line
 *        of a pid file (read as a decimal number: "123abc" is 123).
 * @param path The pid file.
 * @param name Wanted name.
 * @return 0 when that process matches; -1 when it does not, @p path or
 *         @p name is NULL, the file cannot be opened or its id reads as 0.
 */
VXU_API int vexmar_check_process_by_pid_file(const char *path, const char *name);

/**
 * @brief Writes getpid() as "%u\n" into a file, created (mode 0666 less the
 *        umask) or truncated. The library never removes it.
 * @param path The pid file.
 * @return 0, also when writing after the open fails; -1 when @p path is NULL
 *         or the file cannot be opened.
 */
VXU_API int vexmar_write_pid_file(const char *path);

/**
 * @brief Takes an exclusive flock on a lock file and returns the descriptor
 *        that holds it, waiting while another open of the file holds it.
 *
 * The file is created when missing (mode 0666 less the umask) and never
 * written. A process that holds the lock must not call this again for the
 * same path: it would wait for itself. The descriptor is not close-on-exec:
 * children forked or run through popen keep the lock alive after the caller
 * ends (vxu_com_system() and vxu_com_start_daemon() close it in theirs).
 * @param path The lock file.
 * @return The descriptor, 0 or more (0 when standard input was closed);
 *         keep it open while this is the single instance, then pass it to
 *         vexmar_release_process_single_instance() or exit. -1 when the file
 *         cannot be opened or flock fails (also when a handler without
 *         SA_RESTART interrupts the wait); -2 for a NULL @p path.
 */
VXU_API int vexmar_set_process_single_instance(const char *path);

/**
 * @brief Unlocks and closes a descriptor from
 *        vexmar_set_process_single_instance().
 * @param fd The descriptor; 0 and below are ignored, so a lock held on
 *           descriptor 0 lasts until it is closed or the process exits.
 */
VXU_API void vexmar_release_process_single_instance(int fd);

/**
 * @brief Probes a lock file without keeping a lock; creates the file when
 *        missing.
 * @param path The lock file.
 * @return 0 when nobody holds the lock; -1 when it is held (also by the
 *         calling process itself), @p path is NULL or the file cannot be
 *         opened.
 */
VXU_API int vexmar_check_process_singal_instance(const char *path);

/**
 * @brief Resident set size of the calling process, from "/proc/<pid>/statm".
 * @return The size in pages (times sysconf(_SC_PAGESIZE) for bytes); -1 when
 *         statm cannot be read or has fewer than two fields.
 */
VXU_API int vxu_com_mem_get_rss(void);

/**
 * @brief The calling thread's kernel thread id (the gettid system call).
 * @return The id; the call cannot fail.
 */
VXU_API int vxu_com_gettid(void);

/* ---- Flag files --------------------------------------------------------------
 * "/tmp/vx_flags/<name>.flag" while a flag is raised and "<name>.remove"
 * once it was lowered, each holding the uptime at which it was written as
 * "<seconds>.<milliseconds>\n" (milliseconds in three digits). The directory
 * must exist; the library never creates it nor reads the files. The name is
 * used unchecked ("/" leads into subdirectories); paths keep 255 characters.
 * Nothing coordinates writers: a reader may find a file empty while it is
 * rewritten.
 */

/**
 * @brief Raises a flag: writes its flag file, created or truncated. A
 *        removal file of the same name is left alone.
 * @param name Flag name.
 * @return 0; -1 when @p name is NULL (no file touched) or the flag file
 *         cannot be opened (e.g. no flag directory).
 */
VXU_API int vxu_com_add_flag_file(const char *name);

/**
 * @brief Lowers a flag: deletes its flag file, then writes its removal file.
 * @param name Flag name.
 * @return 0; -2 when there is no flag file (nothing changed); -1 when
 *         @p name is NULL (no file touched) or the removal file cannot be
 *         opened (the flag file is gone already).
 */
VXU_API int vxu_com_del_flag_file(const char *name);

VXU_END_DECLS

#endif /* VXUTIL_PROCESS_H */

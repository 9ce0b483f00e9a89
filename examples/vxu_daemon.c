/*
 * vxu_daemon: a small resident daemon built the way the device's daemons
 * use the library.
 *
 *   vxu_daemon <run dir> [resolver configuration text]
 *
 * It refuses to start twice (a lock file), writes a pid file, raises the
 * flag file "vxu_daemon" while it runs, and serves commands on the local
 * IPC endpoint <run dir>/vxu_daemon.sock:
 *
 *   status         counters of what happened so far
 *   resolve NAME   an A record through adns against the configuration text
 *   stop           answer "bye", clean up and exit
 *
 * Everything that touches daemon state runs on the loop thread. Other
 * threads (a worker, the timer service's callbacks, the timer-queue puller)
 * hand their work over through a command queue whose descriptor the loop
 * watches. A second process exchanges a message with the daemon through a
 * System V message queue.
 */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vxutil/vxutil.h>

#define DAEMON_NAME "vxu_daemon"

/* Commands handed to the loop thread through the command queue. */
enum command {
    CMD_WORK = 1,  /* from the worker thread */
    CMD_TICK = 2,  /* from a timer-service list timer */
    CMD_ALARM = 3, /* from a timer-service timer descriptor */
    CMD_TMRQ = 4   /* from the timer-queue puller thread */
};

struct paths {
    char sock[256], pid[256], lock[256], key[256];
};

struct daemon {
    struct paths paths;
    const char *dns_config;
    vxu_cmdq cmds;
    vxu_tmrq tmrq;
    int ipc_fd;
    int msgq_id;
    int stop;
    /* counters, touched by the loop thread only */
    int work_items, ticks, alarms, tmrq_deliveries, ipc_commands, messages;
};

static struct daemon d;

static void say(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
static void say(const char *fmt, ...)
{
    va_list ap;
    printf("[daemon] ");
    va_start(ap, fmt);
    vprintf(fmt, ap);
    va_end(ap);
    putchar('\n');
    fflush(stdout);
}

/* ---- Producers on other threads ----------------------------------------- */

static void *worker_main(void *arg)
{
    int i;
    (void)arg;
    for (i = 1; i <= 3; i++) {
        char text[32];
        int n = snprintf(text, sizeof text, "work item %d", i);
        vxu_cmdq_cmd_push(&d.cmds, CMD_WORK, text, n + 1);
        vxu_os_wait(0, 300000);
    }
    return NULL;
}

/* Timer-service callbacks run on the service thread with no lock held. */
static int on_tick(int id, uint64_t arg)
{
    (void)arg;
    return vxu_cmdq_cmd_push(&d.cmds, CMD_TICK, &id, (int)sizeof id);
}

static int on_alarm(int id, uint64_t arg)
{
    (void)arg;
    return vxu_cmdq_cmd_push(&d.cmds, CMD_ALARM, &id, (int)sizeof id);
}

/* The timer queue has no descriptor for the loop: a thread pulls it. */
static void *tmrq_puller_main(void *arg)
{
    (void)arg;
    for (;;) {
        vxu_tmrq_item *item = NULL;
        if (vxu_tmrq_pull(&d.tmrq, &item) == 1) {
            vxu_cmdq_cmd_push(&d.cmds, CMD_TMRQ, &item->param1, (int)sizeof item->param1);
            vxu_tmrq_item_free(&d.tmrq, item);
        }
    }
    return NULL;
}

/* ---- The second process: one message each way --------------------------- */

struct demo_msg {
    long type;
    char text[64];
};

enum { MSG_HELLO = 1, MSG_REPLY = 2 };

static pid_t start_peer(void)
{
    pid_t pid = fork();
    if (pid == 0) {
        struct demo_msg m;
        int qid = -1;
        memset(&m, 0, sizeof m);
        if (vxu_msgq_get(NULL, &qid, d.paths.key, 'v') != 0)
            _exit(1);
        m.type = MSG_HELLO;
        snprintf(m.text, sizeof m.text, "hello from process %d", (int)getpid());
        vxu_msgq_send(NULL, qid, &m, (unsigned)strlen(m.text) + 1, 0);
        if (vxu_msgq_recv(NULL, qid, &m, (int)sizeof m.text, MSG_REPLY, 0) == 0)
            printf("[peer]   got reply: %s\n", m.text);
        fflush(stdout);
        _exit(0);
    }
    return pid;
}

/* Called on each tick until the peer's message has arrived and been
 * answered (an empty queue is logged as a receive failure). */
static void poll_messages(void)
{
    struct demo_msg m;
    if (d.messages > 0)
        return;
    memset(&m, 0, sizeof m);
    if (vxu_msgq_recv(NULL, d.msgq_id, &m, (int)sizeof m.text, MSG_HELLO, IPC_NOWAIT) != 0)
        return;
    d.messages++;
    say("message queue: \"%s\"", m.text);
    m.type = MSG_REPLY;
    snprintf(m.text, sizeof m.text, "welcome, from %s", DAEMON_NAME);
    vxu_msgq_send(NULL, d.msgq_id, &m, (unsigned)strlen(m.text) + 1, 0);
}

/* ---- Loop callbacks (the loop thread) ------------------------------------ */

static void on_command(int fd, int events, void *arg)
{
    vxu_cmdq_item *item = NULL;
    int id = 0;
    (void)fd;
    (void)events;
    (void)arg;
    /* One record per readiness; the loop calls again while bytes remain. */
    if (vxu_cmdq_pull(&d.cmds, 0, &item) != 1)
        return;
    switch (item->cmd) {
    case CMD_WORK:
        d.work_items++;
        say("worker: %s", (const char *)item->data);
        break;
    case CMD_TICK:
        d.ticks++;
        poll_messages();
        break;
    case CMD_ALARM:
        memcpy(&id, item->data, sizeof id);
        d.alarms++;
        say("alarm timer %d fired", id);
        break;
    case CMD_TMRQ:
        d.tmrq_deliveries++;
        break;
    }
    vxu_cmdq_item_free(&d.cmds, item);
}

static void answer(int fd, const char *text) { vxu_net_send(fd, text, (int)strlen(text)); }

static void handle_request(int fd, char *request)
{
    char reply[256];
    d.ipc_commands++;
    say("request: %s", request);
    if (strcmp(request, "status") == 0) {
        snprintf(reply, sizeof reply,
                 "pid %d, work items %d, ticks %d, alarms %d, timer-queue deliveries %d, "
                 "messages %d, rss %d pages",
                 (int)getpid(), d.work_items, d.ticks, d.alarms, d.tmrq_deliveries, d.messages,
                 vxu_com_mem_get_rss());
    } else if (strncmp(request, "resolve ", 8) == 0) {
        struct in_addr addr;
        char text[16];
        addr.s_addr = 0;
        if (vexmar_resolver_dns(d.dns_config, request + 8, &addr) == 0 && addr.s_addr != 0 &&
            inet_ntop(AF_INET, &addr, text, sizeof text))
            snprintf(reply, sizeof reply, "%s is %s", request + 8, text);
        else
            snprintf(reply, sizeof reply, "%s: no address", request + 8);
    } else if (strcmp(request, "stop") == 0) {
        snprintf(reply, sizeof reply, "bye");
        d.stop = 1;
    } else {
        snprintf(reply, sizeof reply, "unknown command");
    }
    answer(fd, reply);
}

static void on_client(int fd, int events, void *arg)
{
    char request[128];
    int n = vxu_net_recv(fd, request, (int)sizeof request - 1);
    (void)events;
    (void)arg;
    if (n <= 0) { /* the client hung up */
        vxu_loop_remove(fd);
        close(fd);
        return;
    }
    request[n] = '\0';
    request[strcspn(request, "\r\n")] = '\0';
    handle_request(fd, request);
}

static void on_accept(int fd, int events, void *arg)
{
    int client = accept(fd, NULL, NULL);
    (void)events;
    if (client < 0)
        return;
    if (vxu_loop_add(client, VXU_LOOP_EV_READ, on_client, arg) != 0)
        close(client);
}

/* ---- Start-up and shutdown ------------------------------------------------ */

static int make_paths(const char *dir)
{
    struct paths *p = &d.paths;
    return snprintf(p->sock, sizeof p->sock, "%s/%s.sock", dir, DAEMON_NAME) >=
               (int)sizeof p->sock ||
           snprintf(p->pid, sizeof p->pid, "%s/%s.pid", dir, DAEMON_NAME) >= (int)sizeof p->pid ||
           snprintf(p->lock, sizeof p->lock, "%s/%s.lock", dir, DAEMON_NAME) >=
               (int)sizeof p->lock ||
           snprintf(p->key, sizeof p->key, "%s/%s.key", dir, DAEMON_NAME) >= (int)sizeof p->key;
}

static int start_timers(void)
{
    int tick, alarm;
    if (vxu_tmr_init() != 0)
        return -1;
    tick = vxu_tmr_create(VXU_TMR_TYPE_LIST);
    if (tick < 0 || vxu_tmr_set(tick, 250, 0, on_tick, 0) != 0 || vxu_tmr_start(tick) != 0)
        return -1;
    /* A timer descriptor on the alarm clock needs CAP_WAKE_ALARM. */
    alarm = vxu_tmr_create(VXU_TMR_TYPE_FD);
    if (alarm < 0 || vxu_tmr_set(alarm, 1000, 0, on_alarm, 0) != 0 || vxu_tmr_start(alarm) != 0)
        say("alarm timer not available (%s); going on without it", strerror(errno));

    if (vxu_tmrq_init(&d.tmrq, 0) != 0 || vxu_tmrq_tmr_add(&d.tmrq, 1, 0, 0, 400, 1) < 0)
        return -1;
    return vxu_thread_create(tmrq_puller_main, NULL) ? 0 : -1;
}

int main(int argc, char **argv)
{
    int lock_fd;
    pid_t peer;

    if (argc < 2 || make_paths(argv[1])) {
        fprintf(stderr, "usage: %s <run dir> [resolver configuration]\n", argv[0]);
        return 2;
    }
    d.dns_config = argc > 2 ? argv[2] : NULL;
    setvbuf(stdout, NULL, _IOLBF, 0);
    signal(SIGPIPE, SIG_IGN); /* a client that hangs up must not end us */

    if (vexmar_check_process_singal_instance(d.paths.lock) != 0) {
        say("another instance holds %s; not starting", d.paths.lock);
        return 1;
    }
    lock_fd = vexmar_set_process_single_instance(d.paths.lock);
    if (lock_fd < 0 || vexmar_write_pid_file(d.paths.pid) != 0) {
        say("cannot take the lock or write the pid file");
        return 1;
    }
    mkdir("/tmp/vx_flags", 0755);
    vxu_com_add_flag_file(DAEMON_NAME);
    say("started as pid %d (thread %d); pid file %s", (int)getpid(), vxu_com_gettid(), d.paths.pid);

    d.msgq_id = vxu_msgq_init(NULL, d.paths.key, 'v');
    d.ipc_fd = vxu_net_ipc_server(d.paths.sock);
    if (vxu_loop_init(0) != 0 || vxu_cmdq_init(&d.cmds, 0) != 0 || d.ipc_fd < 0 || d.msgq_id < 0 ||
        vxu_loop_add(vxu_cmdq_get_fd(&d.cmds), VXU_LOOP_EV_READ, on_command, NULL) != 0 ||
        vxu_loop_add(d.ipc_fd, VXU_LOOP_EV_READ, on_accept, NULL) != 0 || start_timers() != 0 ||
        !vxu_thread_create(worker_main, NULL)) {
        say("start-up failed");
        return 1;
    }
    peer = start_peer();
    say("serving %s", d.paths.sock);

    while (!d.stop) {
        if (vxu_loop_run(200) < 0) {
            say("loop failed: %s", strerror(errno));
            break;
        }
    }

    say("stopping: %d work items, %d ticks, %d alarms, %d timer-queue deliveries", d.work_items,
        d.ticks, d.alarms, d.tmrq_deliveries);
    if (peer > 0)
        waitpid(peer, NULL, 0);
    vxu_msgq_deinit(NULL, d.msgq_id);
    unlink(d.paths.key);
    close(d.ipc_fd);
    unlink(d.paths.sock);
    unlink(d.paths.pid);
    vxu_com_del_flag_file(DAEMON_NAME);
    unlink("/tmp/vx_flags/" DAEMON_NAME ".remove");
    vexmar_release_process_single_instance(lock_fd);
    unlink(d.paths.lock);
    say("flag lowered, files removed; exiting");
    return 0;
}

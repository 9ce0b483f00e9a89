/*
 * vxu_client: sends one command to vxu_daemon's IPC endpoint and prints the
 * answer.
 *
 *   vxu_client <socket path> <command words...>
 */
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vxutil/vxutil.h>

int main(int argc, char **argv)
{
    char command[128] = "";
    char reply[512];
    size_t used = 0;
    int fd, n, i;

    if (argc < 3) {
        fprintf(stderr, "usage: %s <socket path> <command...>\n", argv[0]);
        return 2;
    }
    for (i = 2; i < argc && used < sizeof command; i++)
        used += (size_t)snprintf(command + used, sizeof command - used, "%s%s", i > 2 ? " " : "",
                                 argv[i]);
    printf("[client] > %s\n", command);
    fflush(stdout);
    fd = vxu_net_ipc_client(argv[1]);
    if (fd < 0) {
        printf("[client] %s: no daemon there\n", argv[1]);
        return 1;
    }
    if (vxu_net_send(fd, command, (int)strlen(command)) != 0 ||
        (n = vxu_net_recv(fd, reply, (int)sizeof reply - 1)) <= 0) {
        printf("[client] no answer\n");
        close(fd);
        return 1;
    }
    reply[n] = '\0';
    printf("[client] < %s\n", reply);
    close(fd);
    return 0;
}

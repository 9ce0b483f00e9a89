/*
 * vxutil net: socket factories, local IPC endpoints, interface control,
 * address and MAC text, and host-name resolution.
 *
 * Failures return -1 (or NULL) and leave errno as the failing system call
 * set it; no descriptor made inside a call outlives a failure.
 */
#ifndef VXUTIL_NET_H
#define VXUTIL_NET_H

#include <netinet/in.h>
#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Socket factories ----------------------------------------------------
 * Each returns a new descriptor owned by the caller, or -1. No socket
 * options are set. Address text goes through inet_addr; NULL local address
 * text means any address. Unix paths longer than 108 bytes and interface
 * names of 16 bytes or more are refused before a socket is made.
 */

/* IPv4 TCP socket bound to local_ip:port and listening with backlog. */
VXU_API int vexmar_create_tcp_server(const char *local_ip, uint16_t port, int backlog);
/* IPv4 TCP connection to remote_ip:remote_port, bound first to
 * local_ip:local_port when local_port is not 0. blocking != 0: one plain
 * connect. blocking == 0: the socket is made non-blocking (and stays so)
 * and the connect may take up to timeout_sec seconds. */
VXU_API int vexmar_create_tcp_client(const char *local_ip, uint16_t local_port,
                                     const char *remote_ip, uint16_t remote_port,
                                     uint8_t blocking, int timeout_sec);
/* Unix stream socket listening at path; a file left at path is removed first. */
VXU_API int vexmar_create_unix_server(const char *path, int backlog);
/* Unix stream socket connected to path. */
VXU_API int vexmar_create_unix_client(const char *path);
/* Unix datagram socket bound to path; fails when path already exists. */
VXU_API int vexmar_create_unix_udp_server(const char *path);
/* IPv4 UDP socket bound to local_ip:port. */
VXU_API int vexmar_create_udp(const char *local_ip, uint16_t port);
/* Raw packet socket that receives frames of protocol (host order, e.g. an
 * EtherType) arriving on the interface ifname only. */
VXU_API int vexmar_packet_listen(const char *ifname, uint16_t protocol);

/* ---- Local IPC endpoints --------------------------------------------------
 * Unix stream sockets at filesystem paths.
 */

/* Listening endpoint (backlog 10) at path, opened to every user with
 * "chmod 777". Returns the descriptor, -2 for a NULL or empty path, -1 when
 * socket or bind failed. */
VXU_API int vxu_net_ipc_server(const char *path);
/* Connected, blocking descriptor; -1 when path does not exist, is 108 bytes
 * or longer, or socket or connect failed. */
VXU_API int vxu_net_ipc_client(const char *path);
/* One write, repeated while interrupted: 0 once it wrote anything (a short
 * write included), -1 on any other error. */
VXU_API int vxu_net_send(int fd, const void *buf, int len);
/* One read, repeated while interrupted: the byte count (0 at end of
 * stream), -1 on any other error. */
VXU_API int vxu_net_recv(int fd, void *buf, int len);

/* ---- Interface control ----------------------------------------------------
 * One interface ioctl on a throw-away control socket; 0 or -1. Index, flag
 * and MTU functions use the first 15 bytes of the name; the MAC functions
 * up to 16. MAC addresses are 6 raw bytes.
 */

/* Name of interface index into name[size], cut and always terminated at
 * name[size - 1]. */
VXU_API int vxu_net_get_ifname(int index, char *name, int size);
/* Stores the index when index is not NULL; NULL only tests existence. */
VXU_API int vxu_net_get_ifindex(const char *name, int *index);
/* Stores the 16-bit flag word sign-extended. */
VXU_API int vxu_net_get_ifflag(const char *name, int *flags);
/* Replaces the whole flag word. */
VXU_API int vxu_net_set_ifflag(const char *name, uint16_t flags);
/* Set (resp. clear) IFF_UP, issuing the change only when needed. */
VXU_API int vxu_net_set_ifup(const char *name);
VXU_API int vxu_net_set_ifdown(const char *name);
VXU_API int vxu_net_set_ifmtu(const char *name, int mtu);
/* Stores the MTU when mtu is not NULL. */
VXU_API int vxu_net_get_ifmtu(const char *name, int *mtu);
/* len is the size of the mac buffer, at least 6. */
VXU_API int vxu_net_set_ifmac(const char *name, const uint8_t *mac, int len);
VXU_API int vxu_net_get_ifmac(const char *name, uint8_t *mac, int len);

/* ---- Address and MAC text --------------------------------------------------
 * The char * results point into per-thread buffers, valid in the calling
 * thread until it calls the same function again.
 */

/* inet_ntop into buf[size]: 0, or -1 for NULL arguments, size < 1 or a
 * buffer too small for the text. */
VXU_API int vxu_net_ipstr(const struct in_addr *addr, char *buf, int size);
VXU_API int vxu_net_ip6str(const struct in6_addr *addr, char *buf, int size);
/* 0 when inet_aton accepts text (stored in out unless out is NULL), else -1. */
VXU_API int vxu_net_strip(const char *text, struct in_addr *out);
/* "AA:BB:CC:DD:EE:FF" from the first 6 of count bytes; buf needs 18 bytes. */
VXU_API int vxu_net_macstr(const uint8_t *mac, int count, char *buf, int size);
/* Six colon-separated hexadecimal fields into mac[0..5]; mac (size bytes,
 * at least 6) is zeroed first, so a failure leaves zeros. */
VXU_API int vxu_net_strmac(const char *text, uint8_t *mac, int size);
/* Dotted text of an address stored as an int in network order. */
VXU_API char *vexmar_ip_int_to_string(uint32_t addr);
/* inet_ntoa's own text. */
VXU_API char *vexmar_ipv4_ntoa(struct in_addr addr);
/* inet_ntop text, or NULL. */
VXU_API char *vexmar_ipv6_ntop(struct in6_addr addr);
/* 0 for a strict dotted quad (digits and dots only, four fields <= 255). */
VXU_API int vexmar_ipv4_check(const char *text);
/* Six fields of one or two hexadecimal digits, "xx:xx:xx:xx:xx:xx". */
VXU_API int vexmar_mac_to_char(const char *text, uint8_t mac[6]);

/* ---- Name resolution -------------------------------------------------------
 * Both print their progress and failures on standard output.
 */

/* Dotted text (inet_ntoa's buffer) of the first IPv4 address getaddrinfo
 * gives for host, or NULL. */
VXU_API char *vexmar_gethostbyurl(const char *host);
/* A record query through adns, against the resolver configuration text
 * config (NULL: the system's configuration). Writes the first address of
 * the answer, network order, to out. 0 when the query completed (out is
 * untouched when the answer had no record), -1 on an adns failure. */
VXU_API int vexmar_resolver_dns(const char *config, const char *host, void *out);

VXU_END_DECLS

#endif /* VXUTIL_NET_H */

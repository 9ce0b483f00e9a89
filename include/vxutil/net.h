/**
 * @file net.h
 * @brief Networking: socket factories, local IPC endpoints, interface
 *        control, address and MAC text, and host-name resolution.
 *
 * Every function may be called from any thread; none keeps state between
 * calls. Failures return -1 (or NULL) and leave errno as the failing system
 * call set it (an argument refused before any system call leaves errno
 * alone); no descriptor made inside a call outlives a failure.
 *
 * IPv4 addresses are 4 bytes in network order (in_addr), IPv6 addresses 16
 * bytes (in6_addr), MAC addresses exactly 6 raw bytes, first byte first.
 */
#ifndef VXUTIL_NET_H
#define VXUTIL_NET_H

#include <netinet/in.h>
#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Socket factories ----------------------------------------------------
 * Each returns a new descriptor that the caller owns and closes, or -1.
 * No socket option is set (no SO_REUSEADDR, no close-on-exec). Address
 * text is dotted IPv4 read by inet_addr (text it cannot read becomes
 * 255.255.255.255 and the bind or connect decides); NULL local address
 * text means any address. Unix paths longer than 108 bytes are refused
 * before a socket is made; a path of exactly 108 bytes is used whole.
 */

/**
 * @brief Creates an IPv4 TCP socket bound to @p local_ip:@p port and
 *        listening.
 * @param local_ip Local address text, or NULL for any address.
 * @param port Local port, host order.
 * @param backlog Listen backlog.
 * @return The listening descriptor; -1 when socket, bind or listen fails.
 */
VXU_API int vexmar_create_tcp_server(const char *local_ip, uint16_t port, int backlog);

/**
 * @brief Connects an IPv4 TCP socket to @p remote_ip:@p remote_port.
 *
 * With @p blocking non-zero, one plain connect without a time-out. With
 * @p blocking 0 the socket is made non-blocking and stays so for the
 * caller; a connect in progress is waited for (poll, so any descriptor
 * number works) at most @p timeout_sec seconds.
 * @param local_ip Local address text, or NULL for any; ignored when
 *                 @p local_port is 0.
 * @param local_port Local port, host order; 0: no bind, the kernel chooses.
 * @param remote_ip Remote address text (required).
 * @param remote_port Remote port, host order.
 * @param blocking Non-zero: blocking connect; 0: timed non-blocking one.
 * @param timeout_sec Longest wait in seconds when @p blocking is 0.
 * @return The connected descriptor; -1 when @p remote_ip is NULL (no socket
 *         made), socket, bind or connect fails, the wait times out (errno
 *         ETIMEDOUT), the connection is refused or fails (errno is the
 *         socket's pending error) or @p timeout_sec is negative (EINVAL).
 */
VXU_API int vexmar_create_tcp_client(const char *local_ip, uint16_t local_port,
                                     const char *remote_ip, uint16_t remote_port, uint8_t blocking,
                                     int timeout_sec);

/**
 * @brief Creates a Unix stream socket listening at @p path.
 *
 * Whatever file is at @p path (typically a stale socket from an earlier
 * run) is removed first. The socket file stays after the descriptor is
 * closed.
 * @param path Filesystem path, at most 108 bytes.
 * @param backlog Listen backlog.
 * @return The listening descriptor; -1 for a NULL or too long @p path, or
 *         when socket, bind or listen fails.
 */
VXU_API int vexmar_create_unix_server(const char *path, int backlog);

/**
 * @brief Creates a Unix stream socket connected to @p path.
 * @param path Path of a listening socket, at most 108 bytes.
 * @return The connected, blocking descriptor; -1 for a NULL or too long
 *         @p path, or when socket or connect fails.
 */
VXU_API int vexmar_create_unix_client(const char *path);

/**
 * @brief Creates a Unix datagram socket bound to @p path.
 *
 * Unlike vexmar_create_unix_server() nothing is removed first: remove a
 * stale file yourself. The socket file stays after the descriptor is
 * closed.
 * @param path Filesystem path, at most 108 bytes, that must not exist.
 * @return The bound descriptor; -1 for a NULL or too long @p path, when
 *         @p path already exists (EADDRINUSE) or socket or bind fails.
 */
VXU_API int vexmar_create_unix_udp_server(const char *path);

/**
 * @brief Creates an IPv4 UDP socket bound to @p local_ip:@p port.
 * @param local_ip Local address text, or NULL for any address.
 * @param port Local port, host order; 0 lets the kernel choose.
 * @return The bound descriptor; -1 when socket or bind fails.
 */
VXU_API int vexmar_create_udp(const char *local_ip, uint16_t port);

/**
 * @brief Creates a raw packet socket that receives the frames of one
 *        protocol arriving on one interface. Needs CAP_NET_RAW.
 * @param ifname Interface name, at most 15 bytes.
 * @param protocol Link-layer protocol, host order (an EtherType such as
 *                 0x888E, or ETH_P_ALL).
 * @return The bound descriptor; -1 for a NULL name or one of 16 bytes or
 *         more (no socket made), or when socket, the index lookup (unknown
 *         interface) or bind fails.
 */
VXU_API int vexmar_packet_listen(const char *ifname, uint16_t protocol);

/* ---- Local IPC endpoints ------------------------------------------------- */

/**
 * @brief Creates the listening Unix stream endpoint of a daemon at @p path
 *        and opens it to every user.
 *
 * Whatever file is at @p path is removed first; the backlog is 10. After the
 * bind the shell command "chmod 777 <path>" is run through system(), with
 * the path unquoted (use plain paths) and the command cut at 255
 * characters; its result and the listen result are not checked. The
 * socket file stays after the descriptor is closed.
 * @param path Filesystem path; only its first 108 bytes name the socket.
 * @return The listening descriptor; -2 for a NULL or empty @p path; -1 when
 *         socket or bind fails (a failed bind removes @p path).
 */
VXU_API int vxu_net_ipc_server(const char *path);

/**
 * @brief Connects to the endpoint at @p path.
 * @param path Path given to vxu_net_ipc_server(), below 108 bytes.
 * @return The connected, blocking descriptor; -1 when @p path is NULL, does
 *         not exist (no connect attempted: the server is not up yet), is
 *         108 bytes or longer, or socket or connect fails (for example on a
 *         stale file nobody listens at).
 */
VXU_API int vxu_net_ipc_client(const char *path);

/**
 * @brief Writes once, repeating the write while it is interrupted by a
 *        signal.
 *
 * A short write also returns 0 and the rest is not sent; EAGAIN is not
 * retried.
 * @param fd Descriptor.
 * @param buf Bytes to send.
 * @param len Number of bytes.
 * @return 0 once the write succeeded; -1 for a negative @p len (EINVAL) or
 *         any error other than EINTR.
 */
VXU_API int vxu_net_send(int fd, const void *buf, int len);

/**
 * @brief Reads once, repeating the read while it is interrupted by a
 *        signal.
 * @param fd Descriptor.
 * @param buf Receives the bytes.
 * @param len Capacity of @p buf.
 * @return The number of bytes read, 0 at end of stream (the peer closed);
 *         -1 for a negative @p len (EINVAL) or any error other than EINTR
 *         (EAGAIN included).
 */
VXU_API int vxu_net_recv(int fd, void *buf, int len);

/* ---- Interface control ----------------------------------------------------
 * Each call makes a throw-away AF_INET datagram socket, issues one
 * interface ioctl and closes the socket. The set functions need
 * CAP_NET_ADMIN. Index, flag and MTU functions use the first 15 bytes of
 * the name; the MAC functions up to 16.
 */

/**
 * @brief Looks up the name of an interface index.
 * @param index Interface index.
 * @param name Receives the name, cut to @p size - 1 bytes; name[size - 1]
 *             is always 0. Untouched on failure.
 * @param size Size of @p name; IFNAMSIZ (16) holds every name.
 * @return 0; -1 when @p name is NULL, @p size is 0 or less, or no
 *         interface has @p index.
 */
VXU_API int vxu_net_get_ifname(int index, char *name, int size);

/**
 * @brief Looks up the index of an interface, or tests that it exists.
 * @param name Interface name.
 * @param index Receives the index; NULL only tests existence.
 * @return 0; -1 when @p name is NULL or names no interface.
 */
VXU_API int vxu_net_get_ifindex(const char *name, int *index);

/**
 * @brief Reads an interface's flag word (IFF_UP, IFF_RUNNING, ...).
 * @param name Interface name.
 * @param flags Receives the 16-bit word sign-extended: bit 15 makes it
 *              negative. Untouched on failure.
 * @return 0; -1 when an argument is NULL or the request fails.
 */
VXU_API int vxu_net_get_ifflag(const char *name, int *flags);

/**
 * @brief Replaces an interface's whole flag word.
 * @param name Interface name.
 * @param flags The new flag word.
 * @return 0; -1 when @p name is NULL or the request fails.
 */
VXU_API int vxu_net_set_ifflag(const char *name, uint16_t flags);

/**
 * @brief Brings an interface up: sets IFF_UP when it is clear, leaving the
 *        other flags as read.
 *
 * Reads, then writes the flag word without a lock: a flag changed by
 * someone else in between is overwritten.
 * @param name Interface name.
 * @return 0, also when it was up already (no change requested); -1 when
 *         @p name is NULL or either request fails.
 */
VXU_API int vxu_net_set_ifup(const char *name);

/**
 * @brief Takes an interface down: clears IFF_UP when it is set, leaving the
 *        other flags as read (same read-then-write race as
 *        vxu_net_set_ifup()).
 * @param name Interface name.
 * @return 0, also when it was down already (no change requested); -1 when
 *         @p name is NULL or either request fails.
 */
VXU_API int vxu_net_set_ifdown(const char *name);

/**
 * @brief Sets an interface's MTU.
 * @param name Interface name.
 * @param mtu The new MTU.
 * @return 0; -1 when @p name is NULL or the request fails (for example an
 *         MTU the device does not accept).
 */
VXU_API int vxu_net_set_ifmtu(const char *name, int mtu);

/**
 * @brief Reads an interface's MTU, or tests that it exists.
 * @param name Interface name.
 * @param mtu Receives the MTU; may be NULL.
 * @return 0; -1 when @p name is NULL or the request fails.
 */
VXU_API int vxu_net_get_ifmtu(const char *name, int *mtu);

/**
 * @brief Sets an interface's hardware address (Ethernet family). Many
 *        drivers accept it only while the interface is down.
 * @param name Interface name, not empty; a name of 16 bytes is used whole.
 * @param mac The 6 address bytes.
 * @param len Size of the @p mac buffer, at least 6; only 6 bytes are used.
 * @return 0; -1 when @p name is NULL or empty, @p mac is NULL, @p len is
 *         below 6, or the request fails.
 */
VXU_API int vxu_net_set_ifmac(const char *name, const uint8_t *mac, int len);

/**
 * @brief Reads an interface's hardware address.
 * @param name Interface name, not empty; a name of 16 bytes is used whole.
 * @param mac Receives 6 bytes; untouched on failure.
 * @param len Size of the @p mac buffer, at least 6.
 * @return 0; -1 when @p name is NULL or empty, @p mac is NULL, @p len is
 *         below 6, or the request fails.
 */
VXU_API int vxu_net_get_ifmac(const char *name, uint8_t *mac, int len);

/* ---- Address and MAC text -------------------------------------------------
 * The char * results are never freed by the caller and must not be handed
 * to another thread: they point into per-thread buffers that the next call
 * of the same function in that thread overwrites (inet_ntoa's buffer, used
 * by vexmar_ipv4_ntoa() and vexmar_gethostbyurl(), is shared by both and by
 * inet_ntoa itself).
 */

/**
 * @brief Writes an IPv4 address as dotted text (inet_ntop).
 * @param addr The address.
 * @param buf Receives the text; 16 bytes (INET_ADDRSTRLEN) always suffice.
 * @param size Size of @p buf.
 * @return 0; -1 when @p addr or @p buf is NULL, @p size is below 1, or the
 *         text does not fit (ENOSPC).
 */
VXU_API int vxu_net_ipstr(const struct in_addr *addr, char *buf, int size);

/**
 * @brief Writes an IPv6 address as text (inet_ntop).
 * @param addr The address.
 * @param buf Receives the text; 46 bytes (INET6_ADDRSTRLEN) always suffice.
 * @param size Size of @p buf.
 * @return 0; -1 when @p addr or @p buf is NULL, @p size is below 1, or the
 *         text does not fit (ENOSPC).
 */
VXU_API int vxu_net_ip6str(const struct in6_addr *addr, char *buf, int size);

/**
 * @brief Reads IPv4 text by inet_aton's lenient rules (shortened forms such
 *        as "10.1", octal and hexadecimal parts). For the strict dotted
 *        quad use vexmar_ipv4_check().
 * @param text The text.
 * @param out Receives the address; NULL only tests the text.
 * @return 0 accepted; -1 when @p text is NULL, empty or refused.
 */
VXU_API int vxu_net_strip(const char *text, struct in_addr *out);

/**
 * @brief Writes a MAC address as upper-case "AA:BB:CC:DD:EE:FF".
 * @param mac The address bytes; only the first 6 are used.
 * @param count Number of bytes at @p mac, at least 6.
 * @param buf Receives the 17 characters and the terminator.
 * @param size Size of @p buf, at least 18.
 * @return 0; -1 when @p mac or @p buf is NULL, @p count is below 6 or
 *         @p size below 18.
 */
VXU_API int vxu_net_macstr(const uint8_t *mac, int count, char *buf, int size);

/**
 * @brief Reads a MAC address from six colon-separated hexadecimal fields.
 *
 * Runs of ':' count as one separator, leading and trailing ones are
 * ignored; each field is read whole by strtol base 16 (its leniency kept:
 * blanks, a sign, 0x) and only its low byte is kept (1FF gives FF). Only
 * the first 63 characters of @p text are read.
 * @param text The text, e.g. "00:11:22:aa:BB:cc".
 * @param mac Receives the 6 bytes. Once the arguments pass, all @p size
 *            bytes are zeroed first, so a failure leaves zeros.
 * @param size Size of @p mac, at least 6.
 * @return 0; -1 when @p text or @p mac is NULL or @p size is below 6
 *         (@p mac untouched), or the text is not exactly six fields of
 *         hexadecimal digits.
 */
VXU_API int vxu_net_strmac(const char *text, uint8_t *mac, int size);

/**
 * @brief Dotted text of an IPv4 address kept in an int, bytes taken lowest
 *        order first: an address in network order prints as usual on
 *        little-endian machines.
 * @param addr The address as stored (network order).
 * @return The text in a per-thread buffer; never NULL.
 */
VXU_API char *vexmar_ip_int_to_string(uint32_t addr);

/**
 * @brief Dotted text of an IPv4 address (inet_ntoa).
 * @param addr The address.
 * @return inet_ntoa's own per-thread buffer; never NULL.
 */
VXU_API char *vexmar_ipv4_ntoa(struct in_addr addr);

/**
 * @brief Text of an IPv6 address (inet_ntop).
 * @param addr The address.
 * @return The text in a per-thread buffer; NULL when inet_ntop fails.
 */
VXU_API char *vexmar_ipv6_ntop(struct in6_addr addr);

/**
 * @brief Tests for a strict dotted quad: only digits and dots, exactly four
 *        fields, each at most 255.
 *
 * Leading zeros are read as decimal (010 is 10). Blanks, signs, a line
 * end, an empty field or a fifth dot make the text invalid.
 * @param text The text.
 * @return 0 valid; -1 invalid or NULL.
 */
VXU_API int vexmar_ipv4_check(const char *text);

/**
 * @brief Reads a MAC address "xx:xx:xx:xx:xx:xx", each field one or two
 *        hexadecimal digits of either case; text after the sixth field is
 *        ignored.
 * @param text The text.
 * @param mac Receives the 6 bytes; untouched on failure.
 * @return 0; -1 when an argument is NULL or fewer than six fields are read.
 */
VXU_API int vexmar_mac_to_char(const char *text, uint8_t mac[6]);

/* ---- Name resolution -------------------------------------------------------
 * Both block the calling thread until the resolver answers or gives up,
 * and print progress and failures on standard output.
 */

/**
 * @brief Resolves a host name to dotted IPv4 text through getaddrinfo.
 *
 * Prints "===host name :<host>" (when @p host is not NULL), then
 * "====res:<pointer>" or "====error:<code>,<text>" (no line end). Entries
 * of other families ahead of the first IPv4 one are passed over; a dotted
 * quad comes back unchanged.
 * @param host Host name or address text.
 * @return The text in inet_ntoa's per-thread buffer; NULL when getaddrinfo
 *         fails (also for a NULL @p host) or lists no IPv4 address.
 */
VXU_API char *vexmar_gethostbyurl(const char *host);

/**
 * @brief Resolves a host name's first A record through adns.
 *
 * Each call makes and finishes its own adns state. The answer's status is
 * not examined: an unknown name, or a name without an A record, returns 0
 * and leaves @p out untouched, so clear @p out before the call.
 * @param config Resolver configuration text in resolv.conf syntax (for
 *               example "nameserver 192.0.2.53"); adns's debug output then
 *               goes to standard output. NULL: the system's configuration,
 *               environment variables ignored, debug output on standard
 *               error.
 * @param host Host name to query.
 * @param out Receives the address, 4 bytes in network order.
 * @return 0 when the query completed; -1 when @p host or @p out is NULL, or
 *         adns initialisation (e.g. @p config rejected), submission or the
 *         wait fails (a failure line is printed).
 */
VXU_API int vexmar_resolver_dns(const char *config, const char *host, void *out);

VXU_END_DECLS

#endif /* VXUTIL_NET_H */

// Host name to dotted IPv4 text through the system resolver.
#include <arpa/inet.h>
#include <netdb.h>
#include <stdio.h>
#include <string.h>

#include <vxutil/net.h>

extern "C" {

VXU_API char *vexmar_gethostbyurl(const char *host)
{
    if (host)
        printf("===host name :%s\n", host);
    addrinfo hints;
    memset(&hints, 0, sizeof hints);
    hints.ai_flags = AI_PASSIVE;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *list = nullptr;
    const int rc = getaddrinfo(host, nullptr, &hints, &list);
    if (rc != 0) {
        printf("====error:%d,%s", rc, gai_strerror(rc));
        return nullptr;
    }
    printf("====res:%p\n", static_cast<void *>(list));
    // Any family is asked for; IPv6 entries ahead of the first IPv4 one are
    // passed over.
    char *text = nullptr;
    for (const addrinfo *it = list; it; it = it->ai_next) {
        if (it->ai_family == AF_INET) {
            text = inet_ntoa(reinterpret_cast<const sockaddr_in *>(it->ai_addr)->sin_addr);
            break;
        }
    }
    freeaddrinfo(list);  // the text lives in inet_ntoa's own buffer
    return text;
}

}  // extern "C"

#include "ownnetwork.h"

#include <arpa/inet.h>
#include <cstring>
#include <ifaddrs.h>
#include <net/if.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

static QString addressText(const struct sockaddr *address)
{
    char text[INET6_ADDRSTRLEN] = "";
    if (address->sa_family == AF_INET)
        inet_ntop(AF_INET, &reinterpret_cast<const struct sockaddr_in *>(address)->sin_addr, text, sizeof text);
    else if (address->sa_family == AF_INET6)
        inet_ntop(AF_INET6, &reinterpret_cast<const struct sockaddr_in6 *>(address)->sin6_addr, text, sizeof text);
    return QString::fromLatin1(text);
}

bool ownnetwork::hasInterface(const char *name)
{
    return if_nametoindex(name) != 0;
}

QStringList ownnetwork::addresses(const char *interface)
{
    QStringList ipv4;
    QStringList ipv6;
    struct ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0)
        return ipv4;
    for (const struct ifaddrs *one = all; one; one = one->ifa_next) {
        if (!one->ifa_addr || std::strcmp(one->ifa_name, interface) != 0)
            continue;
        if (one->ifa_addr->sa_family == AF_INET)
            ipv4 += addressText(one->ifa_addr);
        else if (one->ifa_addr->sa_family == AF_INET6)
            ipv6 += addressText(one->ifa_addr);
    }
    freeifaddrs(all);
    return ipv4 + ipv6;
}

QString ownnetwork::macAddress(const char *interface)
{
    struct ifreq question = {};
    std::strncpy(question.ifr_name, interface, sizeof question.ifr_name - 1);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool isThere = ioctl(descriptor, SIOCGIFHWADDR, &question) == 0;
    close(descriptor);
    const QByteArray address(question.ifr_hwaddr.sa_data, 6);
    return isThere ? QString::fromLatin1(address.toHex().toUpper().constData()) : QString();
}

QString ownnetwork::userName(qint64 number)
{
    const struct passwd *const user = getpwuid(uid_t(number));
    return user ? QString::fromUtf8(user->pw_name) : QString::number(number);
}

QString ownnetwork::hostname()
{
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return QString::fromUtf8(name);
}

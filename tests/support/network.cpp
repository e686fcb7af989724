#include "network.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QStringList>

namespace network
{

bool ip(const char *arguments)
{
    const QStringList words = QString::fromLatin1(arguments).split(QLatin1Char(' '));
    return QProcess::execute(QLatin1String("ip"), words) == 0;
}

bool reset()
{
    return ip("link set eth0 up")
        && ip("address flush dev eth0")
        && ip("address add 10.77.0.2/24 dev eth0")
        && ip("route replace default dev eth0");
}

bool enableIpv6()
{
    QFile file(QLatin1String("/proc/sys/net/ipv6/conf/eth0/disable_ipv6"));
    if (!file.open(QIODevice::WriteOnly) || file.write("0\n") != 2)
        return false;
    file.close();
    return ip("-6 address flush dev eth0"); // the one that the kernel has made at once
}

} // namespace network

#ifndef NETWORK_H
#define NETWORK_H

#include <QtCore/QString>

// The network of the test's own namespace, where a test is root.
namespace network
{

// Runs "ip <arguments>"; false when it fails.
bool ip(const char *arguments);

// eth0 as a test finds it: up, with 10.77.0.2/24 as its only address, and the default route.
bool reset();

// eth0 may have IPv6 addresses from now on; false where the machine knows none.
bool enableIpv6();

} // namespace network

#endif

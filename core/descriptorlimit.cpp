#include "descriptorlimit.h"

#include "qtcompat.h"

#include <cerrno>
#include <cstring>
#include <sys/resource.h>

void limitDescriptorsToEventLoop()
{
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur <= qtcompat::maximalDescriptors())
        return;
    limit.rlim_cur = qtcompat::maximalDescriptors();
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        qWarning("more open files allowed than the event loop can watch: %s", std::strerror(errno));
}

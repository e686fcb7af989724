#include "siphash.h"

#include <ctime>

#include <fcntl.h>
#include <unistd.h>

static bool readRandomBytes(void *bytes, std::size_t size)
{
    const int file = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (file == -1)
        return false;
    const bool isRead = read(file, bytes, size) == ssize_t(size);
    close(file);
    return isRead;
}

// Without random bytes, a key that at least differs from start to start.
siphash::Key siphash::randomKey()
{
    Key key = {};
    if (readRandomBytes(&key, sizeof key))
        return key;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    key.low = quint64(now.tv_sec) << 32 | quint64(now.tv_nsec);
    key.high = quint64(getpid()) << 32 | quint64(clock());
    return key;
}

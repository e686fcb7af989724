// Preloaded into the daemon, lets chosen calls of the C library fail. What fails is written by a test into the file that
// the environment variable FAILING names, and can change at any time; the numbers of calls are there to be read.
// failing.py is the other end.
//
// Each function is handed on with six machine words, whatever it takes: that is how processors pass arguments.

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

struct Function
{
    char name[24];
    int32_t calls;
};

struct Order
{
    char name[24]; // of the function
    int32_t callsLeft; // until the first one that fails; 0: none will
    int32_t failures; // still to come, in a row
    int32_t error;
    int32_t failed; // calls that have failed
    int32_t functionCount;
    Function functions[64];
    int32_t called; // how many of the following there are
    uint8_t sequence[16384]; // of calls, each by the place of its function in the table
};

Order nothing;
Order *order = &nothing;
uintptr_t clockBegin;
uintptr_t clockEnd;

// A library that makes the clock go faster is no part of the daemon.
int findClockLibrary(struct dl_phdr_info *info, size_t, void *)
{
    if (!std::strstr(info->dlpi_name, "libfaketime"))
        return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        if (info->dlpi_phdr[i].p_type == PT_LOAD && (info->dlpi_phdr[i].p_flags & PF_X)) {
            clockBegin = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
            clockEnd = clockBegin + info->dlpi_phdr[i].p_memsz;
        }
    }
    return 1;
}

__attribute__((constructor)) void openOrder()
{
    const char *file = std::getenv("FAILING");
    if (!file)
        return;
    dl_iterate_phdr(findClockLibrary, nullptr);
    const long descriptor = syscall(SYS_openat, AT_FDCWD, file, O_RDWR, 0);
    const long mapped = syscall(SYS_mmap, 0L, sizeof(Order), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0L);
    syscall(SYS_close, descriptor);
    if (mapped != -1)
        order = reinterpret_cast<Order *>(mapped);
}

int placeOf(const char *name)
{
    const int count = __atomic_load_n(&order->functionCount, __ATOMIC_ACQUIRE);
    for (int i = 0; i < count; ++i) {
        if (std::strcmp(order->functions[i].name, name) == 0)
            return i;
    }
    return -1;
}

void writeDown(int place)
{
    if (place == -1)
        return;
    __atomic_add_fetch(&order->functions[place].calls, 1, __ATOMIC_RELAXED);
    const int number = __atomic_fetch_add(&order->called, 1, __ATOMIC_RELAXED);
    if (number < int(sizeof order->sequence))
        order->sequence[number] = uint8_t(place);
}

bool isDue()
{
    return __atomic_load_n(&order->callsLeft, __ATOMIC_ACQUIRE) > 0
        && __atomic_sub_fetch(&order->callsLeft, 1, __ATOMIC_ACQ_REL) == 0;
}

bool fails(const char *name, const void *caller)
{
    const uintptr_t address = reinterpret_cast<uintptr_t>(caller);
    if (address >= clockBegin && address < clockEnd)
        return false;
    writeDown(placeOf(name));
    if (std::strcmp(order->name, name) != 0 || !isDue())
        return false;
    if (__atomic_sub_fetch(&order->failures, 1, __ATOMIC_ACQ_REL) > 0)
        __atomic_store_n(&order->callsLeft, 1, __ATOMIC_RELEASE);
    __atomic_add_fetch(&order->failed, 1, __ATOMIC_RELAXED);
    errno = order->error;
    return true;
}

typedef long (*Real)(long, long, long, long, long, long);

// The next library's function of that name; a symbol that none has is never called.
Real realOf(const char *symbol)
{
    void *found = dlsym(RTLD_NEXT, symbol);
    Real function;
    std::memcpy(&function, &found, sizeof function);
    return function;
}

} // namespace

// symbol: what the programs call. name: what it counts as. failure: what it returns when it fails.
#define FAILING_AS(symbol, name, failure)                                                                                         \
    extern "C" __attribute__((visibility("default"))) long failing_##symbol(long, long, long, long, long, long) __asm__(#symbol); \
    long failing_##symbol(long a, long b, long c, long d, long e, long f)                                                         \
    {                                                                                                                             \
        static const Real real = realOf(#symbol);                                                                                 \
        return fails(name, __builtin_return_address(0)) ? failure : real(a, b, c, d, e, f);                                       \
    }
#define FAILING(symbol) FAILING_AS(symbol, #symbol, -1)

FAILING(socket)
FAILING(socketpair)
FAILING(bind)
FAILING(listen)
FAILING(connect)
FAILING(accept)
FAILING(accept4)
FAILING(setsockopt)
FAILING(getsockopt)
FAILING(getsockname)
FAILING(getpeername)
FAILING(send)
FAILING(sendto)
FAILING(sendmsg)
FAILING(recv)
FAILING(recvfrom)
FAILING(recvmsg)
FAILING(shutdown)
FAILING_AS(open, "open", -1)
FAILING_AS(open64, "open", -1)
FAILING_AS(openat, "open", -1)
FAILING_AS(openat64, "open", -1)
FAILING_AS(fopen, "fopen", 0)
FAILING_AS(fopen64, "fopen", 0)
FAILING_AS(opendir, "opendir", 0)
FAILING(readlink)
FAILING(access)
FAILING(read)
FAILING(write)
FAILING(writev)
FAILING_AS(stat, "stat", -1)
FAILING_AS(stat64, "stat", -1)
FAILING_AS(lstat, "stat", -1)
FAILING_AS(lstat64, "stat", -1)
FAILING_AS(fstat, "stat", -1)
FAILING_AS(fstat64, "stat", -1)
FAILING_AS(statx, "stat", -1)
FAILING_AS(lseek, "lseek", -1)
FAILING_AS(lseek64, "lseek", -1)
FAILING_AS(mmap, "mmap", -1)
FAILING_AS(mmap64, "mmap", -1)
FAILING_AS(sendfile, "sendfile", -1)
FAILING_AS(sendfile64, "sendfile", -1)
FAILING_AS(fcntl, "fcntl", -1)
FAILING_AS(fcntl64, "fcntl", -1)
FAILING(ioctl)
FAILING(dup2)
FAILING(dup3)
FAILING(pipe)
FAILING(pipe2)
FAILING(eventfd)
FAILING(epoll_create1)
FAILING(epoll_ctl)
FAILING(epoll_wait)
FAILING_AS(inotify_init, "inotify_init", -1)
FAILING_AS(inotify_init1, "inotify_init", -1)
FAILING(inotify_add_watch)
FAILING_AS(poll, "poll", -1)
FAILING_AS(ppoll, "poll", -1)
FAILING(select)
FAILING(getifaddrs)
FAILING_AS(if_nametoindex, "if_nametoindex", 0)
FAILING_AS(if_indextoname, "if_indextoname", 0)
FAILING_AS(getrlimit, "getrlimit", -1)
FAILING_AS(getrlimit64, "getrlimit", -1)
FAILING_AS(setrlimit, "setrlimit", -1)
FAILING_AS(setrlimit64, "setrlimit", -1)
FAILING(sigaction)
FAILING(execv)
FAILING(execve)
FAILING(getrandom)
FAILING_AS(pthread_create, "pthread_create", errno)

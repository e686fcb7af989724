#include "allocationcount.h"

#include <cstddef>

static thread_local int count = 0;
static thread_local std::size_t largest = 0;

int allocationCount()
{
    return count;
}

std::size_t takeLargestAllocation()
{
    const std::size_t taken = largest;
    largest = 0;
    return taken;
}

static void note(std::size_t size)
{
    ++count;
    if (size > largest)
        largest = size;
}

#ifdef __SANITIZE_ADDRESS__

// gcc comes without the header of this.
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*allocated)(const volatile void *, std::size_t), void (*freed)(const volatile void *));

// The sanitizer has taken the place of malloc(), and says when it allocates.
static void allocated(const volatile void *, std::size_t size)
{
    note(size);
}

static void freed(const volatile void *)
{
}

static const int installed = __sanitizer_install_malloc_and_free_hooks(allocated, freed);

#else

#include <cerrno>

// In the place of the C library's for the whole program, its libraries included.
extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t number, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);

void *malloc(std::size_t size)
{
    note(size);
    return __libc_malloc(size);
}

void *calloc(std::size_t number, std::size_t size)
{
    note(number * size);
    return __libc_calloc(number, size);
}

void *realloc(void *memory, std::size_t size)
{
    note(size);
    return __libc_realloc(memory, size);
}

void *memalign(std::size_t alignment, std::size_t size)
{
    note(size);
    return __libc_memalign(alignment, size);
}

void *aligned_alloc(std::size_t alignment, std::size_t size)
{
    return memalign(alignment, size);
}

int posix_memalign(void **memory, std::size_t alignment, std::size_t size)
{
    *memory = memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}
}

#endif

#ifndef GUARDEDMEMORY_H
#define GUARDEDMEMORY_H

#include <QtCore/QtGlobal>

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

// A page of memory behind which nobody may read: doing so ends the program, without any sanitizer.
class GuardedMemory
{
public:
    GuardedMemory()
        : m_page(size_t(sysconf(_SC_PAGESIZE)))
        , m_begin(static_cast<char *>(mmap(nullptr, m_page * 2, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        if (m_begin == MAP_FAILED || mprotect(m_begin + m_page, m_page, PROT_NONE) != 0)
            qFatal("no memory with a guard");
    }
    ~GuardedMemory() { munmap(m_begin, m_page * 2); }

    // A copy of so many bytes, less than a page, that ends where the memory ends. It lasts until the next one.
    char *copy(const void *bytes, size_t size)
    {
        char *const place = m_begin + m_page - size;
        std::memcpy(place, bytes, size);
        return place;
    }

private:
    Q_DISABLE_COPY(GuardedMemory)

    const size_t m_page;
    char *const m_begin;
};

#endif

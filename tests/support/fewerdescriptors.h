#ifndef FEWERDESCRIPTORS_H
#define FEWERDESCRIPTORS_H

#include <QtGlobal>

#include <sys/resource.h>

// Lowers the number of descriptors that the process may have, as long as it lives. With 0 none can be opened.
class FewerDescriptors
{
public:
    explicit FewerDescriptors(int number)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        struct rlimit lower = m_before;
        lower.rlim_cur = rlim_t(number);
        setrlimit(RLIMIT_NOFILE, &lower);
    }
    ~FewerDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }

private:
    Q_DISABLE_COPY(FewerDescriptors)

    struct rlimit m_before;
};

#endif

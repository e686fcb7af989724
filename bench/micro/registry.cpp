#include "registry.h"

#include <QtCore/QCoreApplication>
#include <benchmark/benchmark.h>

#include <ctime>

namespace
{

const int interval = 10; // seconds
const quint16 port = 31416;

} // namespace

Registry::Registry()
    : m_settings("Zorv", "http://www.zorv.example", "Kelta", "a device", "http://www.zorv.example/kelta", nullptr)
    , m_scan(&m_settings, interval, nullptr)
{
}

void Registry::send(const QByteArray &announcement)
{
    m_sender.writeDatagram(announcement, QHostAddress(QHostAddress::LocalHost), port);
}

double processorTime()
{
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

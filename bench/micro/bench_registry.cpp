// The registry of devices, fed through its socket. Only the taking in is measured, not the sending.
//     /usr/bin/python3 simdevice/isolated.py build-bench/bench/bench_registry
#include "samples.h"
#include "upnpsettings.h"
#include "zorvscan.h"

#include <QtCore/QCoreApplication>
#include <QtNetwork/QUdpSocket>
#include <benchmark/benchmark.h>

#include <chrono>

namespace
{

const int interval = 10; // seconds
const quint16 port = 31416;
const int mostLearnt = 10000;

// The device's registry. No service is on its bus, so the settings are empty.
class Registry
{
public:
    Registry()
        : m_settings("Zorv", "http://www.zorv.example", "Kelta", "a device", "http://www.zorv.example/kelta", nullptr)
        , m_scan(&m_settings, interval, nullptr)
    {
        m_scan.pendingDatagrams(); // its own announcement comes back to it
    }

    explicit Registry(int devices)
        : Registry()
    {
        for (int i = 0; i < devices; ++i)
            take(sampleAnnouncement(i));
    }

    // Seconds
    double take(const QByteArray &datagram)
    {
        m_sender.writeDatagram(datagram, QHostAddress(QHostAddress::LocalHost), port);
        const auto begin = std::chrono::steady_clock::now();
        m_scan.pendingDatagrams();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }

    int devices() { return list().size(); }
    QVariantList list() { return m_scan.allChilds(QString()); }

private:
    UpnpSettings m_settings;
    ZorvScan m_scan;
    QUdpSocket m_sender;
};

void learning(benchmark::State &state)
{
    Registry registry;
    const int before = registry.devices();
    int next = 0;
    for (auto _ : state)
        state.SetIterationTime(registry.take(sampleAnnouncement(next++)));
    if (registry.devices() - before != next)
        state.SkipWithError("not every device was learnt");
}
BENCHMARK(learning)->Iterations(mostLearnt)->UseManualTime();

void refreshing(benchmark::State &state)
{
    const int known = int(state.range(0));
    Registry registry(known);
    const int before = registry.devices();
    int next = 0;
    for (auto _ : state)
        state.SetIterationTime(registry.take(sampleAnnouncement(next++ * 7919 % known)));
    if (registry.devices() != before)
        state.SkipWithError("the devices were not known");
}
BENCHMARK(refreshing)->Arg(10)->Arg(1000)->Arg(mostLearnt)->UseManualTime();

void listing(benchmark::State &state)
{
    Registry registry(int(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(registry.list());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(listing)->Arg(10)->Arg(1000)->Arg(mostLearnt);

// Listing when every device has announced itself since the last time
void listingAfterARefresh(benchmark::State &state)
{
    const int known = int(state.range(0));
    Registry registry(known);
    for (auto _ : state) {
        for (int i = 0; i < known; ++i)
            registry.take(sampleAnnouncement(i));
        const auto begin = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(registry.list());
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    state.SetItemsProcessed(state.iterations() * known);
}
BENCHMARK(listingAfterARefresh)->Arg(10)->Arg(1000)->Arg(mostLearnt)->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

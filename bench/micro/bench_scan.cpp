// The announcement among devices: built, searched for its uuid, and made into what the bus gets.
#include "announcement.h"
#include "dbusvalue.h"
#include "samples.h"
#include "zorvdevice.h"

#include <benchmark/benchmark.h>

namespace
{

announcement::Values device()
{
    const announcement::Ipv4Address ipv4 = { QLatin1String("192.168.1.20"), QLatin1String("255.255.255.0") };
    const announcement::Ipv6Address ipv6 = { QLatin1String("fe80::211:22ff:fe33:4455%eth0"), 64 };
    announcement::Interface wired;
    wired.name = QLatin1String("eth0");
    wired.isLoopback = false;
    wired.ipv4.append(ipv4);
    wired.ipv6.append(ipv6);
    announcement::Values values;
    values.hostname = "kelta";
    values.serial = "KM-2044817";
    values.modelName = "Kelta";
    values.hasCodesys = true;
    values.firmwareVersion = "1.4.2";
    values.interfaces.append(wired);
    values.configurationMethod = QLatin1String("dhcp");
    values.gateway = QHostAddress(QLatin1String("192.168.1.1"));
    values.interval = 10;
    return values;
}

void building(benchmark::State &state)
{
    const announcement::Values values = device();
    for (auto _ : state)
        benchmark::DoNotOptimize(announcement::text(values));
}
BENCHMARK(building);

void findingTheUuid(benchmark::State &state)
{
    const QByteArray datagram = sampleAnnouncement(7);
    for (auto _ : state)
        benchmark::DoNotOptimize(announcement::uuidIn(datagram));
}
BENCHMARK(findingTheUuid);

void findingNoUuid(benchmark::State &state)
{
    const QByteArray datagram = sampleAnnouncement(7).replace("uuid", "name");
    for (auto _ : state)
        benchmark::DoNotOptimize(announcement::uuidIn(datagram));
}
BENCHMARK(findingNoUuid);

void refreshingADevice(benchmark::State &state)
{
    const QByteArray datagram = sampleAnnouncement(7);
    ZorvDevice known(QLatin1String("900000007"), datagram, 10, nullptr);
    for (auto _ : state)
        known.update(datagram);
}
BENCHMARK(refreshingADevice);

void changingADevice(benchmark::State &state)
{
    const QByteArray texts[] = { sampleAnnouncement(7, 0), sampleAnnouncement(7, 1) };
    ZorvDevice known(QLatin1String("900000007"), texts[1], 10, nullptr);
    int next = 0;
    for (auto _ : state)
        known.update(texts[next++ % 2]);
}
BENCHMARK(changingADevice);

void summaryAfterAChange(benchmark::State &state)
{
    const QByteArray texts[] = { sampleAnnouncement(7, 0), sampleAnnouncement(7, 1) };
    ZorvDevice known(QLatin1String("900000007"), texts[1], 10, nullptr);
    int next = 0;
    for (auto _ : state) {
        known.update(texts[next++ % 2]);
        benchmark::DoNotOptimize(known.summary());
    }
}
BENCHMARK(summaryAfterAChange);

void nextSummary(benchmark::State &state)
{
    ZorvDevice known(QLatin1String("900000007"), sampleAnnouncement(7), 10, nullptr);
    for (auto _ : state)
        benchmark::DoNotOptimize(known.summary());
}
BENCHMARK(nextSummary);

void sizeOnTheBus(benchmark::State &state)
{
    ZorvDevice known(QLatin1String("900000007"), sampleAnnouncement(7), 10, nullptr);
    const QVariant summary = known.summary();
    for (auto _ : state)
        benchmark::DoNotOptimize(dbusvalue::marshalledSize(summary));
}
BENCHMARK(sizeOnTheBus);

} // namespace

BENCHMARK_MAIN();

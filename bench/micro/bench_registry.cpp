// The registry of devices, fed through its socket. Only the taking in is measured, not the sending.
//     /usr/bin/python3 simdevice/isolated.py build-bench/bench/bench_registry
#include "registry.h"
#include "samples.h"

#include <benchmark/benchmark.h>

#include <climits>

namespace
{

const int batch = 10; // announcements between two looks at the clock
const int mostKnown = 10000;

class KnownDevices : private Registry
{
public:
    explicit KnownDevices(int devices = 0)
    {
        scan().pendingDatagrams(); // its own announcement comes back to it
        announce(0, devices);
    }

    // Announcements of so many devices from number first on; when their number goes beyond `known`, it begins again at 0.
    // Processor time in seconds.
    double announce(int first, int count, int known = INT_MAX, int version = 0)
    {
        double seconds = 0;
        for (int done = 0; done < count; done += batch) {
            const int some = qMin(int(batch), count - done);
            for (int i = 0; i < some; ++i)
                send(sampleAnnouncement((first + done + i) % known, version));
            const double begin = processorTime();
            for (int i = 0; i < some; ++i)
                scan().pendingDatagrams();
            seconds += processorTime() - begin;
        }
        return seconds;
    }

    int devices() { return list().size(); }
    QVariantList list() { return scan().allChilds(QString()); }
};

void learning(benchmark::State &state)
{
    KnownDevices registry;
    const int before = registry.devices();
    int next = 0;
    for (auto _ : state) {
        state.SetIterationTime(registry.announce(next, batch) / batch);
        next += batch;
    }
    if (registry.devices() - before != next)
        state.SkipWithError("not every device was learnt");
}
BENCHMARK(learning)->Iterations(mostKnown / batch)->UseManualTime();

void hearingAgain(benchmark::State &state, bool isChanged)
{
    const int known = int(state.range(0));
    KnownDevices registry(known);
    const int before = registry.devices();
    int next = 0;
    int version = isChanged ? 1 : 0;
    for (auto _ : state) {
        state.SetIterationTime(registry.announce(next, batch, known, version) / batch);
        next = (next + batch) % known;
        if (isChanged && next == 0)
            version = (version + 1) % 10;
    }
    if (registry.devices() != before)
        state.SkipWithError("the devices were not known");
}
BENCHMARK_CAPTURE(hearingAgain, unchanged, false)->Arg(batch)->Arg(1000)->Arg(mostKnown)->UseManualTime();
BENCHMARK_CAPTURE(hearingAgain, changed, true)->Arg(batch)->Arg(1000)->Arg(mostKnown)->UseManualTime();

void listing(benchmark::State &state)
{
    KnownDevices registry(int(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(registry.list());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(listing)->Arg(batch)->Arg(1000)->Arg(mostKnown);

// Listing when every device has changed since the last time
void listingAfterChanges(benchmark::State &state)
{
    const int known = int(state.range(0));
    KnownDevices registry(known);
    int version = 0;
    for (auto _ : state) {
        registry.announce(0, known, known, version = (version + 1) % 10);
        const double begin = processorTime();
        benchmark::DoNotOptimize(registry.list());
        state.SetIterationTime(processorTime() - begin);
    }
    state.SetItemsProcessed(state.iterations() * known);
}
BENCHMARK(listingAfterChanges)->Arg(batch)->Arg(1000)->Arg(mostKnown)->UseManualTime();

} // namespace

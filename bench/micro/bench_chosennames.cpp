// As many devices as are kept, with names that strangers have chosen to lie behind one another in a hash table, beside as many
// with random names of the same length. Compare the rows of one kind: time is the processor time of all devices together, and
// worst_turn_ms the longest turn of the event loop among them, processor time as well.
//     /usr/bin/python3 simdevice/isolated.py build-bench/bench/bench_chosennames
#include "registry.h"
#include "samples.h"
#include "zorvdevice.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimerEvent>
#include <benchmark/benchmark.h>

namespace
{

const int devices = 19990; // with this device itself, fewer than the most that are kept
const int batch = 50; // announcements that the socket surely holds
const int lasting = 22; // expirations, in seconds
const int over = -1; // at once

enum Names {
    Random,
    OneHashInQt5, // of bytes, as long as it is not keyed
    OneHashInQt4
};

QByteArray ofPieces(int number, const char *zero, const char *one)
{
    QByteArray name;
    for (int bit = 0; bit < 15; ++bit)
        name += number >> bit & 1 ? one : zero;
    return name;
}

QByteArray randomName()
{
    static quint64 random = 1;
    QByteArray name;
    while (name.size() < 30) {
        random = random * Q_UINT64_C(6364136223846793005) + 1;
        name += char('A' + (random >> 40) % 26);
    }
    return name;
}

QList<QByteArray> namesOf(Names kind)
{
    QList<QByteArray> names;
    for (int i = 0; i < devices; ++i)
        names << (kind == Random ? randomName() : ofPieces(i, "Aa", kind == OneHashInQt5 ? "BB" : "BQ"));
    return names;
}

// What the turns of the event loop have cost.
class TimedRegistry : private Registry
{
public:
    TimedRegistry()
        : seconds(0)
        , worstTurn(0)
    {
        turn([] { QCoreApplication::processEvents(); }); // its own announcement comes back to it
        forgetCosts();
    }

    void forgetCosts() { seconds = worstTurn = 0; }

    void announce(const QList<QByteArray> &names, int expiration, int version = 0)
    {
        for (int done = 0; done < names.size(); done += batch) {
            const int end = qMin(done + batch, names.size());
            for (int i = done; i < end; ++i)
                send(sampleAnnouncementOf(names.at(i), expiration, version));
            QUdpSocket *socket = scan().findChild<QUdpSocket *>();
            do
                turn([] { QCoreApplication::processEvents(); });
            while (socket->hasPendingDatagrams());
        }
    }

    void check()
    {
        turn([this] {
            QTimerEvent tick(0);
            QCoreApplication::sendEvent(&scan(), &tick);
        });
    }

    void executeDeletions()
    {
        turn([] { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); });
    }

    int size() { return scan().findChildren<ZorvDevice *>().size(); }

    double seconds;
    double worstTurn;

private:
    template <class Work>
    void turn(Work work)
    {
        const double begin = processorTime();
        work();
        const double took = processorTime() - begin;
        seconds += took;
        worstTurn = qMax(worstTurn, took);
    }
};

void report(benchmark::State &state, TimedRegistry &registry, int expected)
{
    const double milliseconds = 1000;
    state.SetIterationTime(registry.seconds);
    state.counters["worst_turn_ms"] = registry.worstTurn * milliseconds;
    if (qAbs(registry.size() - expected) > 1) // with this device itself, or without
        state.SkipWithError("not every device was taken in, or has left");
}

void learning(benchmark::State &state, Names kind)
{
    const QList<QByteArray> names = namesOf(kind);
    for (auto _ : state) {
        TimedRegistry registry;
        registry.announce(names, lasting);
        report(state, registry, devices);
    }
}

void hearingAgain(benchmark::State &state, Names kind, int version)
{
    const QList<QByteArray> names = namesOf(kind);
    for (auto _ : state) {
        TimedRegistry registry;
        registry.announce(names, lasting);
        registry.forgetCosts();
        registry.announce(names, lasting, version);
        report(state, registry, devices);
    }
}

void refreshing(benchmark::State &state, Names kind)
{
    hearingAgain(state, kind, 0);
}

void changing(benchmark::State &state, Names kind)
{
    hearingAgain(state, kind, 1);
}

// The look that finds all of them expired
void expiring(benchmark::State &state, Names kind)
{
    const QList<QByteArray> names = namesOf(kind);
    for (auto _ : state) {
        TimedRegistry registry;
        registry.announce(names, over);
        registry.forgetCosts();
        registry.check();
        report(state, registry, devices);
    }
}

void leaving(benchmark::State &state, Names kind)
{
    const QList<QByteArray> names = namesOf(kind);
    for (auto _ : state) {
        TimedRegistry registry;
        registry.announce(names, over);
        registry.check();
        registry.forgetCosts();
        registry.executeDeletions();
        report(state, registry, 0);
    }
}

// The first half stays, so each that leaves is looked for behind all of those.
void leavingBehindOthers(benchmark::State &state, Names kind)
{
    const QList<QByteArray> names = namesOf(kind);
    for (auto _ : state) {
        TimedRegistry registry;
        registry.announce(names.mid(0, devices / 2), lasting);
        registry.announce(names.mid(devices / 2), over);
        registry.check();
        registry.forgetCosts();
        registry.executeDeletions();
        report(state, registry, devices / 2);
    }
}

#define BENCHMARK_NAMES(what)                                                                                              \
    BENCHMARK_CAPTURE(what, random, Random)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);                \
    BENCHMARK_CAPTURE(what, one_hash_in_qt5, OneHashInQt5)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond); \
    BENCHMARK_CAPTURE(what, one_hash_in_qt4, OneHashInQt4)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond)

BENCHMARK_NAMES(learning);
BENCHMARK_NAMES(refreshing);
BENCHMARK_NAMES(changing);
BENCHMARK_NAMES(expiring);
BENCHMARK_NAMES(leaving);
BENCHMARK_NAMES(leavingBehindOthers);

} // namespace

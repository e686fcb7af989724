// The texts of upnp/: what a search, a GET and an announcement cost apart from the sockets.
#include "httpmessages.h"
#include "rootdesc.h"
#include "ssdpmessages.h"

#include <benchmark/benchmark.h>

namespace
{

const QByteArray uuid = "9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3c5";
const QByteArray serverHeader = "Kelta/1.4.2, UPnP/1.0";
const qint64 now = Q_INT64_C(1795251907000);

QByteArray search(const QByteArray &target)
{
    return "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\nST: " + target + "\r\n\r\n";
}

const QByteArray notSearched = search("urn:schemas-upnp-org:service:ContentDirectory:1");

QByteArray notify()
{
    return "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nCACHE-CONTROL: max-age=1800\r\nNTS: ssdp:alive\r\n\r\n";
}

ssdp::Announcement announcement()
{
    ssdp::Announcement values;
    values.multicastUrl = "239.255.255.250:1900";
    values.httpUrl = "http://192.168.1.20:8200/";
    values.serverHeader = serverHeader;
    values.uuid = uuid;
    values.now = now;
    return values;
}

ssdp::Answer answer()
{
    ssdp::Answer values;
    values.httpUrl = "http://192.168.1.20:8200/";
    values.serverHeader = serverHeader;
    values.uuid = uuid;
    values.date = ssdp::answerDate(now);
    return values;
}

rootdesc::Values description()
{
    rootdesc::Values values;
    values.presentationUrl = "http://192.168.1.20";
    values.hostname = "kelta";
    values.manufacturer = "Zorv";
    values.manufacturerUrl = "http://www.zorv.example";
    values.modelDescription = "Zorv Kelta industrial measurement";
    values.modelName = "Kelta";
    values.modelNumber = "1.4.2";
    values.modelUrl = "http://www.zorv.example/kelta";
    values.serialNumber = "KM-2044817";
    values.uuid = uuid;
    return values;
}

// Which answer a datagram gets
void matching(benchmark::State &state, const QByteArray &datagram)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(ssdp::answerKind(datagram, [] { return uuid; }));
}
BENCHMARK_CAPTURE(matching, all, search("ssdp:all"));
BENCHMARK_CAPTURE(matching, root_device, search("upnp:rootdevice"));
BENCHMARK_CAPTURE(matching, uuid, search("uuid:Upnp-BasicDevice-1_0-" + uuid));
BENCHMARK_CAPTURE(matching, something_else, notSearched);
BENCHMARK_CAPTURE(matching, no_search, notify());

template <class Values>
void building(benchmark::State &state, QByteArray (*build)(const Values &), const Values &values)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(build(values));
}
BENCHMARK_CAPTURE(building, alive, ssdp::alive, announcement());
BENCHMARK_CAPTURE(building, byebye, ssdp::byeBye, announcement());
BENCHMARK_CAPTURE(building, root_device_answer, ssdp::rootDeviceAnswer, answer());
BENCHMARK_CAPTURE(building, uuid_answer, ssdp::uuidAnswer, answer());
BENCHMARK_CAPTURE(building, description, rootdesc::document, description());

void answerDate(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(ssdp::answerDate(now));
}
BENCHMARK(answerDate);

void parsingRequestLine(benchmark::State &state)
{
    const QByteArray line = "GET /rootDesc.xml HTTP/1.1\r\n";
    for (auto _ : state)
        benchmark::DoNotOptimize(http::parseRequestLine(line));
}
BENCHMARK(parsingRequestLine);

void descriptionHeader(benchmark::State &state)
{
    const QByteArray date = http::dateText(now);
    for (auto _ : state)
        benchmark::DoNotOptimize(http::descriptionHeader(1100, serverHeader, date));
}
BENCHMARK(descriptionHeader);

} // namespace

BENCHMARK_MAIN();

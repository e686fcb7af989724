#include "commands.h"
#include "daemon.h"
#include "fields.h"
#include "jsonreader.h"
#include "options.h"
#include "output.h"
#include "text.h"

static const int mostServices = 64;

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QVariantMap mapAt(const QVariantMap &map, const char *key)
{
    return map.value(latin1(key)).toMap();
}

static QString gatewayOf(const QVariantMap &params)
{
    const QVariantMap gateway = mapAt(mapAt(params, "netSettings"), "defaultGateway");
    const QVariant ipv4 = gateway.value(latin1("ipv4Address"));
    return text::clean((ipv4.isValid() ? ipv4 : gateway.value(latin1("ipv6Address"))).toString());
}

static QString servicesOf(const QVariantMap &params)
{
    QStringList services;
    const QVariantList list = params.value(latin1("services")).toList();
    for (int i = 0; i < qMin(list.size(), int(mostServices)); ++i) {
        const QVariantMap service = list.at(i).toMap();
        services += text::clean(service.value(latin1("type")).toString() + QLatin1Char(':') + service.value(latin1("port")).toString());
    }
    return services.join(latin1(" "));
}

static QVariantMap paramsOf(const QByteArray &announcement)
{
    JsonReader reader;
    reader.parse(announcement);
    return mapAt(reader.result().toMap(), "params");
}

static void addAnnounced(Fields *fields, const QVariantMap &params)
{
    const QString expiration = text::clean(params.value(latin1("expiration")).toString());
    fields->add("Gateway", gatewayOf(params));
    fields->add("Services", servicesOf(params));
    fields->add("Expiration", expiration.isEmpty() ? expiration : expiration + latin1(" s, forgotten after three times that"));
}

static const Neighbour *find(const QList<Neighbour> &neighbours, const QString &uuid)
{
    for (int i = 0; i < neighbours.size(); ++i) {
        if (neighbours.at(i).uuid == uuid)
            return &neighbours.at(i);
    }
    return nullptr;
}

static void print(const Neighbour &neighbour)
{
    const QStringList cells = cellsOf(neighbour);
    Fields fields;
    fields.add("Name", cells.at(0));
    fields.add("Serial number", cells.at(1));
    fields.add("Type", cells.at(2));
    fields.add("Family", text::clean(neighbour.family));
    fields.add("Firmware", cells.at(3));
    fields.add("Addresses", cells.at(4));
    fields.add("Configured", cells.at(5));
    const QByteArray announcement = daemon::announcementOf(neighbour.uuid);
    if (!announcement.isEmpty())
        addAnnounced(&fields, paramsOf(announcement));
    fields.print();
}

int showNeighbour(const Options &options)
{
    QString problem;
    const QList<Neighbour> neighbours = daemon::neighbours(QString(), &problem);
    const Neighbour *const neighbour = find(neighbours, options.uuid);
    if (problem.isEmpty() && neighbour) {
        print(*neighbour);
        return 0;
    }
    if (problem.isEmpty())
        problem = latin1("No device with the uuid %1 has been heard of. See who is there: upnpvelornctl list").arg(text::clean(options.uuid));
    output::note(problem);
    return 1;
}

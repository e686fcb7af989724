#include "neighbour.h"

#include "bus.h"
#include "text.h"

#include <algorithm>

#include <arpa/inet.h>

static const int mostAddresses = 64; // of each kind, from one device

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QString textAt(const QVariantMap &map, const char *key)
{
    const QVariant value = map.value(latin1(key));
    return value.type() == QVariant::String ? value.toString() : QString();
}

static bool isAddress(const QString &text)
{
    unsigned char bytes[sizeof(struct in6_addr)];
    const QByteArray latin = text.toLatin1();
    return inet_pton(AF_INET, latin.constData(), bytes) == 1 || inet_pton(AF_INET6, latin.constData(), bytes) == 1;
}

static QStringList addressesIn(const QVariant &entries)
{
    QStringList found;
    const QVariantList list = bus::toList(entries);
    for (int i = 0; i < qMin(list.size(), int(mostAddresses)); ++i) {
        const QString address = textAt(bus::toMap(list.at(i)), "address").section(QLatin1Char('%'), 0, 0);
        if (isAddress(address))
            found += address;
    }
    return found;
}

bool isLinkLocal(const QString &address)
{
    return address.startsWith(latin1("169.254.")) || address.startsWith(latin1("fe80:"), Qt::CaseInsensitive);
}

Neighbour neighbourOf(const QVariantMap &summary)
{
    Neighbour result;
    result.name = textAt(summary, "name");
    result.uuid = textAt(summary, "uuid");
    result.type = textAt(summary, "type");
    result.family = textAt(summary, "familyType");
    result.firmware = textAt(summary, "version");
    result.addresses = addressesIn(summary.value(latin1("ipv4"))) + addressesIn(summary.value(latin1("ipv6")));
    result.configured = textAt(summary, "configurationMethod");
    return result;
}

QStringList columnNames()
{
    return latin1("NAME,SERIAL,TYPE,FIRMWARE,ADDRESSES,CONFIGURED").split(QLatin1Char(','));
}

QStringList cellsOf(const Neighbour &neighbour)
{
    QStringList addresses;
    for (int i = 0; i < neighbour.addresses.size(); ++i) {
        const QString &address = neighbour.addresses.at(i);
        addresses += isLinkLocal(address) ? address + latin1(" (link-local)") : address;
    }
    return QStringList() << text::clean(neighbour.name) << text::clean(neighbour.uuid) << text::clean(neighbour.type)
                         << text::clean(neighbour.firmware) << addresses.join(latin1(", "))
                         << text::clean(neighbour.configured);
}

static QVariant orNothing(const QString &text)
{
    return text.isEmpty() ? QVariant() : QVariant(text);
}

QVariantMap objectOf(const Neighbour &neighbour)
{
    QVariantList addresses;
    for (int i = 0; i < neighbour.addresses.size(); ++i) {
        QVariantMap address;
        address.insert(latin1("address"), neighbour.addresses.at(i));
        address.insert(latin1("link_local"), isLinkLocal(neighbour.addresses.at(i)));
        addresses.append(address);
    }
    QVariantMap object;
    object.insert(latin1("name"), orNothing(neighbour.name));
    object.insert(latin1("serial"), orNothing(neighbour.uuid));
    object.insert(latin1("type"), orNothing(neighbour.type));
    object.insert(latin1("family"), orNothing(neighbour.family));
    object.insert(latin1("firmware"), orNothing(neighbour.firmware));
    object.insert(latin1("address"), orNothing(neighbour.addresses.value(0)));
    object.insert(latin1("addresses"), addresses);
    object.insert(latin1("configured"), orNothing(neighbour.configured));
    return object;
}

static bool isBefore(const Neighbour &a, const Neighbour &b)
{
    const QString left = text::sortingKey(a.name);
    const QString right = text::sortingKey(b.name);
    return left != right ? left < right : text::sortingKey(a.uuid) < text::sortingKey(b.uuid);
}

void sort(QList<Neighbour> *neighbours)
{
    std::sort(neighbours->begin(), neighbours->end(), isBefore);
}

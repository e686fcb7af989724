#include "daemon.h"

#include "device.h"
#include "text.h"

static const char name[] = DEVICE_BUS_NAME;

static QVariant first(const bus::Answer &answer, QString *problem)
{
    if (!answer.isGood() && problem->isEmpty())
        *problem = answer.problem;
    return answer.values.value(0);
}

QString daemon::setting(const char *getter, QString *problem)
{
    const QVariant value = first(bus::call(name, "/settings", "local.UpnpSettings", getter), problem);
    return text::clean(value.type() == QVariant::ByteArray ? text::fromBytes(value.toByteArray()) : value.toString());
}

QVariantMap daemon::properties(QString *problem)
{
    return bus::toMap(first(bus::call(name, "/monitor", "org.freedesktop.DBus.Properties", "GetAll",
                                QVariantList() << QString::fromLatin1(daemon::monitorInterface)),
        problem));
}

QList<Neighbour> daemon::neighbours(const QString &family, QString *problem)
{
    QList<Neighbour> found;
    const QVariantList summaries = bus::toList(first(
        bus::call(name, "/zorvscan", "local.ZorvScan", "allChilds", QVariantList() << family), problem));
    for (int i = 0; i < summaries.size(); ++i)
        found.append(neighbourOf(bus::toMap(summaries.at(i))));
    sort(&found);
    return found;
}

static bool isPathElement(const QString &uuid)
{
    for (int i = 0; i < uuid.size(); ++i) {
        const ushort unit = uuid.at(i).unicode();
        const bool isLetter = (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z');
        if (!isLetter && !(unit >= '0' && unit <= '9') && unit != '_')
            return false;
    }
    return !uuid.isEmpty();
}

QByteArray daemon::announcementOf(const QString &uuid)
{
    if (!isPathElement(uuid))
        return QByteArray();
    const QByteArray path = "/zorvscan/" + uuid.toLatin1();
    return bus::call(name, path.constData(), "local.ZorvDevice", "rawJson").values.value(0).toString().toLatin1();
}

#include "commands.h"
#include "daemon.h"
#include "fields.h"
#include "output.h"
#include "text.h"

#include <QtCore/QDateTime>

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QString number(const QVariantMap &properties, const char *name)
{
    return QString::number(properties.value(latin1(name)).toULongLong());
}

static QString since(const QVariantMap &properties)
{
    const qint64 seconds = properties.value(latin1("Since")).toLongLong();
    const qint64 now = QDateTime::currentMSecsSinceEpoch() / 1000;
    return QDateTime::fromMSecsSinceEpoch(seconds * 1000).toString(latin1("yyyy-MM-dd hh:mm:ss"))
        + latin1(", %1 ago").arg(text::duration(qMax(Q_INT64_C(0), now - seconds)));
}

static QString orProblem(const QString &value, const char *problem)
{
    return value.isEmpty() ? latin1(problem) : value;
}

static QString addressOf(QString *problem)
{
    const QString address = daemon::setting("getAddressStr", problem);
    const QString method = daemon::setting("getNetworkConfigMethod", problem);
    return address.isEmpty() || method.isEmpty() ? address : address + latin1(" (%1)").arg(method);
}

// 00:11:22:AA:BB:CC; the daemon has it as 0x001122AABBCC.
static QString macAddress(QString *problem)
{
    QString digits = daemon::setting("getMacAddress", problem).mid(2);
    for (int place = 2; place < digits.size(); place += 3)
        digits.insert(place, QLatin1Char(':'));
    return digits;
}

static void addIdentity(Fields *fields, QString *problem)
{
    static const char serviceMissed[] = "none: the configuration service did not answer when the daemon started";
    fields->add("Name", daemon::setting("strHostname", problem));
    fields->add("Serial number", orProblem(daemon::setting("getSerial", problem), serviceMissed));
    fields->add("Model", daemon::setting("getModelDescription", problem));
    fields->add("Firmware", orProblem(daemon::setting("getModelNr", problem), serviceMissed));
    fields->add("Address", addressOf(problem));
    fields->add("Link-local address", daemon::setting("getAutoipAddressStr", problem));
    fields->add("MAC address", macAddress(problem));
}

static void addWork(Fields *fields, const QVariantMap &properties)
{
    fields->add("Daemon", latin1("upnpvelorn %1").arg(text::clean(properties.value(latin1("Version")).toString())));
    fields->add("Running since", since(properties));
    fields->add("Devices known", number(properties, "Devices"));
    fields->add("Searches answered", number(properties, "SearchesAnswered"));
    fields->add("Descriptions served", number(properties, "DescriptionsServed"));
    fields->add("Icons served", number(properties, "IconsServed"));
    fields->add("Announcements taken", number(properties, "AnnouncementsTaken"));
    fields->add("Refused, no uuid", number(properties, "AnnouncementsWithoutUuid"));
    fields->add("Refused, unusable", number(properties, "AnnouncementsUnusable"));
    fields->add("Refused, no room", number(properties, "AnnouncementsWithoutRoom"));
}

int showStatus()
{
    Fields fields;
    QString problem;
    addIdentity(&fields, &problem);
    const QVariantMap properties = daemon::properties(&problem);
    addWork(&fields, properties);
    if (!problem.isEmpty()) {
        output::note(problem);
        return 1;
    }
    fields.print();
    return 0;
}

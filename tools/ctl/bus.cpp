#include "bus.h"

#include "text.h"

#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusError>
#include <QtDBus/QDBusMessage>

static const int timeout = 10000; // ms, for one answer

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

QString bus::connectionProblem()
{
    const QDBusConnection connection = QDBusConnection::systemBus();
    if (connection.isConnected())
        return QString();
    return latin1("There is no system bus: %1. Is it running? Look with: ls -l /run/dbus/system_bus_socket")
        .arg(text::clean(connection.lastError().message()));
}

static QString problemOf(const char *service, const QString &error, const QString &message)
{
    if (error == latin1("org.freedesktop.DBus.Error.ServiceUnknown") || error == latin1("org.freedesktop.DBus.Error.NameHasNoOwner"))
        return latin1("%1 has no owner on the bus: the daemon does not run. Look with: systemctl status upnpvelorn, and what it has "
                      "logged: journalctl -t upnp")
            .arg(latin1(service));
    if (error == latin1("org.freedesktop.DBus.Error.AccessDenied"))
        return latin1("The bus does not allow that: only root may change something (sudo), and others may read where the policy of "
                      "%1 is installed, /usr/share/dbus-1/system.d/%1.conf.")
            .arg(latin1(service));
    if (error.startsWith(latin1("org.freedesktop.DBus.Error.Unknown")))
        return latin1("The daemon does not know that yet, or is an older one: try again in a moment, else see its version with "
                      "upnpvelorn --version. (%1)")
            .arg(text::clean(message));
    if (error == latin1("org.freedesktop.DBus.Error.NoReply") || error == latin1("org.freedesktop.DBus.Error.Timeout"))
        return latin1("The daemon does not answer. It may be waiting for the configuration service; see what it has logged: "
                      "journalctl -t upnp");
    return latin1("The daemon cannot be asked: %1").arg(text::clean(message));
}

bus::Answer bus::call(const char *service, const char *path, const char *interface, const char *member,
    const QVariantList &arguments)
{
    QDBusMessage question = QDBusMessage::createMethodCall(latin1(service), latin1(path), latin1(interface), latin1(member));
    question.setArguments(arguments);
    const QDBusMessage reply = QDBusConnection::systemBus().call(question, QDBus::Block, timeout);
    Answer answer;
    if (reply.type() == QDBusMessage::ReplyMessage) {
        answer.values = reply.arguments();
        return answer;
    }
    answer.problem = problemOf(service, reply.errorName(), reply.errorMessage());
    answer.isThere = hasOwner(service);
    return answer;
}

bool bus::hasOwner(const char *name)
{
    const QDBusConnectionInterface *const driver = QDBusConnection::systemBus().interface();
    return driver && driver->isServiceRegistered(latin1(name)).value();
}

static const char driverName[] = "org.freedesktop.DBus";
static const char driverPath[] = "/org/freedesktop/DBus";

static qint64 asked(const char *member, const char *name)
{
    const bus::Answer answer = bus::call(driverName, driverPath, driverName, member, QVariantList() << latin1(name));
    return answer.isGood() && !answer.values.isEmpty() ? answer.values.first().toLongLong() : -1;
}

qint64 bus::processOf(const char *name)
{
    return asked("GetConnectionUnixProcessID", name);
}

qint64 bus::userOf(const char *name)
{
    return asked("GetConnectionUnixUser", name);
}

// QtDBus returns containers as QDBusArgument, which has to be read.
template <class Container>
static Container unpacked(const QVariant &value, const char *signature)
{
    if (value.userType() != qMetaTypeId<QDBusArgument>())
        return Container();
    const QDBusArgument argument = value.value<QDBusArgument>();
    return argument.currentSignature() == QLatin1String(signature) ? qdbus_cast<Container>(argument) : Container();
}

QVariantList bus::toList(const QVariant &value)
{
    return value.type() == QVariant::List ? value.toList() : unpacked<QVariantList>(value, "av");
}

QVariantMap bus::toMap(const QVariant &value)
{
    return value.type() == QVariant::Map ? value.toMap() : unpacked<QVariantMap>(value, "a{sv}");
}

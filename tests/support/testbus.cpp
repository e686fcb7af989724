#include "testbus.h"

#include <QtDBus/QDBusMessage>

// The answer comes after the news of the connection's own name. In Qt 5 the thread of QtDBus notes that name in a list that every
// call reads, and no lock keeps the two apart: a call to another program at that moment can crash.
static void waitForOwnName(const QDBusConnection &connection)
{
    const QString bus = QLatin1String("org.freedesktop.DBus");
    connection.call(QDBusMessage::createMethodCall(bus, QLatin1String("/org/freedesktop/DBus"), bus, QLatin1String("GetId")));
}

QDBusConnection connectToTestBus(const QString &connectionName)
{
    const QString address = QString::fromLocal8Bit(qgetenv("DBUS_SYSTEM_BUS_ADDRESS").constData());
    const QDBusConnection connection = QDBusConnection::connectToBus(address, connectionName);
    waitForOwnName(connection);
    return connection;
}

#include "fakeconnman.h"

#include "testbus.h"
#include "waitfor.h"

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusVariant>

static const char connectionName[] = "fakeconnman";
static const char busName[] = "net.connman";

// Without a turn of the event loop Qt 4 would hear of the change when the next test has begun.
static void waitUntilTold(bool isOwned)
{
    QVERIFY(waitFor([&] { return QDBusConnection::systemBus().interface()->isServiceRegistered(QLatin1String(busName)) == isOwned; }));
    QCoreApplication::processEvents();
}

FakeConnman::FakeConnman()
{
    QDBusConnection connection = connectToTestBus(QLatin1String(connectionName));
    if (!connection.registerService(QLatin1String(busName)))
        qFatal("net.connman is taken");
    waitUntilTold(true);
}

FakeConnman::~FakeConnman()
{
    QDBusConnection::disconnectFromBus(QLatin1String(connectionName));
    waitUntilTold(false);
}

static void send(const char *path, const QVariantList &arguments)
{
    QDBusMessage signal = QDBusMessage::createSignal(QLatin1String(path), QLatin1String("net.connman.Service"), QLatin1String("PropertyChanged"));
    signal.setArguments(arguments);
    if (!QDBusConnection(QLatin1String(connectionName)).send(signal))
        qFatal("a signal of net.connman could not be sent");
}

void FakeConnman::propertyChanged(const char *name, const QVariant &value, const char *path)
{
    send(path, QVariantList() << QString::fromLatin1(name) << QVariant::fromValue(QDBusVariant(value)));
}

void FakeConnman::propertyChangedWith(const QVariantList &arguments)
{
    send("/net/connman/service/ethernet", arguments);
}

// Lists the devices that the daemon on this machine has heard of, itself among them.
//
//     build:                      cmake -S examples -B build-examples && cmake --build build-examples
//     on a device:                build-examples/list_devices
//     in the demonstration:       ./run exec kelta-1 build/examples/list_devices
//
// Needs Qt 5 (qtbase5-dev), or Qt 4.8 with "QT += dbus" in a project file for qmake. One line for each device: name, serial number, type, firmware version, IPv4 addresses.
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>
#include <QTextStream>

// What the bus hands over for a dictionary inside a variant
static QVariantMap toMap(const QVariant &value)
{
    return qdbus_cast<QVariantMap>(value);
}

static QString addresses(const QVariantMap &device)
{
    QStringList found;
    const QVariantList ipv4 = qdbus_cast<QVariantList>(device.value(QLatin1String("ipv4")));
    for (int i = 0; i < ipv4.size(); ++i)
        found += toMap(ipv4.at(i)).value(QLatin1String("address")).toString();
    return found.join(QLatin1String(", "));
}

static QString column(const QVariantMap &device, const char *key, int width)
{
    return device.value(QLatin1String(key)).toString().leftJustified(width) + QLatin1Char(' ');
}

static QString line(const QVariantMap &device)
{
    return column(device, "name", 16) + column(device, "uuid", 12) + column(device, "type", 14)
        + column(device, "version", 8) + addresses(device);
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String("com.zorv.upnpvelorn"), QLatin1String("/zorvscan"),
        QLatin1String("local.ZorvScan"), QLatin1String("allChilds"));
    call << QString(); // the empty text: devices of every family, not only "Kelta"
    const QDBusMessage reply = QDBusConnection::systemBus().call(call);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        QTextStream(stderr) << QLatin1String("The daemon does not answer: ") << reply.errorMessage() << QLatin1Char('\n');
        return 1;
    }
    QTextStream out(stdout);
    const QVariantList devices = qdbus_cast<QVariantList>(reply.arguments().value(0));
    for (int i = 0; i < devices.size(); ++i)
        out << line(toMap(devices.at(i))) << QLatin1Char('\n');
    return 0;
}

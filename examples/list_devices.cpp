// Lists the devices that the daemon on this machine has heard of, itself among them.
//
//     build:                      cmake -S examples -B build-examples && cmake --build build-examples
//     on a device:                build-examples/list_devices
//     in the demonstration:       ./run exec kelta-1 build/examples/list_devices
//
// Needs qtbase5-dev. One line for each device: name, serial number, type, firmware version, IPv4 addresses.
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

static QString line(const QVariantMap &device)
{
    QStringList addresses;
    const QVariantList ipv4 = qdbus_cast<QVariantList>(device.value(QStringLiteral("ipv4")));
    for (const QVariant &entry : ipv4)
        addresses += toMap(entry).value(QStringLiteral("address")).toString();
    const auto text = [&](const char *key) { return device.value(QLatin1String(key)).toString(); };
    return text("name").leftJustified(16) + u' ' + text("uuid").leftJustified(12) + u' '
        + text("type").leftJustified(14) + u' ' + text("version").leftJustified(8) + u' '
        + addresses.join(QStringLiteral(", "));
}

int main()
{
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("com.zorv.upnpvelorn"), QStringLiteral("/zorvscan"),
        QStringLiteral("local.ZorvScan"), QStringLiteral("allChilds"));
    call << QString(); // the empty text: devices of every family, not only "Kelta"
    const QDBusMessage reply = QDBusConnection::systemBus().call(call);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        QTextStream(stderr) << "The daemon does not answer: " << reply.errorMessage() << Qt::endl;
        return 1;
    }
    QTextStream out(stdout);
    const QVariantList devices = qdbus_cast<QVariantList>(reply.arguments().value(0));
    for (const QVariant &device : devices)
        out << line(toMap(device)) << Qt::endl;
    return 0;
}

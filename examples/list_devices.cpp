// Lists the devices that the daemon on this machine has heard of, itself among them.
//
//     build:                      cmake -S examples -B build-examples && cmake --build build-examples
//     on a device:                build-examples/list_devices
//     in the demonstration:       ./run exec kelta-1 build/examples/list_devices
//
// Needs Qt 5 (qtbase5-dev), or Qt 4.8 with "QT += dbus" in a project file for qmake. One line for each device: name, serial
// number, type, firmware version, IPv4 addresses.
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>
#include <QTextStream>
#include <QVector>

// What the bus hands over as an argument to be read: a list ("av") or a dictionary ("a{sv}"). Empty where it is neither.
template <class Container>
static Container unpacked(const QVariant &value, const char *signature)
{
    if (value.userType() != qMetaTypeId<QDBusArgument>())
        return Container();
    const QDBusArgument argument = value.value<QDBusArgument>();
    return argument.currentSignature() == QLatin1String(signature) ? qdbus_cast<Container>(argument) : Container();
}

static QVariantList toList(const QVariant &value)
{
    return unpacked<QVariantList>(value, "av");
}

static QVariantMap toMap(const QVariant &value)
{
    return unpacked<QVariantMap>(value, "a{sv}");
}

static bool isPrintable(uint character)
{
    switch (QChar::category(character)) {
    case QChar::Other_Control:
    case QChar::Other_Format: // what turns the direction of a line around is among these
    case QChar::Other_Surrogate:
    case QChar::Other_PrivateUse:
    case QChar::Other_NotAssigned:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

// What a stranger wrote, without anything that moves the cursor, colours the screen or turns the line around
static QString printable(const QString &text)
{
    const QVector<uint> characters = text.toUcs4();
    QString result;
    // Qt 4.8 has a zero behind the text for each character beyond 16 bits; a text from the bus has none of its own.
    for (int i = 0; i < characters.size() && characters.at(i) != 0; ++i)
        result += isPrintable(characters.at(i)) ? QString::fromUcs4(&characters.at(i), 1) : QString(QLatin1Char('?'));
    return result;
}

// Those that are there: the rest of a summary is as the device announced it, of any type.
static QString addresses(const QVariantMap &device)
{
    QStringList found;
    const QVariantList ipv4 = toList(device.value(QLatin1String("ipv4")));
    for (int i = 0; i < ipv4.size(); ++i) {
        const QVariant address = toMap(ipv4.at(i)).value(QLatin1String("address"));
        if (address.type() == QVariant::String)
            found += printable(address.toString());
    }
    return found.join(QLatin1String(", "));
}

static QString column(const QVariantMap &device, const char *key, int width)
{
    return printable(device.value(QLatin1String(key)).toString()).leftJustified(width) + QLatin1Char(' ');
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
        QTextStream(stderr) << QLatin1String("The daemon does not answer: ") << printable(reply.errorMessage())
                            << QLatin1Char('\n');
        return 1;
    }
    QTextStream out(stdout);
    const QVariantList devices = toList(reply.arguments().value(0));
    for (int i = 0; i < devices.size(); ++i)
        out << line(toMap(devices.at(i))) << QLatin1Char('\n');
    return 0;
}

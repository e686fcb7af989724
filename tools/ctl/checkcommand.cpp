#include "announcementlistener.h"
#include "bus.h"
#include "commands.h"
#include "daemon.h"
#include "device.h"
#include "httpget.h"
#include "output.h"
#include "ownnetwork.h"
#include "pngsize.h"
#include "procnet.h"
#include "protocol.h"
#include "report.h"
#include "text.h"

#include <QtCore/QElapsedTimer>

static const char wiredInterface[] = DEVICE_INTERFACE;
static const char iconPath[] = DEVICE_ICON_PATH;
static const int iconSize = 48; // pixels
static const int hearingTime = 11000; // ms: an announcement's ten seconds, and one more
static const int progressPeriod = 500; // ms

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QString orNone(const QString &text)
{
    return text.isEmpty() ? latin1("none") : text;
}

namespace
{

// What is asked of the daemon once, and compared with everything else.
struct Identity
{
    QString hostname;
    QString serial;
    QString firmware;
    QString address;
    QString linkLocal;
    QString macAddress;
};

class Check
{
public:
    Check()
        : m_user(-1)
        , m_hasIdentity(false)
    {
    }

    int run();

private:
    void checkName();
    void checkConfigurationService();
    void checkConnman();
    void readIdentity();
    void checkIdentity();
    void checkPort(quint16 port, bool isTcp);
    void checkGroups();
    void checkAddresses();
    void checkAddress(const QStringList &there);
    void checkDescription();
    void checkIcon();
    void checkList();
    void checkAnnouncement();
    bool hearsItself(AnnouncementListener *listener);
    QString serverAddress() const;

    Report m_report;
    qint64 m_user; // that the daemon runs as; -1: it does not run
    Identity m_identity;
    bool m_hasIdentity;
};

} // namespace

int Check::run()
{
    checkName();
    checkConfigurationService();
    checkConnman();
    readIdentity();
    checkIdentity();
    checkPort(protocol::searchPort, false);
    checkPort(protocol::announcementPort, false);
    checkPort(protocol::httpPort, true);
    checkGroups();
    checkAddresses();
    checkDescription();
    checkIcon();
    checkList();
    checkAnnouncement();
    return m_report.isAllRight() ? 0 : 1;
}

void Check::checkName()
{
    const bool isThere = bus::hasOwner(DEVICE_BUS_NAME);
    m_user = isThere ? bus::userOf(DEVICE_BUS_NAME) : -1;
    m_report.judge(isThere, "bus name " DEVICE_BUS_NAME,
        isThere ? latin1("process %1 of user %2").arg(bus::processOf(DEVICE_BUS_NAME)).arg(ownnetwork::userName(m_user)) : latin1("has no owner on the bus"),
        latin1("the daemon has it on a healthy device; start it, and see why it ended: journalctl -t upnp"));
}

void Check::checkConfigurationService()
{
    const bool isThere = bus::hasOwner(DEVICE_CONFIG_SERVICE);
    m_report.judge(isThere, "configuration service", latin1(isThere ? DEVICE_CONFIG_SERVICE " is on the bus" : DEVICE_CONFIG_SERVICE " has no owner on the bus"),
        latin1("it has to be there before the daemon starts, which asks it once who the device is"));
}

void Check::checkConnman()
{
    if (bus::hasOwner(protocol::connmanName))
        m_report.right("connman", latin1("is on the bus"));
    else
        m_report.skipped("connman", latin1("is not on the bus; whatever configures the network has to call upnpvelornctl reconfigure"));
}

void Check::readIdentity()
{
    QString problem;
    m_identity.hostname = daemon::setting("strHostname", &problem);
    m_identity.serial = daemon::setting("getSerial", &problem);
    m_identity.firmware = daemon::setting("getModelNr", &problem);
    m_identity.address = daemon::setting("getAddressStr", &problem);
    m_identity.linkLocal = daemon::setting("getAutoipAddressStr", &problem);
    m_identity.macAddress = daemon::setting("getMacAddress", &problem);
    m_hasIdentity = problem.isEmpty();
    if (m_user != -1)
        m_report.judge(m_hasIdentity, "object /settings", m_hasIdentity ? latin1("answers") : problem, latin1("a healthy daemon answers"));
}

void Check::checkIdentity()
{
    static const char advice[] = "a healthy device has one; the configuration service has to answer before the daemon starts";
    if (!m_hasIdentity)
        return;
    m_report.judge(!m_identity.serial.isEmpty(), "serial number", orNone(m_identity.serial), latin1(advice));
    m_report.judge(!m_identity.firmware.isEmpty(), "firmware version", orNone(m_identity.firmware), latin1(advice));
    const QString hostname = text::clean(ownnetwork::hostname());
    m_report.judge(m_identity.hostname == hostname, "host name", orNone(m_identity.hostname),
        latin1("the kernel has %1; the configuration service has to say the same when the daemon starts, and a new name has to be "
               "written to /proc/sys/kernel/hostname")
            .arg(hostname));
}

void Check::checkPort(quint16 port, bool isTcp)
{
    const QByteArray what = (isTcp ? "TCP port " : "UDP port ") + QByteArray::number(port);
    const QList<procnet::Socket> sockets = procnet::sockets(procnet::table(isTcp ? "tcp" : "udp"));
    QStringList seen;
    bool isDaemons = false;
    for (int i = 0; i < sockets.size(); ++i) {
        const procnet::Socket &socket = sockets.at(i);
        if (socket.port != port || socket.isListening != isTcp)
            continue;
        isDaemons = isDaemons || (socket.user == m_user && socket.address == latin1("0.0.0.0"));
        seen += latin1("%1 of user %2").arg(socket.address, ownnetwork::userName(socket.user));
    }
    m_report.judge(isDaemons, what.constData(), seen.isEmpty() ? latin1("no socket is bound to it") : seen.join(latin1(", ")),
        latin1(isTcp ? "the daemon listens on 0.0.0.0 on a healthy device; another program must not have it: ss -ltnp"
                     : "the daemon has it on a healthy device; see who does not share it: ss -lunp"));
}

static bool isJoined(const QMap<QString, QStringList> &groups, const QString &group, const QString &interface)
{
    if (!interface.isEmpty())
        return groups.value(interface).contains(group);
    QMap<QString, QStringList>::const_iterator i = groups.constBegin();
    while (i != groups.constEnd() && !(i.key() != latin1("lo") && i.value().contains(group)))
        ++i;
    return i != groups.constEnd();
}

static QByteArray groupLine(const char *group)
{
    return QByteArray("group ") + group;
}

// The kernel does not say which program has joined a group. So this is looked at before this program joins one itself.
void Check::checkGroups()
{
    const QMap<QString, QStringList> groups = procnet::groups(procnet::table("igmp"));
    const bool searches = isJoined(groups, latin1(protocol::searchGroup), latin1(wiredInterface));
    m_report.judge(searches, groupLine(protocol::searchGroup).constData(), latin1(searches ? "joined on " DEVICE_INTERFACE : "not joined on " DEVICE_INTERFACE),
        latin1("a healthy device has joined it; is " DEVICE_INTERFACE " up, with an address? It is tried again every 100 seconds"));
    const bool announcements = isJoined(groups, latin1(protocol::announcementGroup), QString());
    m_report.judge(announcements, groupLine(protocol::announcementGroup).constData(), latin1(announcements ? "joined" : "not joined"),
        latin1("a healthy device has joined it; there has to be a route for multicast: ip route get %1. It is tried again "
               "every ten seconds")
            .arg(latin1(protocol::announcementGroup)));
}

void Check::checkAddresses()
{
    const QStringList there = ownnetwork::addresses(wiredInterface);
    m_report.judge(!there.isEmpty(), "network interface " DEVICE_INTERFACE,
        !ownnetwork::hasInterface(wiredInterface) ? latin1("is not there") : there.isEmpty() ? latin1("has no address")
                                                                                             : there.join(latin1(", ")),
        latin1("a healthy device has it, with an address: ip address show dev " DEVICE_INTERFACE));
    if (!m_hasIdentity)
        return;
    checkAddress(there);
    const QString mac = QLatin1String("0x") + ownnetwork::macAddress(wiredInterface);
    m_report.judge(m_identity.macAddress == mac, "MAC address", m_identity.macAddress,
        latin1("the kernel has %1; the daemon reads it when it starts").arg(mac));
}

void Check::checkAddress(const QStringList &there)
{
    static const char advice[] = DEVICE_INTERFACE " has %1; tell the daemon: upnpvelornctl reconfigure";
    const QString all = there.isEmpty() ? latin1("no address") : there.join(latin1(", "));
    m_report.judge(there.contains(m_identity.address, Qt::CaseInsensitive), "address of the daemon", orNone(m_identity.address),
        latin1(advice).arg(all));
    if (!m_identity.linkLocal.isEmpty())
        m_report.judge(there.contains(m_identity.linkLocal), "link-local address of the daemon", m_identity.linkLocal,
            latin1(advice).arg(all));
}

// The daemon serves HTTP on every IPv4 address, so the loopback address does as well.
QString Check::serverAddress() const
{
    const bool isIpv4 = m_identity.address.contains(QLatin1Char('.'));
    return isIpv4 ? m_identity.address : latin1("127.0.0.1");
}

void Check::checkDescription()
{
    QString reason;
    const QByteArray answer = httpGet(serverAddress(), protocol::httpPort, protocol::descriptionPath, &reason);
    const bool isRight = answer.startsWith("HTTP/1.1 200") && answer.contains("</root>");
    const QString url = latin1("http://%1:%2%3").arg(serverAddress(), QString::number(protocol::httpPort), latin1(protocol::descriptionPath));
    m_report.judge(isRight, "description", isRight ? latin1("served at ") + url : answer.isEmpty() ? latin1("not served: %1").arg(reason)
                                                                                                   : latin1("the answer is ") + text::clean(text::fromBytes(answer.left(answer.indexOf('\r')))),
        latin1("the daemon serves it at TCP port %1 on a healthy device; does another program have the port? ss -ltnp").arg(protocol::httpPort));
}

static QString iconSeen(const QByteArray &answer, const QString &reason)
{
    const int end = answer.indexOf("\r\n\r\n");
    const PngSize size = pngSize(answer.mid(end + 4));
    if (answer.isEmpty())
        return latin1("not served: %1").arg(reason);
    if (!answer.startsWith("HTTP/1.1 200"))
        return latin1("not found");
    return size.isPng ? latin1("a PNG of %1 x %2 pixels").arg(size.width).arg(size.height) : latin1("no PNG");
}

void Check::checkIcon()
{
    QString reason;
    const QString seen = iconSeen(httpGet(serverAddress(), protocol::httpPort, iconPath, &reason), reason);
    m_report.judge(seen == latin1("a PNG of %1 x %1 pixels").arg(iconSize), "icon", seen,
        latin1("a healthy device has a PNG of %1 x %1 pixels at " DEVICE_ICON_FILE ", which %2 may read").arg(iconSize).arg(m_user == -1 ? latin1("the daemon") : ownnetwork::userName(m_user)));
}

void Check::checkList()
{
    QString problem;
    const QList<Neighbour> neighbours = daemon::neighbours(QString(), &problem);
    if (m_user == -1 || !problem.isEmpty())
        return;
    bool isThere = false;
    for (int i = 0; i < neighbours.size(); ++i)
        isThere = isThere || text::clean(neighbours.at(i).uuid) == m_identity.serial;
    m_report.judge(isThere, "list of devices", latin1(isThere ? "has %1, this one among them" : "has %1, this one not among them").arg(neighbours.size()),
        latin1("a healthy device hears itself within ten seconds of its start"));
}

bool Check::hearsItself(AnnouncementListener *listener)
{
    const QByteArray own = "\"uuid\":\"" + m_identity.serial.toUtf8() + "\"";
    QElapsedTimer timer;
    timer.start();
    while (!timer.hasExpired(hearingTime)) {
        output::progress(latin1("Waiting for the device's announcement, %1 of at most %2 s").arg(timer.elapsed() / 1000).arg(hearingTime / 1000));
        if (listener->next(progressPeriod).contains(own))
            return true;
    }
    return false;
}

void Check::checkAnnouncement()
{
    if (!m_hasIdentity) {
        m_report.skipped("announcement", latin1("not waited for, since the daemon does not say who it is"));
        return;
    }
    AnnouncementListener listener;
    if (!listener.problem().isEmpty()) {
        m_report.wrong("announcement", latin1("cannot be listened for: %1").arg(listener.problem()),
            latin1("there has to be a route for multicast (ip route get %1), and UDP port %2 has to be shared")
                .arg(latin1(protocol::announcementGroup))
                .arg(protocol::announcementPort));
        return;
    }
    const bool isHeard = hearsItself(&listener);
    m_report.judge(isHeard, "announcement", isHeard ? latin1("heard") : latin1("not heard in %1 seconds").arg(hearingTime / 1000),
        latin1("a healthy device sends one every ten seconds; does a firewall let UDP port %1 out and in?")
            .arg(protocol::announcementPort));
}

int checkDevice()
{
    return Check().run();
}

#include "announcement.h"

#include "device.h"
#include "interfaces.h"

#include <QtCore/QByteArrayMatcher>

#include <cstring>

namespace announcement
{

// Ends a list whose entries each left a comma behind.
static void closeList(QByteArray *text, bool isEmpty)
{
    if (isEmpty)
        *text += ']';
    else
        (*text)[text->size() - 1] = ']';
}

static void appendIpv4(QByteArray *text, const QList<Ipv4Address> &addresses)
{
    for (int i = 0; i < addresses.size(); ++i) {
        *text += "{\"address\":\"" + addresses.at(i).address.toLatin1();
        *text += "\",\"netmask\":\"" + addresses.at(i).netmask.toLatin1();
        *text += "\"},";
    }
    closeList(text, addresses.isEmpty());
}

static void appendIpv6(QByteArray *text, const QList<Ipv6Address> &addresses)
{
    for (int i = 0; i < addresses.size(); ++i) {
        *text += "{\"address\":\"" + addresses.at(i).address.toLatin1().replace("%" DEVICE_INTERFACE, "");
        *text += "\",\"prefix\":" + QByteArray::number(addresses.at(i).prefixLength);
        *text += "},";
    }
    closeList(text, addresses.isEmpty());
}

static void appendInterface(QByteArray *text, const Interface &interface, const Values &values)
{
    *text += "\"name\":\"" + interface.name.toLatin1();
    *text += "\",\"type\":\"ethernet\",\"ipv4\":[";
    appendIpv4(text, interface.ipv4);
    *text += ",\"ipv6\":[";
    appendIpv6(text, interface.ipv6);
    *text += ",\"configurationMethod\":\"" + values.configurationMethod.toLatin1();
    *text += "\"},\"defaultGateway\":{\"";
    // Meant: a gateway that is not set is announced as an empty IPv6 address (tst_announcement).
    *text += values.gateway.protocol() == QAbstractSocket::IPv4Protocol ? "ipv4Address\":\"" : "ipv6Address\":\"";
    *text += values.gateway.toString().toLatin1();
    *text += "\"}},";
}

static bool isAnnounced(const Interface &interface)
{
    return !interface.isLoopback && !interface.name.startsWith(QLatin1String("can"));
}

// Somewhat more than two intervals, so that a device is not forgotten over one lost datagram.
static QByteArray expiration(int interval)
{
    return QByteArray::number(double(interval) * 2.2, 'g', 6);
}

QByteArray text(const Values &v)
{
    QByteArray t;
    t.reserve(1024);
    t += " \t {\"jsonrpc\":\"2.0\",\"method\": \"announce\",\"params\":{\"apiVersion\":\"1.0\",\"device\":{\"name\":\"";
    t += v.hostname;
    t += "\",\"uuid\":\"" + v.serial;
    t += "\",\"type\":\"" + v.modelName;
    if (v.hasCodesys)
        t += " CODESYS";
    t += "\",\"familyType\":\"" + v.modelName;
    t += "\",\"firmwareVersion\":\"" + v.firmwareVersion;
    t += "\"},\"netSettings\":{\"interface\": {";
    for (int i = 0; i < v.interfaces.size(); ++i) {
        if (isAnnounced(v.interfaces.at(i)))
            appendInterface(&t, v.interfaces.at(i), v);
    }
    t += "\"services\":[{\"type\":\"http\",\"port\":80},{\"type\":\"scpi\",\"port\":55000},{\"type\":\"daqStream\",\"port\":7411}],";
    t += "\"expiration\":" + expiration(v.interval);
    t += "}}";
    return t;
}

static Interface fromSystem(const QNetworkInterface &source)
{
    Interface interface = { source.humanReadableName(), bool(source.flags() & QNetworkInterface::IsLoopBack),
        QList<Ipv4Address>(), QList<Ipv6Address>() };
    const QList<QNetworkAddressEntry> entries = source.addressEntries();
    for (int i = 0; i < entries.size(); ++i) {
        const QNetworkAddressEntry &entry = entries.at(i);
        if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
            interface.ipv4.append(Ipv4Address{ entry.ip().toString(), entry.netmask().toString() });
        else if (entry.ip().protocol() == QAbstractSocket::IPv6Protocol)
            interface.ipv6.append(Ipv6Address{ entry.ip().toString(), entry.prefixLength() });
    }
    return interface;
}

QList<Interface> interfacesOfThisMachine()
{
    QList<Interface> interfaces;
    const QList<QNetworkInterface> all = networkInterfaces();
    for (int i = 0; i < all.size(); ++i)
        interfaces.append(fromSystem(all.at(i)));
    return interfaces;
}

static bool isBlank(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

namespace
{

// The bytes of a JSON text, one after the other, without the white space between its tokens.
class NonBlankBytes
{
public:
    // The text must outlive it.
    explicit NonBlankBytes(const QByteArray &text)
        : m_next(text.constData())
        , m_end(text.constData() + text.size())
        , m_isInString(false)
        , m_isEscaped(false)
    {
    }

    // -1 at the end
    int next()
    {
        while (!m_isInString && m_next != m_end && isBlank(*m_next))
            ++m_next;
        if (m_next == m_end)
            return -1;
        const char byte = *m_next++;
        if (byte == '"' && !m_isEscaped)
            m_isInString = !m_isInString;
        m_isEscaped = m_isInString && byte == '\\' && !m_isEscaped;
        return uchar(byte);
    }

private:
    const char *m_next;
    const char *const m_end;
    bool m_isInString;
    bool m_isEscaped;
};

} // namespace

Span uuidIn(const QByteArray &datagram)
{
    const Span none = { 0, 0 };
    static const QByteArrayMatcher paramsKey("\"params\"");
    static const QByteArrayMatcher uuidKey("\"uuid\"");
    const int params = paramsKey.indexIn(datagram);
    if (params <= 0)
        return none;
    // Meant: without the key the search for the colon begins at position 5 (tst_announcement).
    const int colon = datagram.indexOf(':', uuidKey.indexIn(datagram, params) + uuidKey.pattern().size());
    if (colon == -1)
        return none;
    const int opening = datagram.indexOf('"', colon);
    const int closing = opening == -1 ? -1 : datagram.indexOf('"', opening + 1);
    if (closing <= opening + 1)
        return none;
    return Span{ opening + 1, closing - opening - 1 };
}

// How many bytes the two have in common at their beginning.
static int commonBeginning(const QByteArray &a, const QByteArray &b)
{
    static const int piece = 64;
    const int least = qMin(a.size(), b.size());
    int common = 0;
    while (common + piece <= least && std::memcmp(a.constData() + common, b.constData() + common, piece) == 0)
        common += piece;
    while (common < least && a.at(common) == b.at(common))
        ++common;
    return common;
}

// Nearly always two values differ, and then white space does not matter: that is found at a tenth of the cost.
bool areSameButForBlanks(const QByteArray &a, const QByteArray &b)
{
    const int common = commonBeginning(a, b);
    if (common < qMin(a.size(), b.size()) && !isBlank(a.at(common)) && !isBlank(b.at(common)))
        return false;
    NonBlankBytes left(a);
    NonBlankBytes right(b);
    int byte = left.next();
    while (byte == right.next()) {
        if (byte == -1)
            return true;
        byte = left.next();
    }
    return false;
}

} // namespace announcement

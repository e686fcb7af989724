// A datagram at the SSDP port, and the answer it gets. Input: the datagram, then the UUIDs that the device gives one
// after the other, again from the first one on; without any they are empty.
#include "input.h"
#include "require.h"
#include "ssdpmessages.h"

#include <QtCore/QDateTime>

#include <string>

namespace
{

const qint64 now = QDateTime(QDate(2024, 2, 29), QTime(9, 5, 7)).toMSecsSinceEpoch();
const std::string nowText = "Thu, 29 Feb 2024 09:05:7";

std::string text(const QByteArray &bytes)
{
    return std::string(bytes.constData(), std::size_t(bytes.size()));
}

// The UUIDs of an input, in turn
class Uuids
{
public:
    explicit Uuids(const QList<QByteArray> &uuids)
        : m_uuids(uuids)
        , m_asked(0)
    {
    }

    QByteArray next() { return m_uuids.isEmpty() ? QByteArray() : m_uuids.at(m_asked++ % m_uuids.size()); }
    int asked() const { return m_asked; }

private:
    QList<QByteArray> m_uuids;
    int m_asked;
};

ssdp::AnswerKind expectedKind(const std::string &datagram, Uuids *uuids)
{
    if (datagram.compare(0, 8, "M-SEARCH") != 0)
        return ssdp::NoAnswer;
    if (datagram.find("ssdp:all") != std::string::npos)
        return ssdp::RootDeviceAnswer;
    if (datagram.find(text(uuids->next())) != std::string::npos)
        return ssdp::RootDeviceAnswer;
    if (datagram.find("upnp:rootdevice") != std::string::npos)
        return ssdp::RootDeviceAnswer;
    if (datagram.find("uuid:Upnp-BasicDevice-1_0-" + text(uuids->next())) != std::string::npos)
        return ssdp::UuidAnswer;
    return ssdp::NoAnswer;
}

std::string expectedAnswer(const std::string &st, const std::string &usn, const ssdp::Answer &a)
{
    return "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=1810\r\nDATE: " + nowText + "\r\nST: " + st + "\r\nUSN: " + usn
        + "\r\nEXT:\r\nSERVER: " + text(a.serverHeader) + "\r\nLOCATION: " + text(a.httpUrl)
        + "rootDesc.xml\r\nContent-Length: 0\r\n\r\n";
}

void checkAnswers(const ssdp::Answer &a)
{
    const std::string usn = "uuid:Upnp-BasicDevice-1_0-" + text(a.uuid);
    REQUIRE(text(ssdp::rootDeviceAnswer(a)) == expectedAnswer("upnp:rootdevice", usn + "::upnp:rootdevice", a));
    REQUIRE(text(ssdp::uuidAnswer(a)) == expectedAnswer(usn + "::upnp:rootdevice", usn, a));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    QList<QByteArray> input = parts(data, size);
    const QByteArray datagram = input.takeFirst();

    Uuids uuids(input);
    Uuids expectedUuids(input);
    const ssdp::AnswerKind kind = ssdp::answerKind(datagram, [&uuids] { return uuids.next(); });
    REQUIRE(kind == expectedKind(text(datagram), &expectedUuids));
    REQUIRE(uuids.asked() == expectedUuids.asked());
    if (kind != ssdp::NoAnswer)
        checkAnswers(ssdp::Answer{ input.value(1), input.value(2), uuids.next(), ssdp::answerDate(now) });
    return 0;
}

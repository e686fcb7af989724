#include "samples.h"

QByteArray sampleAnnouncement(int number, int version)
{
    const QByteArray serial = QByteArray::number(900000000 + number);
    const QByteArray address = "172.16." + QByteArray::number(number / 250 % 250) + '.' + QByteArray::number(number % 250 + 2);
    return " \t {\"jsonrpc\":\"2.0\",\"method\": \"announce\",\"params\":{\"apiVersion\":\"1.0\",\"device\":{\"name\":\"kelta-"
        + serial + "\",\"uuid\":\"" + serial
        + "\",\"type\":\"Kelta CODESYS\",\"familyType\":\"Kelta\",\"firmwareVersion\":\"1.4.2."
        + QByteArray::number(version)
        + "\"},\"netSettings\":{"
          "\"interface\": {\"name\":\"eth0\",\"type\":\"ethernet\",\"ipv4\":[{\"address\":\""
        + address
        + "\",\"netmask\":\"255.255.0.0\"}],\"ipv6\":[{\"address\":\"fe80::211:22ff:fe33:4455\",\"prefix\":64},"
          "{\"address\":\"fd12:3456:789a::1234\",\"prefix\":64}],\"configurationMethod\":\"dhcp\"},"
          "\"defaultGateway\":{\"ipv4Address\":\"172.16.0.1\"}},\"services\":[{\"type\":\"http\",\"port\":80},"
          "{\"type\":\"scpi\",\"port\":55000},{\"type\":\"daqStream\",\"port\":7411}],\"expiration\":22}}";
}

QByteArray sampleAnnouncementOf(const QByteArray &uuid, int expiration, int version)
{
    QByteArray text = sampleAnnouncement(7, version);
    text.replace("\"uuid\":\"900000007\"", "\"uuid\":\"" + uuid + '"');
    return text.replace("\"expiration\":22", "\"expiration\":" + QByteArray::number(expiration));
}

#include "addresstext.h"

#include <QtCore/QStringList>

static QHostAddress ipv4FromText(const QString &text)
{
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() != 4)
        return QHostAddress();
    quint32 address = 0;
    for (int i = 0; i < parts.size(); ++i) {
        bool isNumber = false;
        const uint part = parts.at(i).toUInt(&isNumber, 10);
        if (!isNumber || part > 255)
            return QHostAddress();
        address = (address << 8) | part;
    }
    return QHostAddress(address);
}

QHostAddress addressFromText(const QString &text)
{
    const QString trimmed = text.simplified();
    if (trimmed.contains(QLatin1Char(':')))
        return QHostAddress(trimmed);
    return ipv4FromText(trimmed);
}

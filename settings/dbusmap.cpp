#include "dbusmap.h"

#include <QtDBus/QDBusArgument>

QVariantMap mapFromArgument(const QVariant &argument)
{
    if (argument.userType() != qMetaTypeId<QDBusArgument>())
        return QVariantMap();
    const QDBusArgument dictionary = argument.value<QDBusArgument>();
    if (dictionary.currentSignature() != QLatin1String("a{sv}"))
        return QVariantMap();
    return qdbus_cast<QVariantMap>(dictionary);
}

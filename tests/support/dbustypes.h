#ifndef DBUSTYPES_H
#define DBUSTYPES_H

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusVariant>

// D-Bus types that the daemon does not expect: "a{ss}", "a{iv}", "(ss)", "ai" and "aa{ss}".
typedef QMap<QString, QString> TextMap;
typedef QMap<int, QDBusVariant> NumberedMap;

struct TextPair
{
    QString first;
    QString second;
};

inline QDBusArgument &operator<<(QDBusArgument &argument, const TextPair &pair)
{
    argument.beginStructure();
    argument << pair.first << pair.second;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument &operator>>(const QDBusArgument &argument, TextPair &pair)
{
    argument.beginStructure();
    argument >> pair.first >> pair.second;
    argument.endStructure();
    return argument;
}

Q_DECLARE_METATYPE(TextMap)
Q_DECLARE_METATYPE(NumberedMap)
Q_DECLARE_METATYPE(TextPair)
Q_DECLARE_METATYPE(QList<int>)
Q_DECLARE_METATYPE(QList<TextMap>)

// Before any of them is sent.
inline void registerDbusTypes()
{
    qDBusRegisterMetaType<TextMap>();
    qDBusRegisterMetaType<NumberedMap>();
    qDBusRegisterMetaType<TextPair>();
    qDBusRegisterMetaType<QList<int>>();
    qDBusRegisterMetaType<QList<TextMap>>();
}

#endif

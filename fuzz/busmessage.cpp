#include "busmessage.h"

#include "require.h"

#include <dbus/dbus.h>

#include <cstring>

namespace
{

void appendVariant(DBusMessageIter *to, const QVariant &value);

void appendString(DBusMessageIter *to, const QString &value)
{
    const QByteArray utf8 = value.toUtf8();
    const char *text = utf8.constData();
    REQUIRE(dbus_message_iter_append_basic(to, DBUS_TYPE_STRING, &text));
}

void appendMap(DBusMessageIter *to, const QVariantMap &map)
{
    DBusMessageIter array;
    REQUIRE(dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, "{sv}", &array));
    for (QVariantMap::const_iterator i = map.constBegin(); i != map.constEnd(); ++i) {
        DBusMessageIter entry;
        REQUIRE(dbus_message_iter_open_container(&array, DBUS_TYPE_DICT_ENTRY, nullptr, &entry));
        appendString(&entry, i.key());
        appendVariant(&entry, i.value());
        REQUIRE(dbus_message_iter_close_container(&array, &entry));
    }
    REQUIRE(dbus_message_iter_close_container(to, &array));
}

void appendList(DBusMessageIter *to, const QVariantList &list)
{
    DBusMessageIter array;
    REQUIRE(dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, "v", &array));
    for (int i = 0; i < list.size(); ++i)
        appendVariant(&array, list.at(i));
    REQUIRE(dbus_message_iter_close_container(to, &array));
}

const char *signatureOf(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::QVariantMap:
        return "a{sv}";
    case QMetaType::QVariantList:
        return "av";
    case QMetaType::QString:
        return "s";
    case QMetaType::LongLong:
        return "x";
    case QMetaType::Double:
        return "d";
    case QMetaType::Bool:
        return "b";
    default:
        REQUIRE(!"a type that the bus carries");
    }
}

void appendContent(DBusMessageIter *to, const QVariant &value)
{
    switch (*signatureOf(value)) {
    case 'a':
        if (value.userType() == QMetaType::QVariantMap)
            appendMap(to, value.toMap());
        else
            appendList(to, value.toList());
        break;
    case 's':
        appendString(to, value.toString());
        break;
    case 'x': {
        const dbus_int64_t number = value.toLongLong();
        REQUIRE(dbus_message_iter_append_basic(to, DBUS_TYPE_INT64, &number));
        break;
    }
    case 'd': {
        const double number = value.toDouble();
        REQUIRE(dbus_message_iter_append_basic(to, DBUS_TYPE_DOUBLE, &number));
        break;
    }
    default: {
        const dbus_bool_t flag = value.toBool();
        REQUIRE(dbus_message_iter_append_basic(to, DBUS_TYPE_BOOLEAN, &flag));
    }
    }
}

void appendVariant(DBusMessageIter *to, const QVariant &value)
{
    DBusMessageIter variant;
    REQUIRE(dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, signatureOf(value), &variant));
    appendContent(&variant, value);
    REQUIRE(dbus_message_iter_close_container(to, &variant));
}

// The length of the body of a message that carries the list; a receiver has accepted the message.
int bodySize(const QVariantList &list)
{
    DBusMessage *message = dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN);
    REQUIRE(message && dbus_message_set_reply_serial(message, 1));
    dbus_message_set_serial(message, 1);
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message, &arguments);
    appendList(&arguments, list);

    char *data = nullptr;
    int length = 0;
    REQUIRE(dbus_message_marshal(message, &data, &length));
    dbus_message_unref(message);

    DBusError error = DBUS_ERROR_INIT;
    DBusMessage *received = dbus_message_demarshal(data, length, &error);
    if (!received)
        std::fprintf(stderr, "%s: %s\n", error.name, error.message);
    REQUIRE(received);
    dbus_message_unref(received);

    dbus_uint32_t body = 0; // the second word of the header
    std::memcpy(&body, data + 4, sizeof body);
    dbus_free(data);
    return int(body);
}

} // namespace

int sizeInBusMessage(const QVariantMap &value, int shift)
{
    // The list's length, its first element's signature and one byte to the next word, the text with length and end
    const int sizeBefore = 4 + 3 + 1 + 4 + shift + 1;
    return bodySize(QVariantList() << QString(shift, QLatin1Char('x')) << value) - sizeBefore;
}

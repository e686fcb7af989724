#include "jsonline.h"

#include <QtCore/QStringList>

static QByteArray quoted(const QString &text)
{
    QByteArray result("\"");
    for (int i = 0; i < text.size(); ++i) {
        const ushort unit = text.at(i).unicode();
        if (unit == '"' || unit == '\\')
            result.append('\\').append(char(unit));
        else if (unit >= 0x20 && unit < 0x7f)
            result.append(char(unit));
        else
            result.append("\\u").append(QByteArray::number(unit, 16).rightJustified(4, '0'));
    }
    return result.append('"');
}

static QByteArray joined(const QList<QByteArray> &parts, char begin, char end)
{
    QByteArray result(1, begin);
    for (int i = 0; i < parts.size(); ++i)
        result.append(i > 0 ? ", " : "").append(parts.at(i));
    return result.append(end);
}

static QByteArray object(const QVariantMap &map)
{
    QList<QByteArray> members;
    for (QVariantMap::const_iterator i = map.constBegin(); i != map.constEnd(); ++i)
        members.append(quoted(i.key()) + ": " + jsonLine(i.value()));
    return joined(members, '{', '}');
}

static QByteArray array(const QVariantList &list)
{
    QList<QByteArray> elements;
    for (int i = 0; i < list.size(); ++i)
        elements.append(jsonLine(list.at(i)));
    return joined(elements, '[', ']');
}

QByteArray jsonLine(const QVariant &value)
{
    switch (int(value.type())) {
    case QVariant::Invalid:
        return "null";
    case QVariant::Map:
        return object(value.toMap());
    case QVariant::List:
    case QVariant::StringList:
        return array(value.toList());
    case QVariant::Bool:
    case QVariant::Int:
    case QVariant::UInt:
    case QVariant::LongLong:
    case QVariant::ULongLong:
        return value.toString().toLatin1();
    default:
        return quoted(value.toString());
    }
}

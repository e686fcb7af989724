#include "zorvdevice.h"

#include "dbusvalue.h"
#include "jsonreader.h"

#include <limits>

// QVariant's own text of a double differs between versions of Qt; this is the one with up to 15 digits.
static QString textOf(const QVariant &value)
{
    if (value.userType() == QMetaType::Double)
        return QString::number(value.toDouble(), 'g', 15);
    return value.toString();
}

static QVariant lookUp(const QVariant &root, const QString &path);

static QVariantList lookUpInEach(const QVariantList &list, const QString &path)
{
    QVariantList results;
    for (int i = 0; i < list.size(); ++i)
        results.append(lookUp(list.at(i), path));
    return results;
}

// The path is walked key by key, not split at once: a long one costs no more than the values it leads to.
static QVariant lookUp(const QVariant &root, const QString &path)
{
    QVariant current = root;
    int begin = 0;
    while (begin <= path.size()) {
        const int slash = path.indexOf(QLatin1Char('/'), begin);
        const int end = slash == -1 ? path.size() : slash;
        const QString key = path.mid(begin, end - begin);
        if (current.userType() == QMetaType::QVariantMap && !current.toMap().isEmpty())
            current = current.toMap().value(key);
        else if (current.userType() == QMetaType::QVariantList && !current.toList().isEmpty())
            return lookUpInEach(current.toList(), path.mid(path.indexOf(key)));
        else
            return QVariant();
        begin = end + 1;
    }
    return current;
}

static int threeTimes(int seconds)
{
    const qint64 product = qint64(seconds) * 3;
    return int(qBound(qint64(std::numeric_limits<int>::min()), product, qint64(std::numeric_limits<int>::max())));
}

ZorvDevice::ZorvDevice(const QString &uuid, const QByteArray &json, int defaultExpiration, QObject *parent)
    : QObject(parent)
    , m_raw(json)
    , m_lastSeen(QDateTime::currentDateTime())
    , m_expiration(defaultExpiration)
    , m_parseAttempted(false)
{
    setObjectName(uuid);
    JsonReader reader;
    bool isWholeNumber = false;
    int announced = 0;
    if (reader.parse(json))
        announced = textOf(lookUp(reader.result(), QLatin1String("params/expiration"))).toInt(&isWholeNumber, 10);
    if (isWholeNumber)
        m_expiration = threeTimes(announced);
    else
        deleteLater();
}

void ZorvDevice::update(const QByteArray &json)
{
    m_raw = json;
    m_lastSeen = QDateTime::currentDateTime();
    forgetParsed();
}

void ZorvDevice::forgetParsed()
{
    m_parsed.clear();
    m_parseAttempted = false;
}

void ZorvDevice::checkExpired()
{
    if (m_lastSeen.secsTo(QDateTime::currentDateTime()) > m_expiration)
        deleteLater();
}

// An announcement that does not parse is not tried again before the next one comes.
void ZorvDevice::parseOnce()
{
    if (m_parseAttempted)
        return;
    m_parseAttempted = true;
    JsonReader reader;
    if (reader.parse(m_raw))
        m_parsed = reader.result().toMap();
}

QVariant ZorvDevice::value(const QString &path)
{
    parseOnce();
    return lookUp(m_parsed, path);
}

QString ZorvDevice::text(const QString &path)
{
    return textOf(value(path));
}

QString ZorvDevice::familyType()
{
    return text(QLatin1String("params/device/familyType"));
}

QVariantMap ZorvDevice::summary()
{
    QVariantMap summary = value(QLatin1String("params/netSettings/interface")).toMap();
    summary.insert(QLatin1String("uuid"), objectName());
    summary.insert(QLatin1String("name"), text(QLatin1String("params/device/name")));
    summary.insert(QLatin1String("version"), text(QLatin1String("params/device/firmwareVersion")));
    summary.insert(QLatin1String("type"), text(QLatin1String("params/device/type")));
    summary.insert(QLatin1String("familyType"), familyType());
    return dbusvalue::carriable(summary);
}

QString ZorvDevice::jsonValue(const QString &path)
{
    return text(path);
}

QString ZorvDevice::rawJson() const
{
    return QString::fromLatin1(m_raw.constData());
}

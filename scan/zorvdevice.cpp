#include "zorvdevice.h"

#include "dbusvalue.h"
#include "jsonreader.h"

#include <QtCore/QDateTime>

#include <limits>

// Parsed announcements can take forty times the memory of their text, so only so many bytes of it are kept parsed.
static const int maximalParsedSize = 4 * 1024 * 1024;

int ZorvDevice::s_parsedSize = 0;

// QVariant's own text of a double differs between versions of Qt; this is the one with up to 15 digits.
static QString textOf(const QVariant &value)
{
    if (value.userType() == QMetaType::Double)
        return QString::number(value.toDouble(), 'g', 15);
    return value.toString();
}

static QVariant lookUp(const QVariant &root, const QString &path, int begin);

static QVariantList lookUpInEach(const QVariantList &list, const QString &path, int begin)
{
    QVariantList results;
    for (int i = 0; i < list.size(); ++i)
        results.append(lookUp(list.at(i), path, begin));
    return results;
}

// Looks up what stands in the path from begin on. The path comes from any local program and is followed through as many
// values as the announcement holds, so no part of it is ever copied.
static QVariant lookUp(const QVariant &root, const QString &path, int begin)
{
    QVariant current = root;
    for (int keyBegin = begin; keyBegin <= path.size();) {
        const bool isObject = current.userType() == QMetaType::QVariantMap && !current.toMap().isEmpty();
        const bool isList = current.userType() == QMetaType::QVariantList && !current.toList().isEmpty();
        if (!isObject && !isList)
            return QVariant();
        const int slash = path.indexOf(QLatin1Char('/'), keyBegin);
        const int keyEnd = slash == -1 ? path.size() : slash;
        const QString key = QString::fromRawData(path.constData() + keyBegin, keyEnd - keyBegin);
        if (isList)
            return lookUpInEach(current.toList(), path, path.indexOf(key, begin));
        current = current.toMap().value(key);
        keyBegin = keyEnd + 1;
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
    , m_raw(json.constData(), json.size())
    , m_lastSeen(QDateTime::currentMSecsSinceEpoch())
    , m_expiration(defaultExpiration)
    , m_isMalformed(false)
{
    setObjectName(uuid);
    JsonReader reader;
    bool isWholeNumber = false;
    int announced = 0;
    if (reader.parse(json))
        announced = textOf(lookUp(reader.result(), QLatin1String("params/expiration"), 0)).toInt(&isWholeNumber, 10);
    if (isWholeNumber)
        m_expiration = threeTimes(announced);
    else
        deleteLater();
}

ZorvDevice::~ZorvDevice()
{
    forgetParsed();
}

void ZorvDevice::update(const QByteArray &json)
{
    touch();
    // Nearly every device says the same every time.
    if (json == m_raw)
        return;
    forgetParsed();
    m_raw = QByteArray(json.constData(), json.size());
}

void ZorvDevice::touch()
{
    m_lastSeen = QDateTime::currentMSecsSinceEpoch();
}

void ZorvDevice::checkExpired()
{
    const qint64 wholeSeconds = (QDateTime::currentMSecsSinceEpoch() - m_lastSeen) / 1000;
    if (wholeSeconds > m_expiration)
        deleteLater();
}

// Parsed once, as far as there is room to keep it. What does not parse is not tried again before the next announcement.
QVariantMap ZorvDevice::parsed()
{
    if (!m_parsed.isEmpty() || m_isMalformed)
        return m_parsed;
    JsonReader reader;
    m_isMalformed = !reader.parse(m_raw);
    const QVariantMap announcement = reader.result().toMap();
    if (!announcement.isEmpty() && s_parsedSize + m_raw.size() <= maximalParsedSize) {
        m_parsed = announcement;
        s_parsedSize += m_raw.size();
    }
    return announcement;
}

void ZorvDevice::forgetParsed()
{
    if (!m_parsed.isEmpty())
        s_parsedSize -= m_raw.size();
    m_parsed.clear();
    m_isMalformed = false;
}

QVariant ZorvDevice::value(const QString &path)
{
    // Each key of the path would have to stand in the announcement.
    if (path.size() > m_raw.size())
        return QVariant();
    return lookUp(parsed(), path, 0);
}

QVariantMap ZorvDevice::summary()
{
    const QVariantMap announcement = parsed();
    QVariantMap summary = lookUp(announcement, QLatin1String("params/netSettings/interface"), 0).toMap();
    summary.insert(QLatin1String("uuid"), objectName());
    summary.insert(QLatin1String("name"), textOf(lookUp(announcement, QLatin1String("params/device/name"), 0)));
    summary.insert(QLatin1String("version"), textOf(lookUp(announcement, QLatin1String("params/device/firmwareVersion"), 0)));
    summary.insert(QLatin1String("type"), textOf(lookUp(announcement, QLatin1String("params/device/type"), 0)));
    summary.insert(QLatin1String("familyType"), textOf(lookUp(announcement, QLatin1String("params/device/familyType"), 0)));
    return dbusvalue::carriable(summary);
}

QString ZorvDevice::jsonValue(const QString &path)
{
    return dbusvalue::carriable(textOf(value(path)));
}

QString ZorvDevice::rawJson() const
{
    return QString::fromLatin1(m_raw.constData());
}

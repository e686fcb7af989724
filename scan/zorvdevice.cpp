#include "zorvdevice.h"

#include "dbusvalue.h"
#include "deviceindex.h"
#include "jsonreader.h"

#include <QtCore/QDateTime>

#include <limits>

// Parsed announcements can take forty times the memory of their text, so only so many bytes of it are kept parsed.
static const int maximalParsedSize = 4 * 1024 * 1024;

// Of kept summaries, by their size in a message. In memory they can take three times as much.
static const int maximalSummariesSize = 12 * 1024 * 1024;

int ZorvDevice::s_parsedSize = 0;
int ZorvDevice::s_summariesSize = 0;

namespace
{

// Made once: all devices share them.
struct Keys
{
    Keys()
        : params(QLatin1String("params"))
        , device(QLatin1String("device"))
        , netSettings(QLatin1String("netSettings"))
        , interface(QLatin1String("interface"))
        , expiration(QLatin1String("expiration"))
        , firmwareVersion(QLatin1String("firmwareVersion"))
        , uuid(QLatin1String("uuid"))
        , name(QLatin1String("name"))
        , version(QLatin1String("version"))
        , type(QLatin1String("type"))
        , familyType(QLatin1String("familyType"))
    {
    }

    const QString params;
    const QString device;
    const QString netSettings;
    const QString interface;
    const QString expiration;
    const QString firmwareVersion;
    const QString uuid;
    const QString name;
    const QString version;
    const QString type;
    const QString familyType;
};

} // namespace

static const Keys &keys()
{
    static const Keys made;
    return made;
}

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

static QVariantMap objectIn(const QVariantMap &object, const QString &key)
{
    return object.value(key).toMap();
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
    , m_place(0)
    , m_index(nullptr)
    , m_hasNoValues(false)
    , m_summarySize(0)
{
    setObjectName(uuid);
    JsonReader reader;
    bool isWholeNumber = false;
    int announced = 0;
    if (reader.parse(json))
        announced = textOf(objectIn(reader.result().toMap(), keys().params).value(keys().expiration)).toInt(&isWholeNumber, 10);
    if (isWholeNumber)
        m_expiration = threeTimes(announced);
    else
        deleteLater();
}

ZorvDevice::~ZorvDevice()
{
    if (m_index)
        m_index->remove(this);
    forgetParsed();
}

void ZorvDevice::update(const QByteArray &json)
{
    forgetParsed();
    if (m_index)
        m_index->textHasGrown(json.size() - m_raw.size());
    m_raw = QByteArray(json.constData(), json.size());
    touch();
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

// What holds no values is not parsed again before the next announcement.
QVariantMap ZorvDevice::parsed()
{
    if (!m_parsed.isEmpty() || m_hasNoValues)
        return m_parsed;
    JsonReader reader;
    reader.parse(m_raw);
    const QVariantMap announcement = reader.result().toMap();
    m_hasNoValues = announcement.isEmpty();
    return announcement;
}

static bool takeRoom(int *taken, int size, int maximum)
{
    if (*taken + size > maximum)
        return false;
    *taken += size;
    return true;
}

void ZorvDevice::forgetParsed()
{
    if (!m_parsed.isEmpty())
        s_parsedSize -= m_raw.size();
    if (!m_summary.isEmpty())
        s_summariesSize -= m_summarySize;
    m_parsed.clear();
    m_summary.clear();
    m_hasNoValues = false;
}

QVariant ZorvDevice::value(const QString &path)
{
    // Each key of the path would have to stand in the announcement.
    if (path.size() > m_raw.size())
        return QVariant();
    const QVariantMap announcement = parsed();
    if (m_parsed.isEmpty() && !m_hasNoValues && takeRoom(&s_parsedSize, m_raw.size(), maximalParsedSize))
        m_parsed = announcement;
    return lookUp(announcement, path, 0);
}

// The summary alone is kept, not what it was made from: most devices are listed again and again, and asked for nothing else.
QVariantMap ZorvDevice::summary(int *size)
{
    const bool isKept = !m_summary.isEmpty();
    const QVariantMap summary = isKept ? m_summary : newSummary();
    const int summarySize = isKept ? m_summarySize : dbusvalue::marshalledSize(summary);
    if (!isKept && takeRoom(&s_summariesSize, summarySize, maximalSummariesSize)) {
        m_summary = summary;
        m_summarySize = summarySize;
    }
    if (size)
        *size = summarySize;
    return summary;
}

QVariantMap ZorvDevice::newSummary()
{
    const QVariantMap params = objectIn(parsed(), keys().params);
    const QVariantMap device = objectIn(params, keys().device);
    QVariantMap summary = objectIn(objectIn(params, keys().netSettings), keys().interface);
    summary.insert(keys().uuid, objectName());
    summary.insert(keys().name, textOf(device.value(keys().name)));
    summary.insert(keys().version, textOf(device.value(keys().firmwareVersion)));
    summary.insert(keys().type, textOf(device.value(keys().type)));
    summary.insert(keys().familyType, textOf(device.value(keys().familyType)));
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

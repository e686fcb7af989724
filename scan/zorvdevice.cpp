#include "zorvdevice.h"

#include "announcement.h"
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
        : expirationPath(QLatin1String("params/expiration"))
        , devicePath(QLatin1String("params/device"))
        , interfacePath(QLatin1String("params/netSettings/interface"))
        , firmwareVersion(QLatin1String("firmwareVersion"))
        , uuid(QLatin1String("uuid"))
        , name(QLatin1String("name"))
        , version(QLatin1String("version"))
        , type(QLatin1String("type"))
        , familyType(QLatin1String("familyType"))
    {
    }

    const QString expirationPath;
    const QString devicePath;
    const QString interfacePath;
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

namespace
{

// A path of keys separated by slashes. It comes from any local program and is followed through as many values as an announcement
// holds, so no part of it is ever copied, and of one that is longer than every key no more than that is looked at.
class Path
{
public:
    // The text must outlive the path. longestKey: no key of the announcement is longer.
    Path(const QString &text, int longestKey)
        : m_text(text)
        , m_longestKey(longestKey)
    {
    }

    QVariant lookUp(const QVariant &root) const { return lookUp(root, 0); }

private:
    QVariant lookUp(const QVariant &root, int begin) const;
    QVariantList lookUpInEach(const QVariantList &list, int begin) const;
    QString between(int begin, int end) const { return QString::fromRawData(m_text.constData() + begin, end - begin); }
    int endOfPart(int begin) const;
    int firstPlaceOf(int part, int begin) const;

    const QString &m_text;
    const int m_longestKey;
};

// -1: it is longer than every key.
int Path::endOfPart(int begin) const
{
    const int size = qMin(m_text.size() - begin, m_longestKey + 1);
    const int slash = between(begin, begin + size).indexOf(QLatin1Char('/'));
    if (slash != -1)
        return begin + slash;
    return size <= m_longestKey ? m_text.size() : -1;
}

// Where the path has the text of the part first, from begin on: at the part itself at the latest. A text longer than every key is
// nowhere before it, since keys of that part of the path have been found.
int Path::firstPlaceOf(int part, int begin) const
{
    const int end = part == begin ? -1 : endOfPart(part);
    return end == -1 ? part : begin + between(begin, end).indexOf(between(part, end));
}

QVariantList Path::lookUpInEach(const QVariantList &list, int begin) const
{
    QVariantList results;
    for (int i = 0; i < list.size(); ++i)
        results.append(lookUp(list.at(i), begin));
    return results;
}

// Looks up what stands in the path from begin on. Each value of the announcement is visited once at most: of an object one
// entry is looked at, of a list every element, and of all others nothing.
QVariant Path::lookUp(const QVariant &root, int begin) const
{
    QVariant current = root;
    for (int part = begin; part <= m_text.size();) {
        if (current.userType() == QMetaType::QVariantList) {
            const QVariantList list = current.toList();
            return list.isEmpty() ? QVariant() : lookUpInEach(list, firstPlaceOf(part, begin));
        }
        const QVariantMap object = current.toMap();
        if (object.isEmpty())
            return current;
        const int end = endOfPart(part);
        if (end == -1)
            return QVariant();
        current = object.value(between(part, end));
        part = end + 1;
    }
    return current;
}

} // namespace

static QVariant lookUp(const QVariant &root, const QString &path)
{
    return Path(path, path.size()).lookUp(root);
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
    , m_isLeaving(false)
    , m_hasNoValues(false)
    , m_summarySize(0)
    , m_keptSize(0)
{
    setObjectName(uuid);
    JsonReader reader;
    bool isWholeNumber = false;
    int announced = 0;
    if (reader.parse(json))
        announced = textOf(lookUp(reader.result().toMap(), keys().expirationPath)).toInt(&isWholeNumber, 10);
    if (isWholeNumber)
        m_expiration = threeTimes(announced);
    else
        leave();
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

void ZorvDevice::leave()
{
    m_isLeaving = true;
    deleteLater();
}

bool ZorvDevice::checkExpired()
{
    const qint64 wholeSeconds = (QDateTime::currentMSecsSinceEpoch() - m_lastSeen) / 1000;
    if (m_isLeaving || wholeSeconds <= m_expiration)
        return false;
    leave();
    return true;
}

bool ZorvDevice::isRepeatedBy(const QByteArray &json) const
{
    return announcement::areSameButForBlanks(m_raw, json);
}

// An announcement without values is not parsed again before the next one.
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
    s_summariesSize -= m_keptSize;
    m_keptSize = 0;
    m_parsed.clear();
    m_summary.clear();
    m_familyType.clear();
    m_hasNoValues = false;
}

QVariant ZorvDevice::value(const QString &path)
{
    const QVariantMap announcement = parsed();
    if (m_parsed.isEmpty() && !m_hasNoValues && takeRoom(&s_parsedSize, m_raw.size(), maximalParsedSize))
        m_parsed = announcement;
    return Path(path, m_raw.size()).lookUp(announcement);
}

// The summary alone is kept, not what it was made from: most devices are listed again and again, and asked for nothing else.
QVariantMap ZorvDevice::summary(int *size, QString *familyType)
{
    const bool isKept = !m_summary.isEmpty();
    QString family = m_familyType;
    const QVariantMap summary = isKept ? m_summary : newSummary(&family);
    const int summarySize = isKept ? m_summarySize : dbusvalue::marshalledSize(summary);
    const int keptSize = summarySize + family.size() * int(sizeof(QChar));
    if (!isKept && takeRoom(&s_summariesSize, keptSize, maximalSummariesSize)) {
        m_summary = summary;
        m_familyType = family;
        m_summarySize = summarySize;
        m_keptSize = keptSize;
    }
    if (size)
        *size = summarySize;
    if (familyType)
        *familyType = family;
    return summary;
}

// The values of the object "device" are looked up from there on: none of these keys occurs earlier in its path.
QVariantMap ZorvDevice::newSummary(QString *familyType)
{
    const QVariant announcement = parsed();
    const QVariant device = lookUp(announcement, keys().devicePath);
    *familyType = textOf(lookUp(device, keys().familyType));
    QVariantMap summary = lookUp(announcement, keys().interfacePath).toMap();
    summary.insert(keys().uuid, objectName());
    summary.insert(keys().name, textOf(lookUp(device, keys().name)));
    summary.insert(keys().version, textOf(lookUp(device, keys().firmwareVersion)));
    summary.insert(keys().type, textOf(lookUp(device, keys().type)));
    summary.insert(keys().familyType, *familyType);
    return dbusvalue::sanitized(summary);
}

QString ZorvDevice::jsonValue(const QString &path)
{
    return dbusvalue::sanitized(textOf(value(path)));
}

QString ZorvDevice::rawJson() const
{
    return QString::fromLatin1(m_raw.constData());
}

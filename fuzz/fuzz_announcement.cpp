// Announcements at the scan port, and what of them reaches the bus. Input: the first announcement of a device, its
// next one, and paths that are looked up in both. Without a next one it is the second half of the first.
#include "announcement.h"
#include "busmessage.h"
#include "dbusvalue.h"
#include "identical.h"
#include "input.h"
#include "jsonreader.h"
#include "require.h"
#include "zorvdevice.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QPointer>
#include <QtCore/QStringList>

#include <string>

namespace
{

// What libdbus takes of containers within each other
const int mostContainers = 64;

QString expectedUuid(const QByteArray &datagram)
{
    const std::string d(datagram.constData(), std::size_t(datagram.size()));
    const std::size_t params = d.find("\"params\"");
    if (params == std::string::npos || params == 0)
        return QString();
    const std::size_t key = d.find("\"uuid\"", params);
    const std::size_t colon = d.find(':', key == std::string::npos ? 5 : key + 6);
    const std::size_t opening = colon == std::string::npos ? colon : d.find('"', colon);
    const std::size_t closing = opening == std::string::npos ? opening : d.find('"', opening + 1);
    if (closing == std::string::npos || closing == opening + 1)
        return QString();
    const std::string uuid = d.substr(opening + 1, closing - opening - 1);
    return QString::fromLatin1(uuid.data(), int(uuid.size()));
}

QVariant expectedValue(const QVariant &root, const QString &path)
{
    QVariant current = root;
    const QStringList keys = path.split(QLatin1Char('/'));
    for (int i = 0; i < keys.size(); ++i) {
        const QVariantMap map = current.toMap();
        const QVariantList list = current.toList();
        if (current.userType() == QMetaType::QVariantList && list.isEmpty())
            return QVariant();
        if (map.isEmpty() && list.isEmpty())
            continue;
        if (map.isEmpty()) {
            const QString remainder = path.mid(path.indexOf(keys.at(i)));
            QVariantList results;
            for (int j = 0; j < list.size(); ++j)
                results << expectedValue(list.at(j), remainder);
            return results;
        }
        current = map.value(keys.at(i));
    }
    return current;
}

QString expectedText(const QVariant &value)
{
    return value.userType() == QMetaType::Double ? QString::number(value.toDouble(), 'g', 15) : value.toString();
}

QVariant parsed(const QByteArray &json)
{
    JsonReader reader;
    return reader.parse(json) ? reader.result() : QVariant();
}

// False when the announcement names no whole number of seconds.
bool readExpiration(const QVariant &announcement, int *seconds)
{
    bool isWholeNumber = false;
    *seconds = expectedText(expectedValue(announcement.toMap(), QLatin1String("params/expiration"))).toInt(&isWholeNumber, 10);
    return isWholeNumber;
}

// By code points: surrogates without their other half, zero, and what Unicode keeps for no character at all (32 in the
// first plane, the last two of each) have no place on the bus.
QString expectedOnBus(const QString &text)
{
    QString result;
    for (int i = 0; i < text.size(); ++i) {
        const bool isPair = text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const QString one = text.mid(i, isPair ? 2 : 1);
        i += one.size() - 1;
        const uint c = isPair ? QChar::surrogateToUcs4(one.at(0), one.at(1)) : one.at(0).unicode();
        const bool isSurrogate = c >= 0xd800 && c < 0xe000;
        const bool isNoCharacter = (c >= 0xfdd0 && c < 0xfdf0) || c % 0x10000 >= 0xfffe;
        if (c != 0 && !isSurrogate && !isNoCharacter)
            result += one;
    }
    return result;
}

// A list takes an array, and a variant for each element; an object takes an array, an entry and a variant.
int containersOf(const QVariant &value)
{
    if (value.userType() == QMetaType::QVariantMap)
        return 3;
    return value.userType() == QMetaType::QVariantList ? 2 : 0;
}

bool fitsOnBus(const QVariant &value, int containers)
{
    return value.isValid() && containers + containersOf(value) <= mostContainers;
}

void checkCarried(const QVariant &carried, const QVariant &source, int containers);

void checkCarriedList(const QVariantList &carried, const QVariantList &source, int containers)
{
    int size = 0;
    for (int i = 0; i < source.size(); ++i) {
        if (!fitsOnBus(source.at(i), containers))
            continue;
        REQUIRE(size < carried.size());
        checkCarried(carried.at(size++), source.at(i), containers);
    }
    REQUIRE(size == carried.size());
}

void checkCarriedMap(const QVariantMap &carried, const QVariantMap &source, int containers)
{
    QVariantMap expected; // keys may become the same
    for (QVariantMap::const_iterator i = source.constBegin(); i != source.constEnd(); ++i) {
        if (fitsOnBus(i.value(), containers))
            expected.insert(expectedOnBus(i.key()), i.value());
    }
    REQUIRE(carried.keys() == expected.keys());
    for (QVariantMap::const_iterator i = carried.constBegin(); i != carried.constEnd(); ++i)
        checkCarried(i.value(), expected.value(i.key()), containers);
}

// All that the bus can carry of source is carried, and nothing else. containers: how many are open around the value.
void checkCarried(const QVariant &carried, const QVariant &source, int containers)
{
    REQUIRE(carried.isValid());
    REQUIRE(carried.userType() == source.userType());
    const int within = containers + containersOf(source);
    REQUIRE(within <= mostContainers);
    if (source.userType() == QMetaType::QVariantMap)
        checkCarriedMap(carried.toMap(), source.toMap(), within);
    else if (source.userType() == QMetaType::QVariantList)
        checkCarriedList(carried.toList(), source.toList(), within);
    else if (source.userType() == QMetaType::QString)
        REQUIRE(carried.toString() == expectedOnBus(source.toString()));
    else
        REQUIRE(identical(carried, source));
}

QVariantMap expectedSummary(const QString &uuid, const QVariantMap &root)
{
    static const char *const entries[][2] = { { "name", "name" }, { "version", "firmwareVersion" }, { "type", "type" },
        { "familyType", "familyType" } };
    QVariantMap summary = expectedValue(root, QLatin1String("params/netSettings/interface")).toMap();
    for (const auto &entry : entries) {
        const QString path = QLatin1String("params/device/") + QLatin1String(entry[1]);
        summary.insert(QLatin1String(entry[0]), expectedText(expectedValue(root, path)));
    }
    summary.insert(QLatin1String("uuid"), uuid);
    return summary;
}

void checkSummary(ZorvDevice *device, const QVariantMap &root)
{
    const QVariantMap summary = device->summary();
    checkCarried(summary, expectedSummary(device->objectName(), root), 2); // in the reply's list, in a variant
    int bound = 0;
    REQUIRE(identical(device->summary(&bound), summary)); // now that it is kept
    REQUIRE(bound == dbusvalue::marshalledSize(summary));
#ifdef WITH_LIBDBUS
    if (!root.isEmpty()) // else all summaries are alike
        REQUIRE(sizeInBusMessage(summary, device->rawJson().size() % 8) <= bound);
#endif
}

void checkDevice(ZorvDevice *device, const QByteArray &json, const QVariantMap &root, const QList<QByteArray> &paths)
{
    REQUIRE(device->rawJson() == QString::fromLatin1(json.constData()));
    for (int i = 0; i < paths.size(); ++i) {
        const QString path = QString::fromUtf8(paths.at(i).constData(), paths.at(i).size());
        const QVariant expected = expectedValue(root, path);
        REQUIRE(identical(device->value(path), expected));
        REQUIRE(device->jsonValue(path) == expectedOnBus(expectedText(expected)));
    }
    checkSummary(device, root);
}

void executeDeferredDeletions()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::sendPostedEvents(); // without a kind of event: only then is the queue emptied of what was sent
}

} // namespace

int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    QList<QByteArray> paths = parts(data, size);
    const QByteArray first = paths.takeFirst();
    const QByteArray second = paths.isEmpty() ? first.mid(first.size() / 2) : paths.takeFirst();

    const announcement::Span found = announcement::uuidIn(first);
    const QString uuid = QString::fromLatin1(first.constData() + found.begin, found.size);
    REQUIRE(uuid == expectedUuid(first));

    // What names no uuid never becomes a device. Here it does: its text is as good as another.
    QObject registry;
    const QPointer<ZorvDevice> device(new ZorvDevice(uuid.isEmpty() ? QLatin1String("0") : uuid, first, 10, &registry));
    const QVariant root = parsed(first);
    checkDevice(device, first, root.toMap(), paths);
    device->update(second);
    checkDevice(device, second, parsed(second).toMap(), paths);

    int expiration = 0;
    const bool isKept = readExpiration(root, &expiration);
    executeDeferredDeletions();
    REQUIRE(device.isNull() == !isKept);
    if (!isKept || expiration == 0) // the second may end just here
        return 0;
    device->checkExpired();
    executeDeferredDeletions();
    REQUIRE(device.isNull() == (expiration < 0));
    return 0;
}

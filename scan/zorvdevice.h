#ifndef ZORVDEVICE_H
#define ZORVDEVICE_H

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QVariant>

class DeviceIndex;

// One device that announces itself on the network: its last announcement and how long that stays valid.
// The object's name is the device's uuid. On the system bus it is an object below /zorvscan, with the interface
// local.ZorvDevice: the public slots are its methods, in this order.
class ZorvDevice : public QObject
{
    Q_OBJECT

public:
    // An announcement that does not parse, or that names no whole number of seconds as its expiration, makes an
    // object that deletes itself as soon as the event loop is reached. A valid one keeps the object for three times
    // its expiration. defaultExpiration, in seconds, decides nothing. The text is copied: the caller may overwrite its array.
    ZorvDevice(const QString &uuid, const QByteArray &json, int defaultExpiration, QObject *parent);

    ~ZorvDevice();

    // The device announced itself again. The expiration stays that of the first announcement. The text is copied.
    void update(const QByteArray &json);

    // The device announced itself again, and the last announcement stays.
    void touch();

    // Whether this is the last announcement.
    bool says(const QByteArray &json) const { return m_raw == json; }
    // Of the last announcement, in bytes.
    int textSize() const { return m_raw.size(); }

    // When the device was last seen too long ago: deletes the object, once the event loop is reached. True if this call has
    // done so.
    bool checkExpired();
    // It will be deleted once the event loop is reached.
    bool isLeaving() const { return m_isLeaving; }
    // Whether this announcement says what the last one says, if perhaps with other white space.
    bool isRepeatedBy(const QByteArray &json) const;

    // The value at a path of keys separated by slashes. At a list the rest of the path is looked up in each element, and the
    // result is the list of what was found; the rest begins where the path has the text of the current key first. A plain value
    // or an empty object is the result whatever follows in the path. An empty list, or a key that an object does not have, gives
    // an invalid value.
    QVariant value(const QString &path);

    // The device's interface object, in which "uuid", "name", "version", "type" and "familyType" of the device are set.
    // What the bus cannot carry is left out (dbusvalue.h). size: what it takes in a message at most, in bytes. familyType:
    // as it was announced, with what the bus cannot carry.
    QVariantMap summary(int *size = nullptr, QString *familyType = nullptr);

public slots:
    // The text of the value at a path: empty for what has none.
    QString jsonValue(const QString &path);
    // The announcement as it came, up to its first zero byte, each byte as a character of Latin-1.
    QString rawJson() const;

private:
    QVariantMap parsed();
    QVariantMap newSummary(QString *familyType);
    void leave();
    void forgetParsed();

    static int s_parsedSize; // bytes of all announcements whose parsed form is kept
    static int s_summariesSize; // bytes that all kept summaries take in messages, and their family types in memory

    friend class DeviceIndex;

    // A repeated announcement needs the first two and the name: side by side they are fetched from memory together.
    QByteArray m_raw;
    qint64 m_lastSeen; // milliseconds since 1970
    int m_expiration; // seconds
    // The index sets these three.
    int m_place; // in the index
    DeviceIndex *m_index; // null: in none
    QString m_enteredName; // under which it is there
    QVariantMap m_parsed; // empty until a value is asked for
    bool m_isLeaving;
    bool m_hasNoValues; // the last announcement was found to be no object, or not to parse
    QVariantMap m_summary; // empty until asked for
    QString m_familyType; // of the summary, as announced
    int m_summarySize; // in a message
    int m_keptSize; // of both, as far as it counts in s_summariesSize
};

#endif

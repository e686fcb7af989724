// What the tests must know of the differences between Qt 4.8 and Qt 5.
#ifndef QTVERSIONS_H
#define QTVERSIONS_H

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMetaMethod>
#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QVector>

#if QT_VERSION >= 0x050000
#define SKIP(reason) QSKIP(reason)
#else
#define SKIP(reason) QSKIP(reason, SkipSingle)
#endif

namespace qtversions
{

inline QByteArray signature(const QMetaMethod &method)
{
#if QT_VERSION >= 0x050000
    return method.methodSignature();
#else
    return method.signature();
#endif
}

// Qt 5 has its own names for the types it knows, and a name for none.
inline QByteArray resultType(const QMetaMethod &method)
{
    const QByteArray name = method.typeName();
    if (name.isEmpty())
        return "void";
    return name == "ushort" ? QByteArray("quint16") : name;
}

inline QByteArray kind(const QMetaMethod &method)
{
    if (method.methodType() == QMetaMethod::Signal)
        return "signal";
    const QByteArray type = method.methodType() == QMetaMethod::Slot ? "slot" : "other";
    switch (method.access()) {
    case QMetaMethod::Public:
        return "public " + type;
    case QMetaMethod::Protected:
        return "protected " + type;
    default:
        return "private " + type;
    }
}

// "public slot QByteArray getUuid(QHostAddress) src"
inline QByteArray described(const QMetaMethod &method)
{
    QByteArray names;
    const QList<QByteArray> list = method.parameterNames();
    for (int i = 0; i < list.size(); ++i)
        names += (i > 0 ? "," : "") + list.at(i);
    return kind(method) + ' ' + resultType(method) + ' ' + signature(method) + ' ' + names;
}

// Whether a QVariant converts a short or a char to a number
inline bool smallIntegersConvert()
{
#if QT_VERSION >= 0x050000
    return true;
#else
    return false;
#endif
}

// Whether Qt's own event loop uses select(2), which knows 1,024 descriptors
inline bool hasEventLoopWithSelect()
{
#if QT_VERSION >= 0x050000
    return false;
#else
    return true;
#endif
}

// Whether QFileSystemWatcher may report one write to a file twice
inline bool mayReportAWriteTwice()
{
#if QT_VERSION >= 0x050000
    return false;
#else
    return true;
#endif
}

// Qt 4 has a zero behind the characters for every one outside the basic plane.
inline QVector<uint> toUcs4(const QString &text)
{
    QVector<uint> characters = text.toUcs4();
#if QT_VERSION < 0x050000
    while (!characters.isEmpty() && characters.last() == 0)
        characters.pop_back();
#endif
    return characters;
}

// What the text is after it was UTF-32: Qt 4 takes every U+FEFF for a byte-order mark, wherever it stands.
inline QString afterUtf32(const QString &text)
{
#if QT_VERSION >= 0x050000
    return text;
#else
    return QString(text).remove(QChar(0xfeff));
#endif
}

// A message of Qt's as it is in Qt 5. In Qt 4 one that was put together with << has a blank behind its last item, too.
inline QByteArray message(const char *text)
{
    QByteArray message(text);
#if QT_VERSION < 0x050000
    if (message.endsWith(' '))
        message.chop(1);
#endif
    return message;
}

// A message put together with <<, as QTest::ignoreMessage() is to expect it.
inline QByteArray streamed(const QByteArray &text)
{
#if QT_VERSION >= 0x050000
    return text;
#else
    return text + ' ';
#endif
}

// What the process writes to its standard error appears on that of the test; Qt 4 knows no such thing.
inline void showErrors(QProcess *process)
{
#if QT_VERSION >= 0x050000
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
#else
    Q_UNUSED(process);
#endif
}

// The periods of an object's timers in milliseconds
inline QList<int> timerPeriods(QObject *object)
{
    QList<int> periods;
    const QList<QAbstractEventDispatcher::TimerInfo> timers = QAbstractEventDispatcher::instance()->registeredTimers(object);
    for (int i = 0; i < timers.size(); ++i) {
#if QT_VERSION >= 0x050000
        periods << timers.at(i).interval;
#else
        periods << timers.at(i).second;
#endif
    }
    return periods;
}

// The same; a timer that may drift counts as -1.
inline QList<int> exactTimerPeriods(QObject *object)
{
#if QT_VERSION >= 0x050000
    QList<int> periods;
    const QList<QAbstractEventDispatcher::TimerInfo> timers = QAbstractEventDispatcher::instance()->registeredTimers(object);
    for (int i = 0; i < timers.size(); ++i)
        periods << (timers.at(i).timerType == Qt::PreciseTimer ? timers.at(i).interval : -1);
    return periods;
#else
    return timerPeriods(object);
#endif
}

} // namespace qtversions

#endif

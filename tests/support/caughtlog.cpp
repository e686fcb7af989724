#include "caughtlog.h"

#include "qtcompat.h"
#include "qtversions.h"

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

#include <cstdio>

static QMutex mutex;
static QStringList *caught = nullptr;

static const char *levelName(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "debug";
    case QtWarningMsg:
        return "warning";
    case QtCriticalMsg:
        return "critical";
    default:
        return "fatal";
    }
}

static void receive(QtMsgType type, const char *message)
{
    QMutexLocker locker(&mutex);
    if (caught && type != QtFatalMsg)
        caught->append(QString::fromLatin1(levelName(type)) + QLatin1String(": ")
            + QString::fromLocal8Bit(qtversions::message(message).constData()));
    else if (type != QtDebugMsg)
        std::fprintf(stderr, "%s: %s\n", levelName(type), message);
}

CaughtLog::CaughtLog()
{
    QMutexLocker locker(&mutex);
    Q_ASSERT(!caught);
    caught = new QStringList;
    qtcompat::installMessageSink(receive);
}

CaughtLog::~CaughtLog()
{
    QMutexLocker locker(&mutex);
    delete caught;
    caught = nullptr;
}

QStringList CaughtLog::lines() const
{
    QMutexLocker locker(&mutex);
    return *caught;
}

QStringList CaughtLog::withoutLevel(const char *level) const
{
    const QString beginning = QString::fromLatin1(level) + QLatin1String(": ");
    QStringList found;
    const QStringList all = lines();
    for (int i = 0; i < all.size(); ++i) {
        if (all.at(i).startsWith(beginning))
            found << all.at(i).mid(beginning.size());
    }
    return found;
}

QStringList CaughtLog::debugLines() const
{
    return withoutLevel("debug");
}

QStringList CaughtLog::warnings() const
{
    return withoutLevel("warning");
}

void CaughtLog::clear()
{
    QMutexLocker locker(&mutex);
    caught->clear();
}

#include "filewatch.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QStringList>

#include <cstring>
#include <unistd.h>

static const int firstRetryPeriod = 10000; // ms
static const int longestRetryPeriod = 3600000;
static const char inotifyLink[] = "anon_inode:inotify";

static bool isInotify(const QByteArray &descriptorPath)
{
    char target[64];
    const ssize_t size = readlink(descriptorPath.constData(), target, sizeof target);
    return size >= ssize_t(sizeof inotifyLink - 1) && std::memcmp(target, inotifyLink, sizeof inotifyLink - 1) == 0;
}

// Without inotify(7) Qt polls the file every second instead, and sees no change of a file below /proc. Qt does not say which of
// the two it does; nothing else in this process uses inotify.
static bool hasInotify()
{
    const QStringList descriptors = QDir(QLatin1String("/proc/self/fd")).entryList(QDir::System | QDir::Files);
    for (int i = 0; i < descriptors.size(); ++i) {
        if (isInotify("/proc/self/fd/" + descriptors.at(i).toLatin1()))
            return true;
    }
    return false;
}

FileWatch::FileWatch(const QString &file)
    : m_file(file)
    , m_retryPeriod(firstRetryPeriod)
{
    if (startWatching())
        return;
    m_contentBefore = content();
    m_retryTimer.start(m_retryPeriod, this);
}

bool FileWatch::startWatching()
{
    m_watcher.reset();
    m_watcher.reset(new QFileSystemWatcher(QStringList(m_file)));
    connect(m_watcher.data(), SIGNAL(fileChanged(QString)), this, SIGNAL(fileChanged(QString)));
    return !m_watcher->files().isEmpty() && hasInotify();
}

QByteArray FileWatch::content() const
{
    QFile file(m_file);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Qt writes a warning each time the kernel refuses: hence the growing period.
void FileWatch::timerEvent(QTimerEvent *)
{
    if (!startWatching()) {
        m_retryPeriod = qMin(m_retryPeriod * 2, longestRetryPeriod);
        m_retryTimer.start(m_retryPeriod, this);
        return;
    }
    m_retryTimer.stop();
    if (content() != m_contentBefore)
        emit fileChanged(m_file);
}

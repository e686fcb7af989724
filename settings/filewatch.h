#ifndef FILEWATCH_H
#define FILEWATCH_H

#include <QtCore/QBasicTimer>
#include <QtCore/QByteArray>
#include <QtCore/QFileSystemWatcher>
#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QString>

// Signals that one file has changed, by inotify(7). While the kernel refuses to watch the file, FileWatch tries again: after
// ten seconds, and then after twice the time before, up to an hour. When that succeeds, a change that came meanwhile is
// signalled.
class FileWatch : public QObject
{
    Q_OBJECT

public:
    explicit FileWatch(const QString &file);

signals:
    // May come more than once for one change (Qt 4), and also when the file is written with the same content.
    void fileChanged(const QString &file);

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    bool startWatching();
    QByteArray content() const;

    const QString m_file;
    QByteArray m_contentBefore; // of the file, when it was found not to be watched
    int m_retryPeriod; // ms
    QScopedPointer<QFileSystemWatcher> m_watcher;
    QBasicTimer m_retryTimer; // runs while the file is not watched
};

#endif

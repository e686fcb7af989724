#ifndef FILEWATCH_H
#define FILEWATCH_H

#include <QtCore/QBasicTimer>
#include <QtCore/QByteArray>
#include <QtCore/QFileSystemWatcher>
#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QString>

// Tells when one file changes, by way of the kernel. As long as the kernel refuses to watch it, it is asked again: after ten
// seconds, and then after twice the time before, up to an hour. Once it watches, a change that came meanwhile is told.
class FileWatch : public QObject
{
    Q_OBJECT

public:
    explicit FileWatch(const QString &file);

signals:
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

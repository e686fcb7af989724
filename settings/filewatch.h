#ifndef FILEWATCH_H
#define FILEWATCH_H

#include <QtCore/QBasicTimer>
#include <QtCore/QFileSystemWatcher>
#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QString>

// Tells when one file changes, by way of the kernel. As long as the kernel refuses to watch it, it is asked again every ten
// seconds; that counts as a change once it succeeds, since there may have been one.
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

    QString m_file;
    QScopedPointer<QFileSystemWatcher> m_watcher;
    QBasicTimer m_retryTimer; // runs while the file is not watched
};

#endif

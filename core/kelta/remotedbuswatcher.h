#ifndef REMOTEDBUSWATCHER_H
#define REMOTEDBUSWATCHER_H

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtDBus/QDBusServiceWatcher>

// Tells when services of the system bus come (back).
class RemoteDbusWatcher : public QObject
{
    Q_OBJECT

public:
    explicit RemoteDbusWatcher(QObject *parent);

    // Watches these well-known names from now on. Services that are there already are not reported.
    void startListening(const QStringList &services);

signals:
    // The service got an owner: it started, started again, or another program took its name over.
    void serviceAvail(const QString &service);

private slots:
    void ownerChanged(const QString &service, const QString &oldOwner, const QString &newOwner);

private:
    QHash<QString, bool> m_available; // as far as changes were seen
    QDBusServiceWatcher m_watcher;
};

#endif

#include "remotedbuswatcher.h"

#include <QtDBus/QDBusConnection>

RemoteDbusWatcher::RemoteDbusWatcher(QObject *parent)
    : QObject(parent)
{
    m_watcher.setConnection(QDBusConnection::systemBus());
    m_watcher.setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    connect(&m_watcher, SIGNAL(serviceOwnerChanged(QString, QString, QString)), this, SLOT(ownerChanged(QString, QString, QString)));
}

void RemoteDbusWatcher::startListening(const QStringList &services)
{
    for (int i = 0; i < services.size(); ++i) {
        m_available.insert(services.at(i), false);
        m_watcher.addWatchedService(services.at(i));
    }
}

void RemoteDbusWatcher::ownerChanged(const QString &service, const QString &, const QString &newOwner)
{
    const bool available = !newOwner.isEmpty();
    m_available.insert(service, available);
    if (available)
        emit serviceAvail(service);
}

#ifndef IDLECONNECTIONS_H
#define IDLECONNECTIONS_H

#include <QtCore/QObject>
#include <QtCore/QSet>

class QSocketNotifier;

// Connections on which nothing has come yet. The kernel watches them (epoll(7)): each costs its descriptor, but no object
// and no entry in the list that the event loop passes to the kernel on every pass.
class IdleConnections : public QObject
{
    Q_OBJECT

public:
    explicit IdleConnections(QObject *parent);
    // Closes those that are left.
    ~IdleConnections();

    // Takes over the descriptor of a connection. False, and nothing taken, when the kernel refuses.
    bool add(int descriptor);

signals:
    // Bytes have come, or the peer has closed the connection. The descriptor is now the receiver's.
    void readable(int descriptor);

private slots:
    void takeReadable();

private:
    int m_epoll;
    QSocketNotifier *m_notifier;
    QSet<int> m_descriptors;
};

#endif

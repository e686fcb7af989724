#ifndef IDLECONNECTIONS_H
#define IDLECONNECTIONS_H

#include <QtCore/QObject>
#include <QtCore/QSet>

class QSocketNotifier;

// Connections of which nothing has come yet. They wait in the kernel (epoll(7)): each costs its descriptor, but no object
// and no place in the list that the event loop hands to the kernel on every pass.
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
    // Bytes have come, or the peer has left. The descriptor is the receiver's again.
    void readable(int descriptor);

private slots:
    void takeReadable();

private:
    int m_epoll;
    QSocketNotifier *m_notifier;
    QSet<int> m_descriptors;
};

#endif

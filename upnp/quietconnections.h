#ifndef QUIETCONNECTIONS_H
#define QUIETCONNECTIONS_H

#include <QtCore/QObject>
#include <QtCore/QSet>

class QSocketNotifier;

// Connections of which nothing has come yet. They wait in the kernel (epoll(7)): each costs its descriptor, but no object
// and no place in the list that the event loop hands to the kernel on every pass.
class QuietConnections : public QObject
{
    Q_OBJECT

public:
    explicit QuietConnections(QObject *parent);
    // Closes those that are left.
    ~QuietConnections();

    // Takes over the descriptor of a connection. False, and nothing taken, when the kernel refuses.
    bool add(int descriptor);

signals:
    // Bytes have come, or the peer has left. The descriptor is the receiver's again.
    void stirred(int descriptor);

private slots:
    void giveBack();

private:
    int m_epoll;
    QSocketNotifier *m_notifier;
    QSet<int> m_descriptors;
};

#endif

#ifndef ANNOUNCEMENTLISTENER_H
#define ANNOUNCEMENTLISTENER_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

// A socket that receives the announcements of the devices, beside the daemon's. It is bound to the address of the group, so it
// receives no unicast in place of the daemon.
class AnnouncementListener
{
public:
    AnnouncementListener();
    ~AnnouncementListener();

    // Empty, or the text of the system's error: the socket could not be opened, bound or joined.
    QString problem() const { return m_problem; }
    // The next datagram; empty when none comes within timeout, in milliseconds.
    QByteArray next(int timeout);

private:
    Q_DISABLE_COPY(AnnouncementListener)

    bool open();

    int m_socket;
    QString m_problem;
};

#endif

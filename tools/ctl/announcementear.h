#ifndef ANNOUNCEMENTEAR_H
#define ANNOUNCEMENTEAR_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

// Hears what devices announce to their group, beside the daemon. Bound to the group, it takes nobody's unicast away.
class AnnouncementEar
{
public:
    AnnouncementEar();
    ~AnnouncementEar();

    // Empty, or what the system says to that.
    QString problem() const { return m_problem; }
    // The next datagram; empty when none comes in so many milliseconds.
    QByteArray next(int patience);

private:
    Q_DISABLE_COPY(AnnouncementEar)

    bool open();

    int m_socket;
    QString m_problem;
};

#endif

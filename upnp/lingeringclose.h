#ifndef LINGERINGCLOSE_H
#define LINGERINGCLOSE_H

#include <QtCore/QBasicTimer>
#include <QtCore/QObject>

class QSocketNotifier;

// Closes a connection whose peer may still be sending. The kernel resets a connection that is closed with bytes unread, or
// to which bytes come afterwards, and then discards what it has not delivered of the answer. So what comes is read
// and discarded until the peer closes its side, but no more than maximalBytes and no longer than maximalTime.
class LingeringClose : public QObject
{
    Q_OBJECT

public:
    enum {
        maximalBytes = 8 * 1024 * 1024, // more than the kernel holds for a connection
        maximalTime = 2000 // ms
    };

    // Takes over the descriptor of a non-blocking socket to which everything has been written. The peer is told at once
    // that nothing more will come (shutdown(2)). True when the descriptor is closed; false when a child of parent will close it.
    static bool close(int descriptor, QObject *parent);

    ~LingeringClose();

protected:
    void timerEvent(QTimerEvent *event) override;

private slots:
    void discardReceived();

private:
    LingeringClose(int descriptor, int bytesLeft, QObject *parent);

    int m_descriptor;
    int m_bytesLeft;
    QSocketNotifier *m_readable;
    QBasicTimer m_timer;
};

#endif

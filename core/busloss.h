#ifndef BUSLOSS_H
#define BUSLOSS_H

#include <QtCore/QBasicTimer>
#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

// Brings the daemon back to a system bus that was restarted. Qt does not reconnect to a bus, so the process executes its
// program again (execv(2)), under the same process id, once the bus and the service it needs most are there.
// Until then everything but the bus goes on.
//
// After SIGTERM it does not: the new program would know nothing of the signal, and would not go on sending byebye.
class BusLoss : public QObject
{
    Q_OBJECT

public:
    // neededService is the bus name to wait for, for a minute after the bus is back. programName becomes argv[0] of the
    // program. When the program cannot be executed there is one warning, and every second another try.
    BusLoss(const QString &neededService, const QByteArray &programName, QObject *parent);

protected:
    void timerEvent(QTimerEvent *event) override;

private slots:
    void disconnected();

private:
    bool isBusReady();
    void adjustPeriod(bool isConnected);
    void startAgain();

    QString m_neededService;
    QByteArray m_programName;
    QBasicTimer m_probeTimer; // runs while the bus is lost
    int m_failedProbes; // in a row
    int m_probesWithoutService;
    bool m_hasWarned; // that the program could not be started
};

#endif

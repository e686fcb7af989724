#include "busloss.h"

#include "termsignal.h"

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>

#include <cerrno>
#include <cstring>
#include <unistd.h>

static const int probePeriod = 1000; // ms
static const int longProbePeriod = 10000; // ms
static const int maximalFailedProbes = 60; // in a row, before the longer period
static const int maximalProbesWithoutService = 60;

BusLoss::BusLoss(const QString &neededService, const QByteArray &programName, QObject *parent)
    : QObject(parent)
    , m_neededService(neededService)
    , m_programName(programName)
    , m_failedProbes(0)
    , m_probesWithoutService(0)
    , m_hasWarned(false)
{
    QDBusConnection::systemBus().connect(QString(), QLatin1String("/org/freedesktop/DBus/Local"),
        QLatin1String("org.freedesktop.DBus.Local"), QLatin1String("Disconnected"), this, SLOT(disconnected()));
    if (!QDBusConnection::systemBus().isConnected())
        disconnected();
}

void BusLoss::disconnected()
{
    if (m_probeTimer.isActive() || hasTermSignalArrived())
        return;
    qWarning("system bus lost, starting again once it is back");
    m_probeTimer.start(probePeriod, this);
}

void BusLoss::timerEvent(QTimerEvent *)
{
    if (hasTermSignalArrived())
        m_probeTimer.stop();
    else if (isBusReady() && !hasTermSignalArrived())
        startAgain();
}

// Each probe of the process has a connection name of its own: Qt 4 keeps a connection that failed under its name, and never
// tries it again.
static QString newConnectionName()
{
    static int probes = 0;
    return QLatin1String("probe") + QString::number(++probes);
}

// A failed probe costs four kilobytes, hence the longer period when the bus stays away.
bool BusLoss::isBusReady()
{
    const QString name = newConnectionName();
    bool hasService = false;
    bool isConnected = false;
    {
        const QDBusConnection probe = QDBusConnection::connectToBus(QDBusConnection::SystemBus, name);
        isConnected = probe.isConnected();
        hasService = isConnected && probe.interface()->isServiceRegistered(m_neededService);
    }
    QDBusConnection::disconnectFromBus(name);
    adjustPeriod(isConnected);
    return isConnected && (hasService || ++m_probesWithoutService > maximalProbesWithoutService);
}

void BusLoss::adjustPeriod(bool isConnected)
{
    if (isConnected && m_failedProbes >= maximalFailedProbes)
        m_probeTimer.start(probePeriod, this);
    m_failedProbes = isConnected ? 0 : m_failedProbes + 1;
    if (m_failedProbes == maximalFailedProbes)
        m_probeTimer.start(longProbePeriod, this);
}

// Returns only when that fails; the next probe tries again.
void BusLoss::startAgain()
{
    char *arguments[] = { m_programName.data(), nullptr };
    execv("/proc/self/exe", arguments);
    if (!m_hasWarned)
        qWarning("starting again failed: %s", std::strerror(errno));
    m_hasWarned = true;
}

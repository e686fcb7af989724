#include "busloss.h"

#include "termsignal.h"

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>

#include <cerrno>
#include <cstring>
#include <unistd.h>

static const int probePeriod = 1000; // ms
static const int maximalProbesWithoutService = 60;
static const char probeName[] = "probe";

BusLoss::BusLoss(const QString &neededService, const QByteArray &programName, QObject *parent)
    : QObject(parent)
    , m_neededService(neededService)
    , m_programName(programName)
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

bool BusLoss::isBusReady()
{
    bool hasService = false;
    bool isConnected = false;
    {
        const QDBusConnection probe = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QLatin1String(probeName));
        isConnected = probe.isConnected();
        hasService = isConnected && probe.interface()->isServiceRegistered(m_neededService);
    }
    QDBusConnection::disconnectFromBus(QLatin1String(probeName));
    return isConnected && (hasService || ++m_probesWithoutService > maximalProbesWithoutService);
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

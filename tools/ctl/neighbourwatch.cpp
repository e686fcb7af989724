#include "neighbourwatch.h"

#include "daemon.h"
#include "device.h"
#include "output.h"
#include "text.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTime>
#include <QtDBus/QDBusConnection>

static const int retryPeriod = 1000; // ms

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

NeighbourWatch::NeighbourWatch(QObject *parent)
    : QObject(parent)
    , m_isMissed(false)
{
}

bool NeighbourWatch::start()
{
    QDBusConnection systemBus = QDBusConnection::systemBus();
    const bool listens = systemBus.connect(latin1(DEVICE_BUS_NAME), latin1("/monitor"), latin1(daemon::monitorInterface),
                             latin1("DevicesChanged"), this, SLOT(devicesChanged(QStringList, QStringList, QStringList, uint)))
        && systemBus.connect(latin1("org.freedesktop.DBus"), latin1("/org/freedesktop/DBus"), latin1("org.freedesktop.DBus"),
            latin1("NameOwnerChanged"), QStringList() << latin1(DEVICE_BUS_NAME), QString(), this,
            SLOT(ownerChanged(QString, QString, QString)))
        && systemBus.connect(QString(), latin1("/org/freedesktop/DBus/Local"), latin1("org.freedesktop.DBus.Local"),
            latin1("Disconnected"), this, SLOT(busGone()));
    if (listens && !look(QStringList()))
        m_retryTimer.start(retryPeriod, this);
    return listens;
}

void NeighbourWatch::devicesChanged(const QStringList &, const QStringList &changed, const QStringList &, uint)
{
    look(changed);
}

void NeighbourWatch::ownerChanged(const QString &, const QString &, const QString &newOwner)
{
    if (newOwner.isEmpty())
        tellMissing(latin1("The daemon has ended."));
    else
        m_retryTimer.start(retryPeriod, this); // the daemon has its name a moment before its objects
}

void NeighbourWatch::busGone()
{
    output::note(latin1("The system bus has gone."));
    QCoreApplication::exit(1);
}

void NeighbourWatch::timerEvent(QTimerEvent *)
{
    if (look(QStringList()))
        m_retryTimer.stop();
}

void NeighbourWatch::tellMissing(const QString &problem)
{
    if (!m_isMissed)
        output::note(problem + latin1(" Waiting for it."));
    m_isMissed = true;
    if (!bus::hasOwner(DEVICE_BUS_NAME))
        m_retryTimer.stop(); // the bus tells when it is back
}

bool NeighbourWatch::look(const QStringList &changed)
{
    QString problem;
    const QList<Neighbour> neighbours = daemon::neighbours(QString(), &problem);
    if (!problem.isEmpty()) {
        tellMissing(problem);
        return !bus::hasOwner(DEVICE_BUS_NAME);
    }
    m_isMissed = false;
    QMap<QString, QStringList> now;
    for (int i = 0; i < neighbours.size(); ++i)
        now.insert(neighbours.at(i).uuid, cellsOf(neighbours.at(i)));
    compare(now, changed);
    m_known = now;
    return true;
}

static void tell(const char *event, output::Style style, const QStringList &cells, const QString &detail)
{
    const QString line = QTime::currentTime().toString(latin1("hh:mm:ss")) + QLatin1Char(' ') + text::padded(latin1(event), 8)
        + text::padded(cells.first(), 16) + QLatin1Char(' ') + detail;
    output::say(output::styled(style, output::width() > 0 ? text::cut(line, output::width()) : line));
}

static QString details(const QStringList &cells)
{
    QStringList shown;
    for (int i = 1; i < cells.size(); ++i) {
        if (!cells.at(i).isEmpty())
            shown += cells.at(i);
    }
    return shown.join(latin1("  "));
}

static QString orDash(const QString &cell)
{
    return cell.isEmpty() ? latin1("-") : cell;
}

QString differences(const QStringList &before, const QStringList &after)
{
    const QStringList names = columnNames();
    QStringList found;
    for (int i = 0; i < names.size(); ++i) {
        if (before.at(i) != after.at(i))
            found += names.at(i).toLower() + QLatin1Char(' ') + orDash(before.at(i)) + QLatin1Char(' ') + QChar(0x2192) + QLatin1Char(' ')
                + orDash(after.at(i));
    }
    return found.isEmpty() ? latin1("another value that only \"show\" has") : found.join(latin1(", "));
}

void NeighbourWatch::compare(const QMap<QString, QStringList> &now, const QStringList &changed)
{
    QMap<QString, QStringList>::const_iterator i = m_known.constBegin();
    for (; i != m_known.constEnd(); ++i) {
        if (!now.contains(i.key()))
            tell("left", output::Red, i.value(), i.value().at(1));
    }
    for (i = now.constBegin(); i != now.constEnd(); ++i) {
        if (!m_known.contains(i.key()))
            tell("came", output::Green, i.value(), details(i.value()));
        else if (m_known.value(i.key()) != i.value() || changed.contains(i.key()))
            tell("changed", output::Yellow, i.value(), differences(m_known.value(i.key()), i.value()));
    }
}

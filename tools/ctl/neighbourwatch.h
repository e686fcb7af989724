#ifndef NEIGHBOURWATCH_H
#define NEIGHBOURWATCH_H

#include "neighbour.h"

#include <QtCore/QBasicTimer>
#include <QtCore/QMap>
#include <QtCore/QObject>

// Prints who comes, changes and leaves, a line each, beginning with those that are there. The daemon's signal says when to look;
// a daemon that is away is waited for.
class NeighbourWatch : public QObject
{
    Q_OBJECT

public:
    explicit NeighbourWatch(QObject *parent);

    // False if the bus does not let it listen.
    bool start();

protected:
    void timerEvent(QTimerEvent *event) override;

private slots:
    void devicesChanged(const QStringList &appeared, const QStringList &changed, const QStringList &gone, uint more);
    void ownerChanged(const QString &name, const QString &oldOwner, const QString &newOwner);
    void busGone();

private:
    bool look(const QStringList &changed);
    void tellMissing(const QString &problem);
    void compare(const QMap<QString, QStringList> &now, const QStringList &changed);

    QMap<QString, QStringList> m_known; // uuid -> cells
    bool m_isMissed;
    QBasicTimer m_retryTimer; // runs while a daemon that has its name does not answer
};

// "NAME old -> new", for each cell that differs, with an arrow; what the cells do not show is called that.
QString differences(const QStringList &before, const QStringList &after);

#endif

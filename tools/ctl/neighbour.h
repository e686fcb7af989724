#ifndef NEIGHBOUR_H
#define NEIGHBOUR_H

#include <QtCore/QList>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

// A device that the daemon has heard of, as its summary says; the texts are a stranger's. A device may announce values of any
// type: those of a wrong type are left out.
struct Neighbour
{
    QString name;
    QString uuid; // the serial number
    QString type;
    QString family;
    QString firmware;
    QStringList addresses; // those that are addresses, IPv4 first
    QString configured; // dhcp, static, ...
};

Neighbour neighbourOf(const QVariantMap &summary);

bool isLinkLocal(const QString &address);

// One cell for each of columnNames(), clean.
QStringList cellsOf(const Neighbour &neighbour);
QStringList columnNames();

// For programs; nothing is cleaned. What is not known is an invalid value.
QVariantMap objectOf(const Neighbour &neighbour);

// By name, then by uuid.
void sort(QList<Neighbour> *neighbours);

#endif

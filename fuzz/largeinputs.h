#ifndef LARGEINPUTS_H
#define LARGEINPUTS_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

struct LargeInput
{
    const char *name;
    QByteArray bytes;
};

// Hostile inputs as large as a datagram can be, or larger. Every fuzzer's program takes any bytes, so each gets all.
QList<LargeInput> largeInputs();

#endif

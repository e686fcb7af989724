#ifndef WAITFOR_H
#define WAITFOR_H

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

// Runs the event loop until the condition holds; false when it still does not after so many milliseconds.
template <class Condition>
bool waitFor(const Condition &condition, int milliseconds = 10000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() >= milliseconds)
            return false;
        QTest::qWait(1);
    }
    return true;
}

#endif

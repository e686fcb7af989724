#ifndef WAITFOR_H
#define WAITFOR_H

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

// Runs the event loop until the condition holds; false when it still does not after so many milliseconds.
template <class Condition>
bool waitFor(const Condition &condition, int milliseconds = 30000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() >= milliseconds)
            return false;
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QTest::qSleep(1); // not qWait(1), which takes 10 ms in Qt 4
    }
    return true;
}

#endif

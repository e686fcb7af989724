#ifndef EVENTLOOP_H
#define EVENTLOOP_H

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>

// Runs what deleteLater() has left for the event loop.
inline void reachEventLoop()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

#endif

// Every difference between Qt 4.8 and Qt 5 that the sources must know of. No other source tests QT_VERSION.
#ifndef QTCOMPAT_H
#define QTCOMPAT_H

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <sys/resource.h>
#if QT_VERSION < 0x050000
#include <cstdio>
#include <sys/select.h>
#endif

namespace qtcompat
{

// Receives every message of qDebug(), qWarning(), qCritical() and qFatal(), in the local 8-bit encoding, in the thread that
// writes it: QtDBus has one of its own.
typedef void (*MessageSink)(QtMsgType type, const char *text);
// Says whether a message, in the same encoding and the same thread, is to be received.
typedef bool (*MessageFilter)(const char *text);

namespace detail
{
inline MessageSink &messageSink()
{
    static MessageSink sink = nullptr;
    return sink;
}

inline MessageFilter &messageFilter()
{
    static MessageFilter filter = nullptr;
    return filter;
}
} // namespace detail

#if QT_VERSION >= 0x050000

// Qt 5 has an information level between debug and warning; its enumerator has no place in Qt 4's order.
inline QtMsgType messageType(QtMsgType type)
{
    return type == QtInfoMsg ? QtDebugMsg : type;
}

inline void installMessageSink(MessageSink sink)
{
    detail::messageSink() = sink;
    struct Adapter
    {
        static void handle(QtMsgType type, const QMessageLogContext &, const QString &text)
        {
            detail::messageSink()(messageType(type), text.toLocal8Bit().constData());
        }
    };
    qInstallMessageHandler(Adapter::handle);
}

// From now on whoever receives the messages gets those that pass. To be called once.
inline void filterMessages(MessageFilter filter)
{
    static QtMessageHandler receiver = nullptr;
    detail::messageFilter() = filter;
    struct Adapter
    {
        static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
        {
            if (detail::messageFilter()(text.toLocal8Bit().constData()))
                receiver(type, context, text);
        }
    };
    receiver = qInstallMessageHandler(Adapter::handle);
}

// In Qt 5 "any address" means both protocols, and the peers' IPv4 addresses then read "::ffff:10.0.0.5".
template <class HostAddress>
inline HostAddress anyIPv4()
{
    return HostAddress(HostAddress::AnyIPv4);
}

// QObject::startTimer(). Qt 5 lets timers drift by 5 % unless asked not to.
inline int startExactTimer(QObject *object, int milliseconds)
{
    return object->startTimer(milliseconds, Qt::PreciseTimer);
}

// How many descriptors the event loop can watch: all, by poll(2).
inline rlim_t maximalDescriptors()
{
    return RLIM_INFINITY;
}

// The parameter of QTcpServer::incomingConnection()
typedef qintptr SocketDescriptor;

#else

inline void installMessageSink(MessageSink sink)
{
    qInstallMsgHandler(sink);
}

inline void filterMessages(MessageFilter filter)
{
    static MessageSink receiver = nullptr;
    detail::messageFilter() = filter;
    struct Adapter
    {
        static void handle(QtMsgType type, const char *text)
        {
            if (!detail::messageFilter()(text))
                return;
            if (receiver)
                receiver(type, text);
            else // Qt 4 has no handler of its own to pass it on to
                std::fprintf(stderr, "%s\n", text);
        }
    };
    receiver = qInstallMsgHandler(Adapter::handle);
}

template <class HostAddress>
inline HostAddress anyIPv4()
{
    return HostAddress(HostAddress::Any);
}

inline int startExactTimer(QObject *object, int milliseconds)
{
    return object->startTimer(milliseconds);
}

// select(2) writes beyond its sets for a higher descriptor than these.
inline rlim_t maximalDescriptors()
{
    return FD_SETSIZE;
}

typedef int SocketDescriptor;

#endif

} // namespace qtcompat

#endif

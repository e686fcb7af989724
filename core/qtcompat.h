// Every difference between Qt 4.8 and Qt 5 that the sources must know of. Nothing else tests QT_VERSION.
#ifndef QTCOMPAT_H
#define QTCOMPAT_H

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <sys/resource.h>
#if QT_VERSION < 0x050000
#include <cstdio>
#include <cstring>
#include <sys/select.h>
#endif

namespace qtcompat
{

// Receives every message of qDebug(), qWarning(), qCritical() and qFatal(), in the local 8-bit encoding.
typedef void (*MessageSink)(QtMsgType type, const char *text);

namespace detail
{
inline MessageSink &messageSink()
{
    static MessageSink sink = nullptr;
    return sink;
}

inline MessageSink &messageWatcher()
{
    static MessageSink watcher = nullptr;
    return watcher;
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

// Shows every message to the watcher as well, after whoever receives them up to now.
inline void watchMessages(MessageSink watcher)
{
    static QtMessageHandler receiver = nullptr;
    detail::messageWatcher() = watcher;
    struct Adapter
    {
        static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
        {
            receiver(type, context, text);
            detail::messageWatcher()(messageType(type), text.toLocal8Bit().constData());
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

// Qt 5 lets timers drift by 5 % unless asked not to.
inline int startExactTimer(QObject *object, int milliseconds)
{
    return object->startTimer(milliseconds, Qt::PreciseTimer);
}

// The system bus, connected to before there is an application object
template <class Connection>
inline Connection earlySystemBus()
{
    return Connection::systemBus();
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

inline void watchMessages(MessageSink watcher)
{
    static MessageSink receiver = nullptr;
    detail::messageWatcher() = watcher;
    struct Adapter
    {
        static void handle(QtMsgType type, const char *text)
        {
            if (receiver)
                receiver(type, text);
            detail::messageWatcher()(type, text);
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

// Qt 4 warns that there is no application object yet. Other messages pass.
template <class Connection>
inline Connection earlySystemBus()
{
    struct Handler
    {
        static QtMsgHandler &next()
        {
            static QtMsgHandler handler = nullptr;
            return handler;
        }

        static void handle(QtMsgType type, const char *text)
        {
            if (std::strstr(text, "connection created before QCoreApplication"))
                return;
            if (next())
                next()(type, text);
            else
                std::fprintf(stderr, "%s\n", text);
        }
    };
    Handler::next() = qInstallMsgHandler(Handler::handle);
    const Connection bus = Connection::systemBus();
    qInstallMsgHandler(Handler::next());
    return bus;
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

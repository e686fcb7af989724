#ifndef FAKEFWCONFIG_H
#define FAKEFWCONFIG_H

#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QThread>
#include <QtCore/QVariant>
#include <QtDBus/QDBusAbstractAdaptor>
#include <QtDBus/QDBusMessage>

// Plays the device's configuration service on the system bus: its boot loader variables, firmware version, system
// constants and network configuration. It has a connection and a thread of its own, so that it also answers while
// the tested object waits.
//
// Calls are named as they are recorded: object, member and arguments, separated by blanks ("/systemvariables get UUID").
// A call without an answer set is answered with an error.
class FakeFwConfig : public QObject
{
    Q_OBJECT

public:
    FakeFwConfig();
    ~FakeFwConfig();

    void answer(const char *call, const QVariant &value);
    void answer(const char *call, const QVariantList &values);
    // As a property's value: wrapped in a D-Bus variant.
    void answerProperty(const char *name, const QVariant &value);
    void answerNetwork(const QVariantMap &configuration);
    void fail(const char *call);

    // Takes the service's name on the bus, and gives it back.
    void start();
    void stop();

    QStringList calls() const;
    void forgetCalls();

    // Called by the objects on the bus.
    void handle(const QString &call, const QDBusMessage &message);

private slots:
    void openConnection();
    void claimName();
    void dropName();
    void closeConnection();

private:
    void inThread(const char *slot);

    mutable QMutex m_mutex;
    QHash<QString, QVariantList> m_answers;
    QStringList m_calls;
    QThread m_thread;
    QObject *m_objects;
};

#endif

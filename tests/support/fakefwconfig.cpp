#include "fakefwconfig.h"

#include "fwconfigglobals.h"
#include "testbus.h"

#include <QtCore/QMutexLocker>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusVariant>

static const char connectionName[] = "fakefwconfig";

static QDBusConnection bus()
{
    return QDBusConnection(QLatin1String(connectionName));
}

// One object of the service: each of its adaptors hands its calls on to the service.
class FakeObject : public QObject
{
    Q_OBJECT

public:
    FakeObject(const char *objectPath, FakeFwConfig *fakeService, QObject *parent)
        : QObject(parent)
        , path(QString::fromLatin1(objectPath))
        , service(fakeService)
    {
    }

    void handle(const QDBusMessage &message) const
    {
        QStringList words;
        words << path << message.member();
        const QVariantList arguments = message.arguments();
        for (int i = 0; i < arguments.size(); ++i)
            words << arguments.at(i).toString();
        service->handle(words.join(QLatin1String(" ")), message);
    }

    const QString path;
    FakeFwConfig *const service;
};

class FakeAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT

public:
    explicit FakeAdaptor(FakeObject *parent)
        : QDBusAbstractAdaptor(parent)
        , object(parent)
    {
    }

protected:
    void handle(const QDBusMessage &message) const { object->handle(message); }

private:
    FakeObject *const object;
};

class SystemVariables : public FakeAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.zorv.fwconfig.systemvariables")

public:
    explicit SystemVariables(FakeObject *parent)
        : FakeAdaptor(parent)
    {
    }

public slots:
    void get(const QString &, const QDBusMessage &message) { handle(message); }
    void set(const QString &, const QString &, const QDBusMessage &message) { handle(message); }
    void save(const QDBusMessage &message) { handle(message); }
};

class SystemConstants : public FakeAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.zorv.fwconfig.systemconstants")

public:
    explicit SystemConstants(FakeObject *parent)
        : FakeAdaptor(parent)
    {
    }

public slots:
    void get(const QString &, const QDBusMessage &message) { handle(message); }
};

// The standard interface, but also with the two-argument GetAll of the network object.
class Properties : public FakeAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.Properties")

public:
    explicit Properties(FakeObject *parent)
        : FakeAdaptor(parent)
    {
    }

public slots:
    void Get(const QString &, const QString &, const QDBusMessage &message) { handle(message); }
    void GetAll(const QString &, const QString &, const QDBusMessage &message) { handle(message); }
};

FakeFwConfig::FakeFwConfig()
    : m_objects(nullptr)
{
    m_thread.start();
    moveToThread(&m_thread);
    inThread("openConnection");
}

FakeFwConfig::~FakeFwConfig()
{
    inThread("closeConnection");
    m_thread.quit();
    m_thread.wait();
}

void FakeFwConfig::inThread(const char *slot)
{
    QMetaObject::invokeMethod(this, slot, Qt::BlockingQueuedConnection);
}

void FakeFwConfig::openConnection()
{
    QDBusConnection connection = connectToTestBus(QLatin1String(connectionName));
    m_objects = new QObject;
    FakeObject *variables = new FakeObject("/systemvariables", this, m_objects);
    new SystemVariables(variables);
    FakeObject *version = new FakeObject("/fwversion", this, m_objects);
    new Properties(version);
    FakeObject *constants = new FakeObject("/systemconstants", this, m_objects);
    new SystemConstants(constants);
    FakeObject *network = new FakeObject("/network", this, m_objects);
    new Properties(network);
    const QList<FakeObject *> objects = QList<FakeObject *>() << variables << version << constants << network;
    for (int i = 0; i < objects.size(); ++i)
        connection.registerObject(objects.at(i)->path, objects.at(i), QDBusConnection::ExportAdaptors);
}

void FakeFwConfig::closeConnection()
{
    delete m_objects;
    QDBusConnection::disconnectFromBus(QLatin1String(connectionName));
}

void FakeFwConfig::claimName()
{
    if (!bus().registerService(kelta::FwConfigGlobals::SERVICE_PATH_NAME))
        qFatal("the configuration service's name is taken");
}

void FakeFwConfig::dropName()
{
    bus().unregisterService(kelta::FwConfigGlobals::SERVICE_PATH_NAME);
}

void FakeFwConfig::start()
{
    inThread("claimName");
}

void FakeFwConfig::stop()
{
    inThread("dropName");
}

void FakeFwConfig::answer(const char *call, const QVariantList &values)
{
    QMutexLocker locker(&m_mutex);
    m_answers.insert(QString::fromLatin1(call), values);
}

void FakeFwConfig::answer(const char *call, const QVariant &value)
{
    answer(call, QVariantList() << value);
}

void FakeFwConfig::answerProperty(const char *name, const QVariant &value)
{
    const QByteArray call = "/fwversion Get com.zorv.fwconfig.fwversion " + QByteArray(name);
    answer(call.constData(), QVariant::fromValue(QDBusVariant(value)));
}

void FakeFwConfig::answerNetwork(const QVariantMap &configuration)
{
    answer("/network GetAll com.zorv.fwconfig.network local.NetworkInterface", QVariant(configuration));
}

void FakeFwConfig::fail(const char *call)
{
    QMutexLocker locker(&m_mutex);
    m_answers.remove(QString::fromLatin1(call));
}

QStringList FakeFwConfig::calls() const
{
    QMutexLocker locker(&m_mutex);
    return m_calls;
}

void FakeFwConfig::forgetCalls()
{
    QMutexLocker locker(&m_mutex);
    m_calls.clear();
}

void FakeFwConfig::handle(const QString &call, const QDBusMessage &message)
{
    QMutexLocker locker(&m_mutex);
    m_calls << call;
    message.setDelayedReply(true);
    if (m_answers.contains(call))
        bus().send(message.createReply(m_answers.value(call)));
    else
        bus().send(message.createErrorReply(QDBusError::Failed, QLatin1String("no answer to ") + call));
}

#include "fakefwconfig.moc"

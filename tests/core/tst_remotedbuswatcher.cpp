#include "remotedbuswatcher.h"

#include "bytes.h"
#include "testbus.h"
#include "waitfor.h"

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtTest/QtTest>

// Another program on the bus.
class Program
{
public:
    explicit Program(const char *connectionName)
        : m_name(QString::fromLatin1(connectionName))
    {
        connectToTestBus(m_name);
    }
    ~Program() { QDBusConnection::disconnectFromBus(m_name); }

    bool claim(const char *service) { return QDBusConnection(m_name).registerService(text(service)); }
    bool release(const char *service) { return QDBusConnection(m_name).unregisterService(text(service)); }
    // Takes the name even from another program that allows it.
    bool takeOver(const char *service)
    {
        return QDBusConnection(m_name).interface()->registerService(text(service), QDBusConnectionInterface::ReplaceExistingService, QDBusConnectionInterface::AllowReplacement).value() == QDBusConnectionInterface::ServiceRegistered;
    }

private:
    Q_DISABLE_COPY(Program)

    QString m_name;
};

class TestRemoteDbusWatcher : public QObject
{
    Q_OBJECT

public slots:
    void noteService(const QString &service) { m_seen << service; }

private slots:
    void init();
    void cleanup();

    void startedServiceIsReported();
    void restartedServiceIsReportedAgain();
    void stoppedServiceIsNotReported();
    void serviceTakenOverIsReported();
    void everyListedServiceIsWatched();
    void otherServicesAreNotReported();
    void emptyListWatchesNothing();
    void parentDeletesTheWatcher();

private:
    void listenTo(const QStringList &services);
    bool everythingIsReported();

    QObject *m_parent;
    QStringList m_seen;
};

void TestRemoteDbusWatcher::init()
{
    m_parent = new QObject;
    m_seen.clear();
}

void TestRemoteDbusWatcher::cleanup()
{
    delete m_parent;
}

void TestRemoteDbusWatcher::listenTo(const QStringList &services)
{
    RemoteDbusWatcher *watcher = new RemoteDbusWatcher(m_parent);
    QVERIFY(connect(watcher, SIGNAL(serviceAvail(QString)), this, SLOT(noteService(QString))));
    watcher->startListening(services);
    // The bus has answered, so it knows by now what is watched.
    QVERIFY(!QDBusConnection::systemBus().interface()->isServiceRegistered(text("test.Nobody")));
}

// A last service comes, on a watcher of its own: all reports before it have been made.
bool TestRemoteDbusWatcher::everythingIsReported()
{
    Program last("last");
    listenTo(QStringList(text("test.Last")));
    if (!last.claim("test.Last") || !waitFor([this] { return m_seen.contains(text("test.Last")); }))
        return false;
    return m_seen.removeAll(text("test.Last")) == 1;
}

void TestRemoteDbusWatcher::startedServiceIsReported()
{
    listenTo(QStringList() << text("test.One") << text("test.Two"));
    Program program("program");
    QVERIFY(program.claim("test.One"));
    QVERIFY(everythingIsReported());
    QCOMPARE(m_seen, QStringList(text("test.One")));
}

void TestRemoteDbusWatcher::restartedServiceIsReportedAgain()
{
    Program program("program");
    QVERIFY(program.claim("test.One"));
    listenTo(QStringList(text("test.One")));
    for (int i = 0; i < 3; ++i) {
        QVERIFY(program.release("test.One"));
        QVERIFY(program.claim("test.One"));
    }
    QVERIFY(everythingIsReported());
    QCOMPARE(m_seen, QStringList() << text("test.One") << text("test.One") << text("test.One"));
}

void TestRemoteDbusWatcher::stoppedServiceIsNotReported()
{
    Program program("program");
    QVERIFY(program.claim("test.One"));
    listenTo(QStringList(text("test.One")));
    QVERIFY(program.release("test.One"));
    QVERIFY(everythingIsReported());
    QCOMPARE(m_seen, QStringList());
}

void TestRemoteDbusWatcher::serviceTakenOverIsReported()
{
    Program first("first");
    QVERIFY(first.takeOver("test.One"));
    listenTo(QStringList(text("test.One")));
    Program second("second");
    QVERIFY(second.takeOver("test.One"));
    QVERIFY(everythingIsReported());
    QCOMPARE(m_seen, QStringList(text("test.One")));
}

void TestRemoteDbusWatcher::everyListedServiceIsWatched()
{
    listenTo(QStringList() << text("test.One") << text("test.Two"));
    Program program("program");
    QVERIFY(program.claim("test.Two"));
    QVERIFY(program.claim("test.One"));
    QVERIFY(everythingIsReported());
    QCOMPARE(m_seen, QStringList() << text("test.Two") << text("test.One"));
}

void TestRemoteDbusWatcher::otherServicesAreNotReported()
{
    listenTo(QStringList(text("test.One")));
    Program program("program");
    QVERIFY(program.claim("test.One.More"));
    QVERIFY(program.claim("test.Oneself"));
    QVERIFY(everythingIsReported());
    QCOMPARE(m_seen, QStringList());
}

void TestRemoteDbusWatcher::emptyListWatchesNothing()
{
    listenTo(QStringList());
    Program program("program");
    QVERIFY(program.claim("test.One"));
    QVERIFY(everythingIsReported());
    QCOMPARE(m_seen, QStringList());
}

void TestRemoteDbusWatcher::parentDeletesTheWatcher()
{
    listenTo(QStringList(text("test.One")));
    QCOMPARE(m_parent->findChildren<RemoteDbusWatcher *>().size(), 1);
    delete m_parent;
    m_parent = new QObject;
    Program program("program");
    QVERIFY(program.claim("test.One"));
    QVERIFY(everythingIsReported());
    QCOMPARE(m_seen, QStringList());
}

QTEST_MAIN(TestRemoteDbusWatcher)

#include "tst_remotedbuswatcher.moc"

#include "qtmessages.h"

#include "bytes.h"
#include "caughtlog.h"

#include <QtTest/QtTest>

class TestQtMessages : public QObject
{
    Q_OBJECT

private slots:
    void connectionBeforeTheApplicationIsMeant();
    void onlyAMissingThreadEndsTheProgram();
};

// That is how the daemon starts; Qt 4 says so at every start.
void TestQtMessages::connectionBeforeTheApplicationIsMeant()
{
    CaughtLog log;
    filterQtMessages();
    qWarning("QDBusConnection: system D-Bus connection created before QCoreApplication. Application may misbehave.");
    qWarning("QDBusConnection: another message");
    QCOMPARE(log.lines(), QStringList(text("warning: QDBusConnection: another message")));
}

void TestQtMessages::onlyAMissingThreadEndsTheProgram()
{
    CaughtLog log;
    filterQtMessages();
    qWarning("QThread::start: Thread creation erro");
    qWarning(" QThread::start: Thread creation error");
    QCOMPARE(log.lines(), QStringList() << text("warning: QThread::start: Thread creation erro")
                                        << text("warning:  QThread::start: Thread creation error"));
}

QTEST_MAIN(TestQtMessages)
#include "tst_qtmessages.moc"

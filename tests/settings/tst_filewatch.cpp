#include "filewatch.h"

#include "bytes.h"
#include "qtversions.h"
#include "waitfor.h"

#include <QtCore/QDir>
#include <QtCore/QTemporaryFile>
#include <QtCore/QTimerEvent>
#include <QtTest/QtTest>

class TestFileWatch : public QObject
{
    Q_OBJECT

private slots:
    void changeIsTold();
    void fileThatCannotBeWatchedIsTriedAgain();
    void onlyAChangeThatCameMeanwhileIsTold();
    void triesGetRarerUpToOneAnHour();
};

static QString ownFile()
{
    return QDir::tempPath() + text("/tst_filewatch.") + QString::number(QCoreApplication::applicationPid());
}

static void write(const QString &name)
{
    QFile file(name);
    QVERIFY(file.open(QIODevice::Append));
    QCOMPARE(file.write("x"), qint64(1));
}

void TestFileWatch::changeIsTold()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    FileWatch watch(file.fileName());
    QSignalSpy told(&watch, SIGNAL(fileChanged(QString)));
    write(file.fileName());
    QVERIFY(waitFor([&] { return told.size() == 1; }));
    QCOMPARE(told.at(0).at(0).toString(), file.fileName());
}

void TestFileWatch::fileThatCannotBeWatchedIsTriedAgain()
{
    const QString name = ownFile();
    FileWatch watch(name);
    QSignalSpy told(&watch, SIGNAL(fileChanged(QString)));
    QTimerEvent itsTimer(0);
    QCoreApplication::sendEvent(&watch, &itsTimer);
    QCOMPARE(told.size(), 0);
    write(name);
    QCoreApplication::sendEvent(&watch, &itsTimer);
    QCOMPARE(told.size(), 1);
    write(name);
    QVERIFY(waitFor([&] { return told.size() >= 2; }));
    QVERIFY(QFile::remove(name));
}

// A file that is not there has no content, and neither has an empty one.
void TestFileWatch::onlyAChangeThatCameMeanwhileIsTold()
{
    const QString name = ownFile();
    FileWatch watch(name);
    QSignalSpy told(&watch, SIGNAL(fileChanged(QString)));
    QFile file(name);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    QTimerEvent itsTimer(0);
    QCoreApplication::sendEvent(&watch, &itsTimer);
    QCOMPARE(told.size(), 0);
    write(name);
    QVERIFY(waitFor([&] { return told.size() >= 1; }));
    QVERIFY(QFile::remove(name));
}

void TestFileWatch::triesGetRarerUpToOneAnHour()
{
    FileWatch watch(text("/nowhere/to/be/found"));
    QTimerEvent itsTimer(0);
    for (int seconds = 10; seconds < 10000; seconds *= 2) {
        QCOMPARE(qtversions::timerPeriods(&watch), QList<int>() << qMin(seconds, 3600) * 1000);
        QCoreApplication::sendEvent(&watch, &itsTimer);
    }

    const QString name = ownFile();
    FileWatch later(name);
    write(name);
    QCoreApplication::sendEvent(&later, &itsTimer);
    QCOMPARE(qtversions::timerPeriods(&later), QList<int>());
    QVERIFY(QFile::remove(name));
}

QTEST_MAIN(TestFileWatch)

#include "tst_filewatch.moc"

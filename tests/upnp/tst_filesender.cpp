#include "filesender.h"

#include "bytes.h"
#include "fewerdescriptors.h"
#include "waitfor.h"

#include <QtCore/QDir>
#include <QtCore/QScopedPointer>
#include <QtCore/QTemporaryFile>
#include <QtTest/QtTest>

#include <cerrno>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

static const int large = 4 * 1024 * 1024;

static QByteArray differentBytes(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char(i ^ (i >> 8) ^ (i >> 16));
    return bytes;
}

static int openDescriptors()
{
    return int(QDir(text("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size());
}

static int errorOfSend = 0;

// The program's own comes before that of the C library.
extern "C" ssize_t send(int descriptor, const void *bytes, size_t size, int flags)
{
    if (errorOfSend != 0) {
        errno = errorOfSend;
        errorOfSend = 0;
        return -1;
    }
    return ssize_t(syscall(SYS_sendto, descriptor, bytes, size, flags, nullptr, 0));
}

class TestFileSender : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void smallFileIsSentAtOnce();
    void emptyFileSendsNothing();
    void fileIsSentFromItsBeginning();
    void slowReaderGetsEveryByte();
    void callerMayCloseItsSocketAtOnce();
    void headComesBeforeTheFile();
    void headThatFindsNoRoomComesBeforeTheFile();
    void withoutItsHeadTheFileIsNotSent();
    void descriptorsAreGivenBack();
    void sendingEndsWhenTheReaderIsGone();
    void readerThatWasGoneBeforeIsNoMatter();
    void sendingEndsWhenTheFileBecomesShorter();
    void fileThatGrowsIsSentAsLongAsItWas();
    void sendingEndsWithItsParent();
    void sendingEndsWithoutADescriptorForWhatIsLeft();

private:
    // An open file with this content; it has no name, so that nothing stays behind.
    QFile *fileOf(const QByteArray &content);
    bool send(QFile *file, const QByteArray &head = QByteArray())
    {
        return FileSender::send(m_sender, head, QSharedPointer<QFile>(file), file->size(), m_parent.data());
    }
    int sendersAtWork() const { return m_parent->findChildren<FileSender *>().size(); }
    void closeSender();
    void closeReader();
    QByteArray readToEnd();
    int fillSocket();

    QScopedPointer<QObject> m_parent;
    int m_sender;
    int m_reader;
};

// As in the daemon, where the first answer makes Qt ignore it.
void TestFileSender::initTestCase()
{
    signal(SIGPIPE, SIG_IGN);
}

void TestFileSender::init()
{
    int pair[2];
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair), 0);
    m_sender = pair[0];
    m_reader = pair[1];
    m_parent.reset(new QObject);
}

void TestFileSender::cleanup()
{
    m_parent.reset();
    closeSender();
    closeReader();
}

void TestFileSender::closeSender()
{
    if (m_sender != -1)
        close(m_sender);
    m_sender = -1;
}

void TestFileSender::closeReader()
{
    if (m_reader != -1)
        close(m_reader);
    m_reader = -1;
}

QFile *TestFileSender::fileOf(const QByteArray &content)
{
    QTemporaryFile *file = new QTemporaryFile;
    if (!file->open() || file->write(content) != content.size() || !file->flush() || !file->seek(0))
        qFatal("no temporary file");
    return file;
}

QByteArray TestFileSender::readToEnd()
{
    QByteArray all;
    QByteArray buffer(65536, '\0');
    const bool ended = waitFor([&] {
        const ssize_t size = read(m_reader, buffer.data(), size_t(buffer.size()));
        if (size > 0)
            all += buffer.left(int(size));
        return size == 0;
    });
    return ended ? all : QByteArray("no end");
}

void TestFileSender::smallFileIsSentAtOnce()
{
    send(fileOf("icon"));
    QCOMPARE(sendersAtWork(), 0);
    closeSender();
    QCOMPARE(readToEnd(), QByteArray("icon"));
}

void TestFileSender::emptyFileSendsNothing()
{
    send(fileOf(QByteArray()));
    QCOMPARE(sendersAtWork(), 0);
    closeSender();
    QCOMPARE(readToEnd(), QByteArray());
}

void TestFileSender::fileIsSentFromItsBeginning()
{
    QFile *file = fileOf("icon");
    QVERIFY(file->seek(2));
    send(file);
    closeSender();
    QCOMPARE(readToEnd(), QByteArray("icon"));
}

void TestFileSender::slowReaderGetsEveryByte()
{
    const QByteArray content = differentBytes(large);
    send(fileOf(content));
    QCOMPARE(sendersAtWork(), 1);
    closeSender();
    const QByteArray received = readToEnd();
    QCOMPARE(received.size(), content.size());
    QVERIFY(received == content);
    QVERIFY(waitFor([this] { return sendersAtWork() == 0; }));
}

void TestFileSender::callerMayCloseItsSocketAtOnce()
{
    send(fileOf(differentBytes(large)));
    const int number = m_sender;
    closeSender();
    // Somebody else gets the number; not one byte of the file may go there.
    int other[2];
    QCOMPARE(pipe(other), 0);
    QVERIFY(other[0] == number || other[1] == number);
    QCOMPARE(readToEnd().size(), large);
    QCOMPARE(fcntl(other[0], F_SETFL, O_NONBLOCK), 0);
    char byte;
    QCOMPARE(int(read(other[0], &byte, 1)), -1);
    close(other[0]);
    close(other[1]);
}

void TestFileSender::headComesBeforeTheFile()
{
    QVERIFY(send(fileOf("icon"), "head "));
    closeSender();
    QCOMPARE(readToEnd(), QByteArray("head icon"));
}

int TestFileSender::fillSocket()
{
    int size = 0;
    for (ssize_t sent = 1; sent > 0; sent = ::send(m_sender, "....", 4, MSG_NOSIGNAL))
        size += int(sent);
    return size - 1;
}

void TestFileSender::headThatFindsNoRoomComesBeforeTheFile()
{
    const int before = fillSocket();
    QVERIFY(!send(fileOf("icon"), "head "));
    QCOMPARE(sendersAtWork(), 1);
    closeSender();
    QCOMPARE(readToEnd().mid(before), QByteArray("head icon"));
}

void TestFileSender::withoutItsHeadTheFileIsNotSent()
{
    errorOfSend = ENOBUFS;
    QVERIFY(send(fileOf("icon"), "head "));
    QCOMPARE(errorOfSend, 0);
    QCOMPARE(sendersAtWork(), 0);
    closeSender();
    QCOMPARE(readToEnd(), QByteArray());
}

void TestFileSender::descriptorsAreGivenBack()
{
    const int before = openDescriptors();
    send(fileOf(differentBytes(large)));
    QCOMPARE(openDescriptors(), before + 2);
    closeReader();
    QVERIFY(waitFor([this] { return sendersAtWork() == 0; }));
    QCOMPARE(openDescriptors(), before - 1);
}

void TestFileSender::sendingEndsWhenTheReaderIsGone()
{
    send(fileOf(differentBytes(large)));
    QCOMPARE(sendersAtWork(), 1);
    closeReader();
    QVERIFY(waitFor([this] { return sendersAtWork() == 0; }));
}

void TestFileSender::readerThatWasGoneBeforeIsNoMatter()
{
    closeReader();
    send(fileOf(differentBytes(large)));
    QCOMPARE(sendersAtWork(), 0);
}

void TestFileSender::sendingEndsWhenTheFileBecomesShorter()
{
    QFile *file = fileOf(differentBytes(large));
    const int truncator = dup(file->handle());
    send(file);
    QCOMPARE(sendersAtWork(), 1);
    closeSender();
    QCOMPARE(ftruncate(truncator, 65536), 0);
    close(truncator);
    const QByteArray received = readToEnd();
    QVERIFY(received.size() >= 65536);
    QVERIFY(received.size() < large);
    QVERIFY(received.left(65536) == differentBytes(65536));
    QVERIFY(waitFor([this] { return sendersAtWork() == 0; }));
}

void TestFileSender::fileThatGrowsIsSentAsLongAsItWas()
{
    const QByteArray content = differentBytes(large);
    QFile *file = fileOf(content);
    send(file);
    QCOMPARE(sendersAtWork(), 1);
    QVERIFY(file->resize(2 * content.size()));
    closeSender();
    QVERIFY(readToEnd() == content);
}

void TestFileSender::sendingEndsWithItsParent()
{
    const int before = openDescriptors();
    send(fileOf(differentBytes(large)));
    m_parent.reset(new QObject);
    QCOMPARE(openDescriptors(), before);
    closeSender();
    QVERIFY(readToEnd().size() < large);
}

void TestFileSender::sendingEndsWithoutADescriptorForWhatIsLeft()
{
    QFile *file = fileOf(differentBytes(large));
    {
        const FewerDescriptors none(0);
        QVERIFY(send(file));
    }
    QCOMPARE(sendersAtWork(), 0);
    closeSender();
    QVERIFY(readToEnd().size() < large);
}

QTEST_MAIN(TestFileSender)

#include "tst_filesender.moc"

#ifndef BYTES_H
#define BYTES_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

// True when both are the same. Otherwise both are printed, line by line with \r, \n and tabs visible, with a mark
// under the first byte that differs. Use: QVERIFY(compareBytes(actual, expected));
bool compareBytes(const QByteArray &actual, const QByteArray &expected);

// The whole content of a file. A file that cannot be read ends the program: no test may pass without its bytes.
QByteArray bytesOf(const QString &fileName);

// The content of a file of the test's data folder.
#define testData(name) bytesOf(QString::fromLatin1(TEST_DATA name))

inline QString text(const char *latin1)
{
    return QString::fromLatin1(latin1);
}

#endif

#include "bytes.h"

#include <QtCore/QFile>
#include <QtCore/QList>
#include <QtTest/QtTest>

#include <cstdio>
#include <cstdlib>

static QByteArray visible(char byte)
{
    switch (byte) {
    case '\r':
        return "\\r";
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '\\':
        return "\\\\";
    }
    if (byte >= ' ' && byte <= '~')
        return QByteArray(1, byte);
    return "\\x" + QByteArray(1, byte).toHex();
}

static int firstDifference(const QByteArray &a, const QByteArray &b)
{
    int i = 0;
    while (i < a.size() && i < b.size() && a.at(i) == b.at(i))
        ++i;
    return i;
}

static QByteArray shown(const QByteArray &bytes, int marked)
{
    QByteArray all;
    QByteArray line;
    int mark = -1;
    for (int i = 0; i <= bytes.size(); ++i) {
        if (i == marked)
            mark = line.size();
        if (i < bytes.size())
            line += visible(bytes.at(i));
        if (i < bytes.size() && bytes.at(i) != '\n')
            continue;
        all += "  |" + line + '\n';
        if (mark >= 0)
            all += "   " + QByteArray(mark, ' ') + "^ byte " + QByteArray::number(marked) + '\n';
        line.clear();
        mark = -1;
    }
    return all;
}

bool compareBytes(const QByteArray &actual, const QByteArray &expected)
{
    if (actual == expected)
        return true;
    const int difference = firstDifference(actual, expected);
    const QByteArray message = "actual:\n" + shown(actual, difference) + "expected:\n" + shown(expected, difference);
    QTest::qWarn(message.constData());
    return false;
}

QByteArray bytesOf(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(fileName));
        std::abort();
    }
    return file.readAll();
}

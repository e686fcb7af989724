#include "interfaces.h"

static const int maximalTries = 4;

static bool isComplete(const QList<QNetworkInterface> &answer)
{
    for (int i = 0; i < answer.size(); ++i) {
        if ((answer.at(i).flags() & QNetworkInterface::IsLoopBack) && !answer.at(i).addressEntries().isEmpty())
            return true;
    }
    return false;
}

QList<QNetworkInterface> networkInterfaces()
{
    QList<QNetworkInterface> answer = QNetworkInterface::allInterfaces();
    for (int tries = 1; tries < maximalTries && !isComplete(answer); ++tries)
        answer = QNetworkInterface::allInterfaces();
    return answer;
}

QNetworkInterface networkInterface(const QString &name)
{
    const QList<QNetworkInterface> all = networkInterfaces();
    for (int i = 0; i < all.size(); ++i) {
        if (all.at(i).name() == name)
            return all.at(i);
    }
    return QNetworkInterface();
}

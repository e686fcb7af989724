// The first line that a peer sends to the description server, against the words that a regular expression finds in it.
#include "httpmessages.h"
#include "input.h"
#include "require.h"

#include <QtCore/QRegExp>
#include <QtCore/QStringList>

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray line = bytes(data, size);
    const http::Request request = http::parseRequestLine(line);

    static const QRegExp separator(QLatin1String("[ \r\n][ \r\n]*"));
    const QString text = QString::fromLatin1(line.constData());
    const QStringList words = text.split(separator);
    REQUIRE(request.method == words.at(0).toLatin1());
    REQUIRE(request.path == words.value(1).toLatin1());
    return 0;
}

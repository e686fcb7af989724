// JSON text of any encoding, against a plain reader of the same lenient grammar: same value, same error in the same
// place, and the same again from other encodings of the text.
#include "identical.h"
#include "input.h"
#include "jsonreader.h"
#include "plainreader.h"
#include "require.h"

#include <QtCore/QTextCodec>

namespace
{

// Without the mark, if there is one, but only without that one.
QString decoded(const QByteArray &data, const char *encoding)
{
    return QTextCodec::codecForName(encoding)->toUnicode(data);
}

// A byte-order mark decides, else the zero bytes among the first four.
QString textIn(const QByteArray &data)
{
    if (data.startsWith(QByteArray("\0\0\xfe\xff", 4)))
        return decoded(data, "UTF-32BE");
    if (data.startsWith(QByteArray("\xff\xfe\0\0", 4)))
        return decoded(data, "UTF-32LE");
    if (data.startsWith("\xfe\xff"))
        return decoded(data, "UTF-16BE");
    if (data.startsWith("\xff\xfe"))
        return decoded(data, "UTF-16LE");
    if (data.size() > 3 && !data.startsWith("\xef\xbb\xbf")) {
        if (data.at(0) == 0)
            return decoded(data, data.at(1) == 0 ? "UTF-32BE" : "UTF-16BE");
        if (data.at(1) == 0)
            return decoded(data, data.at(2) == 0 ? "UTF-32LE" : "UTF-16LE");
    }
    return QString::fromUtf8(data.constData(), data.size());
}

template <class Text>
void check(const Text &text, const PlainReader &expected)
{
    JsonReader reader;
    REQUIRE(reader.parse(text) == expected.ok());
    REQUIRE(identical(reader.result(), expected.result()));
    REQUIRE(reader.errorString() == expected.error());
}

QByteArray utf16(const QString &text, bool bigEndian)
{
    QByteArray data(bigEndian ? "\xfe\xff" : "\xff\xfe");
    for (int i = 0; i < text.size(); ++i) {
        data += bigEndian ? char(text.at(i).row()) : char(text.at(i).cell());
        data += bigEndian ? char(text.at(i).cell()) : char(text.at(i).row());
    }
    return data;
}

// The same text in one of three encodings, behind a byte-order mark
void checkEncoded(const QString &text, const PlainReader &expected, int encoding)
{
    const QByteArray utf8 = text.toUtf8();
    if (encoding == 0)
        check(utf16(text, true), expected);
    else if (encoding == 1 && !text.startsWith(QChar(0))) // with a zero behind it the mark is that of UTF-32
        check(utf16(text, false), expected);
    else if (QString::fromUtf8(utf8.constData(), utf8.size()) == text) // no lone surrogates
        check("\xef\xbb\xbf" + utf8, expected);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray input = bytes(data, size);
    const QString text = textIn(input);
    const PlainReader expected(text);
    REQUIRE(expected.line() >= 1 && expected.line() <= text.count(QLatin1Char('\n')) + 1);
    REQUIRE(expected.pos() >= 0 && expected.pos() <= text.size());

    check(input, expected);
    check(text, expected);
    checkEncoded(text, expected, int(size % 3));
    return 0;
}

#include "jsonreader.h"

#include "jsonlexer.h"
#include "jsonparser.h"

#include <QTextCodec>

#include <cstring>

namespace
{

// The encoding of text without a byte-order mark; null for UTF-8. A JSON text begins with two ASCII
// characters, so the zero bytes among the first four tell the width and the order of the units.
const char *guessedEncoding(const QByteArray &data)
{
    if (data.size() <= 3)
        return 0;
    if (data.at(0) == 0)
        return data.at(1) == 0 ? "UTF-32BE" : "UTF-16BE";
    if (data.at(1) == 0)
        return data.at(2) == 0 ? "UTF-32LE" : "UTF-16LE";
    return 0;
}

QString decoded(const QByteArray &data)
{
    const int size = data.size();
    if (size <= 0)
        return QString();
    const QTextCodec *codec = QTextCodec::codecForUtfText(data, 0);
    if (!codec) {
        const char *const encoding = guessedEncoding(data);
        if (!encoding) // with the size, or the text would end at the first NUL
            return QString::fromUtf8(data.constData(), size);
        codec = QTextCodec::codecForName(encoding);
    }
    return codec->toUnicode(data);
}

// Nearly every announcement is a short text of plain ASCII. It is widened on the stack: a block of the heap
// that large makes malloc tidy up the many small ones of the value before.
const int shortText = 2048;

inline bool isPlainAscii(uchar byte)
{
    return byte != 0 && byte < 0x80;
}

// Eight bytes together. Subtracting 1 sets the top bit of a byte 0; of those from 0x80 on it is set already.
inline bool arePlainAscii(const uchar (&bytes)[8])
{
    const quint64 ones = Q_UINT64_C(0x0101010101010101);
    quint64 word;
    std::memcpy(&word, bytes, sizeof word);
    return (((word - ones) | word) & (ones << 7)) == 0;
}

// False if there is any other character; then it is another encoding, or none.
bool widened(const QByteArray &data, ushort *text)
{
    const char *const bytes = data.constData();
    const int size = data.size();
    int i = 0;
    uchar step[8]; // a copy, which no store through text can change
    for (; size - i >= int(sizeof step); i += int(sizeof step)) {
        std::memcpy(step, bytes + i, sizeof step);
        if (!arePlainAscii(step))
            return false;
        for (int k = 0; k < int(sizeof step); ++k)
            text[i + k] = step[k];
    }
    for (; i < size; ++i) {
        text[i] = uchar(bytes[i]);
        if (!isPlainAscii(uchar(bytes[i])))
            return false;
    }
    return true;
}

} // namespace

JsonReader::JsonReader()
{
}

bool JsonReader::parse(const QString &text)
{
    JsonLexer lexer(text);
    JsonParser parser;
    if (parser.parse(&lexer)) {
        m_result = parser.result();
        m_errorString.clear();
        return true;
    }
    m_result.clear();
    m_errorString = QString::fromLatin1("%1 at line %2 pos %3")
                        .arg(parser.errorMessage())
                        .arg(parser.errorLine())
                        .arg(parser.errorColumn());
    return false;
}

bool JsonReader::parse(const QByteArray &data)
{
    ushort text[shortText];
    if (data.size() <= shortText && widened(data, text))
        return parse(QString::fromRawData(reinterpret_cast<const QChar *>(text), data.size()));
    return parse(decoded(data));
}

#include "jsonreader.h"

#include "jsonlexer.h"
#include "jsonparser.h"

#include <QTextCodec>

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

bool widened(const QByteArray &data, ushort *text)
{
    const char *const bytes = data.constData();
    for (int i = 0, size = data.size(); i < size; ++i) {
        const uchar byte = uchar(bytes[i]);
        if (byte == 0 || byte >= 0x80)
            return false; // another encoding, or none
        text[i] = byte;
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

#ifndef JSONREADER_H
#define JSONREADER_H

#include <QByteArray>
#include <QString>
#include <QVariant>

/* Reads JSON text (RFC 4627) into a QVariant: object = QVariantMap, array = QVariantList, string = QString,
   number = qlonglong or double, false and true = bool, null = an invalid QVariant.

   JsonLexer and JsonParser say where more is accepted than the standard allows. What is read may come
   from anybody: every text gives a value or an error, and more than JsonParser::MaximumDepth arrays and
   objects within each other are an error. */
class JsonReader
{
public:
    JsonReader();

    // Both return whether the text was read. If not, result() is invalid and errorString() says where.
    bool parse(const QString &text);
    // Bytes in UTF-8, UTF-16 or UTF-32: a byte-order mark decides and is not part of the text; without one,
    // the zero bytes among the first four do (RFC 4627, section 3). Fewer than four bytes are UTF-8.
    bool parse(const QByteArray &data);

    // The value of the last parse(). Invalid after an error, and also after the text null.
    QVariant result() const { return m_result; }

    // Empty after success, else "Expected '}', ',' at line 1 pos 17". What was expected is left out when it
    // is more than two tokens, or when the nesting is too deep; then the text begins with the blank before "at".
    // Lines count from 1, positions from the start of the whole text in UTF-16 units.
    QString errorString() const { return m_errorString; }

private:
    QVariant m_result;
    QString m_errorString;
};

#endif

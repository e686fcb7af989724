#ifndef JSONWRITER_H
#define JSONWRITER_H

#include <QString>
#include <QVariant>

/* Writes a QVariant as JSON text (RFC 4627): QVariantMap = object, QVariantList and QStringList = array,
   QString = string, numbers, bool, an invalid QVariant = null. A QByteArray is a string of Latin-1 characters
   up to its first NUL; NaN and the infinities are null; a double has 15 significant digits. Other types are
   written as a number or a string if QVariant converts them to one.

   The daemon itself only reads JSON; the writer is there for programs that share these classes, and for the tests.

   The text is ASCII: units from 0x80 on are written as \uXXXX. A slash is written as \/, and control
   characters without a short escape are written raw. */
class JsonWriter
{
public:
    JsonWriter();

    // Writes the value into result(), in place of the one before. It recurses into lists and maps, so it needs
    // stack in proportion to their depth. False when something in it could not
    // be written; there the text holds null, and errorString() tells what it was.
    bool stringify(const QVariant &value);
    // Appends the value to result() as it looks at this nesting level: 0 is the outermost, and a negative one looks like the
    // others but without an indent. Neither result() nor errorString() is cleared.
    void stringify(const QVariant &value, int level);

    QString result() const { return m_result; }

    // A line "Unsupported type QRect (id: 19)" for each value that could not be written, joined by line
    // feeds. Each is also a warning at the moment it is found.
    QString errorString() const { return m_errorString; }

    // Off at first: then there are no blanks between the tokens. On: each member of an object has its own line,
    // and the elements of an array are set apart by blanks. Only arrays indent what is in them.
    void setAutoFormatting(bool on) { m_autoFormatting = on; }
    bool autoFormatting() const { return m_autoFormatting; }

    // Width of one level: blanks if positive, tabs if negative (-2 is two tabs). Four blanks at first.
    void setAutoFormattingIndent(int n);
    int autoFormattingIndent() const;

private:
    class Output;

    void write(const QVariant &value, int level, Output *output);
    void writeArray(const QVariantList &array, int level, Output *output);
    void writeObject(const QVariantMap &object, int level, Output *output);
    void writePad(int level, Output *output) const;
    void writeOther(const QVariant &value, Output *output);
    void writeUnsupported(const QVariant &value, Output *output);

    QString m_result;
    QString m_errorString;
    bool m_autoFormatting;
    QString m_indent;
};

#endif

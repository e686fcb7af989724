#ifndef PLAINREADER_H
#define PLAINREADER_H

#include <QtCore/QString>
#include <QtCore/QVariant>

// Reads the JSON that JsonReader reads, with its leniencies and its errors, and nothing of its speed: one function
// for each production, one character after the other, no tables.
class PlainReader
{
public:
    explicit PlainReader(const QString &text);

    bool ok() const { return m_ok; }
    // Invalid after an error.
    QVariant result() const { return m_ok ? m_result : QVariant(); }
    QString error() const;
    // Where reading ended.
    int line() const { return m_line; }
    int pos() const { return m_pos; }

private:
    // What a token is: itself for punctuation, else one of these.
    enum Token {
        End = '$',
        Value = 'v', // a number or a word
        String = '"',
        Wrong = '?'
    };

    ushort at(int pos) const { return pos < m_text.size() ? m_text.at(pos).unicode() : 0; }
    bool isDigit(int pos) const { return at(pos) >= '0' && at(pos) <= '9'; }
    bool isLetter(int pos) const { return at(pos) >= 'a' && at(pos) <= 'z'; }

    void next();
    void readString();
    QString readEscape();
    void readNumber();
    void readWord();

    bool readValue(QVariant *value, const char *expected);
    bool readArray(QVariant *value);
    bool readObject(QVariant *value);
    bool readMember(QVariantMap *object);
    bool isToken(int token, const char *expected);

    QString m_text;
    int m_line;
    int m_pos;
    int m_depth;
    int m_token;
    QVariant m_tokenValue;
    bool m_ok;
    QVariant m_result;
    const char *m_expected;
};

#endif

#ifndef JSONLEXER_H
#define JSONLEXER_H

#include <QString>
#include <QVariant>

/* Cuts JSON text (RFC 4627) into tokens, one per call of lex().

   The token codes are the terminals of JsonGrammar: 0 end of text, 1 string, 2 number, 3 { 4 } 5 [ 6 ]
   7 : 8 , 9 false, 10 true, 11 null, 12 error. The lexer reports nothing itself: it returns 12, and
   line() and pos() tell the parser where that was.

   It accepts more than the standard: a number may begin with + or with zeros, signs inside a number
   are skipped (1-2 is 12, a lone minus is 0), a string may hold raw control characters and line feeds,
   and an unknown escape stands for its own character. */
class JsonLexer
{
public:
    // Shares the text, does not copy it.
    explicit JsonLexer(const QString &text);

    // The code of the next token; pos() is then behind it. A character that begins no token gives 12
    // and is not passed, so every further call gives 12 again.
    int lex();

    // The scanners that lex() chooses from by the first character of the token, which is the one at
    // pos(). Each returns a token code.

    // "..." as a QString. A \u escape makes one UTF-16 unit, lone surrogates included.
    // Without a closing quote: 12, and pos() is the end of the text. A short string right before a colon may
    // share its memory with the same one of another text.
    int parseString();
    // A number as qlonglong, or as double when it has a point or an exponent. Integers wrap at 64 bits;
    // a floating text that is no number, or none that a double can hold, is 0.0.
    int parseNumber();
    // false, true or null; 12 for any other run of the letters a to z.
    int parseKeyword();

    // Line of the text, from 1. Only line feeds between tokens are counted.
    int line() const { return m_line; }
    // Index of the next character to read, in UTF-16 units from the start of the whole text.
    int pos() const { return m_pos; }
    // Value of the token that the last lex() returned; invalid unless that is a string or a number.
    const QVariant &symbolValue() const { return m_symbolValue; }
    // Exchanges the value of the token with the caller's: hands it over without a copy.
    void swapSymbolValue(QVariant &value) { m_symbolValue.swap(value); }

private:
    void skipWhiteSpace();
    int parseEscapedString(int start, int backslash);

    QString m_text;
    int m_line;
    int m_pos;
    QVariant m_symbolValue;
};

#endif

#ifndef JSONPARSER_H
#define JSONPARSER_H

#include <QString>
#include <QVarLengthArray>
#include <QVariant>

class JsonLexer;

/* Builds the value that the tokens of a JsonLexer describe, by the grammar in jsongrammar.g.

   Object = QVariantMap (the last of repeated keys wins), array = QVariantList, string = QString,
   number = qlonglong or double, false and true = bool, null = an invalid QVariant. Any value may stand
   at the top level. A comma may come before the first member or element, but not after the last one. */
class JsonParser
{
public:
    // How many arrays and objects may be open at once. A QVariant tree is destroyed, compared and walked
    // recursively, and what is read comes from the network: the bound keeps that far below the 8 MiB
    // of an ordinary stack, with address sanitizer as well.
    enum { MaximumDepth = 4096 };
    // Entries that the stacks begin with; an announcement needs no more. They are part of the parser, so
    // reading one takes no memory for them.
    enum { InitialCapacity = 128 };

    JsonParser();

    // Reads one value and the end of the text. False on the first syntax error, and when the value is
    // nested too deeply. The lexer is not owned.
    bool parse(JsonLexer *lexer);

    // The value of a successful parse(); otherwise invalid.
    QVariant result() const;

    // These three are about the last parse() that failed; a successful one does not reset them.
    // What was wrong: "Expected '}', ','" when one or two tokens could have stood there, otherwise empty.
    QString errorMessage() const { return m_errorMessage; }
    // Line, from 1.
    int errorLine() const { return m_errorLine; }
    // Index from the start of the whole text in UTF-16 units, behind the offending token. A character
    // that begins no token is not passed.
    int errorColumn() const { return m_errorColumn; }

    // Doubles the stacks, which have no entries before the first parse(). parse() does this when they are full.
    void reallocateStack();
    // Number of entries that the stacks have room for.
    int stackCapacity() const { return m_states.size(); }

private:
    int push(int state);
    void makeEntries();
    bool shift(int state, int token, JsonLexer *lexer);
    int reduce(int rule);
    void runAction(int rule);
    void insertMember(int slot, int key);
    void appendElement(int slot, int element);
    bool fail(const JsonLexer *lexer, const QString &message);

    // Four stacks with one top. Which of them holds what a grammar symbol means depends on the symbol:
    // Members has a map, Values a list, everything else a value.
    int m_top;
    QVarLengthArray<int, InitialCapacity> m_states;
    QVarLengthArray<QVariant, InitialCapacity> m_values;
    QVarLengthArray<QVariantMap, InitialCapacity> m_maps;
    QVarLengthArray<QVariantList, InitialCapacity> m_lists;

    int m_depth; // open arrays and objects
    QString m_errorMessage;
    int m_errorLine;
    int m_errorColumn;
};

#endif

#include "jsonparser.h"

#include "jsongrammar_p.h"
#include "jsonlexer.h"
#include "moveinto.h"

#include <QStringList>

/* How the tables are read.

   A state says which symbols have been read so far as far as that matters for what comes next, and the
   stack of states remembers where to go back to. The next step is the table's entry for the state on
   top and the next token:

       JsonGrammar::t_action(state, token)
            0        the token cannot stand here: a syntax error
           > 0       shift: the token is taken, and this is the state to push
                     (ACCEPT_STATE: the end of the text after a whole value, so all is done)
           < 0       reduce: the symbols on top are the right-hand side of rule -entry - 1;
                     rhs[rule] of them are popped and one for the left-hand side lhs[rule] is pushed

   The state to push after a reduction comes from the state that is on top after the pop and the new symbol:

       JsonGrammar::nt_action(state, lhs[rule] - TERMINAL_COUNT)

   Most entries of one state are alike, so the table is compressed: action_index[state] + token is a place in
   action_info, and action_check at that place tells whether the entry belongs to this token. If not, or
   if the place is negative, action_default[state] holds for it. A state whose index is -TERMINAL_COUNT has
   nothing but its default, and no token needs to be fetched for it. */

namespace
{

const int noToken = -1;

// What a place in a map or list is made with. Copying it takes less than making and destroying another one.
const QVariant nothing;

inline bool needsToken(int state)
{
    return JsonGrammar::action_index[state] != -JsonGrammar::TERMINAL_COUNT;
}

// "Expected ..." when the state accepts one or two tokens, else nothing: a longer list helps nobody.
QString expectation(int state)
{
    QStringList names;
    for (int token = 0; token < JsonGrammar::TERMINAL_COUNT; ++token) {
        if (JsonGrammar::t_action(state, token) != 0)
            names << QLatin1Char('\'') + QLatin1String(JsonGrammar::spell[token]) + QLatin1Char('\'');
    }
    if (names.size() > 2)
        return QString();
    return QLatin1String("Expected ") + names.join(QLatin1String(", "));
}

// Value: null, Object, Array, number or string, the rules that runAction() has no case for: the value is in its place already.
inline bool isInPlace(int rule)
{
    const int first = 7;
    const int last = 11;
    return rule >= first && rule <= last;
}

} // namespace

JsonParser::JsonParser()
    : m_top(-1)
    , m_depth(0)
    , m_errorLine(0)
    , m_errorColumn(0)
{
}

bool JsonParser::parse(JsonLexer *lexer)
{
    m_top = -1;
    m_depth = 0;
    int state = push(0);
    int token = noToken;
    for (;;) {
        if (token == noToken && needsToken(state))
            token = lexer->lex();
        const int action = JsonGrammar::t_action(state, token);
        if (action < 0) {
            state = reduce(-action - 1);
            continue;
        }
        if (action == JsonGrammar::ACCEPT_STATE)
            return true;
        if (action == 0)
            return fail(lexer, expectation(state));
        if (!shift(action, token, lexer))
            return fail(lexer, QString());
        state = action;
        token = noToken;
    }
}

// The bottom of the stack belongs to no symbol, so it keeps the result.
QVariant JsonParser::result() const
{
    return m_values.isEmpty() ? QVariant() : m_values[0];
}

void JsonParser::reallocateStack()
{
    const int capacity = m_states.isEmpty() ? int(InitialCapacity) : m_states.size() * 2;
    m_states.resize(capacity);
    m_values.reserve(capacity);
    m_maps.reserve(capacity);
    m_lists.reserve(capacity);
}

// Makes entries for the top. An announcement needs a few of those that there is room for, and making and
// destroying the others would take longer than they are worth.
void JsonParser::makeEntries()
{
    if (m_top == stackCapacity())
        reallocateStack();
    const int more = 16;
    m_values.resize(m_top + more);
    m_maps.resize(m_top + more);
    m_lists.resize(m_top + more);
}

// Returns the state.
inline int JsonParser::push(int state)
{
    if (++m_top == m_values.size())
        makeEntries();
    m_states[m_top] = state;
    return state;
}

// False when the token would open one array or object too many.
inline bool JsonParser::shift(int state, int token, JsonLexer *lexer)
{
    const bool opens = token == JsonGrammar::T_LEFT_BRACE || token == JsonGrammar::T_LEFT_BRACKET;
    if (opens && ++m_depth > MaximumDepth)
        return false;
    push(state);
    lexer->swapSymbolValue(m_values[m_top]);
    return true;
}

// Returns the state that is now on top.
inline int JsonParser::reduce(int rule)
{
    m_top -= JsonGrammar::rhs[rule];
    const int symbol = JsonGrammar::lhs[rule] - JsonGrammar::TERMINAL_COUNT;
    const int state = push(JsonGrammar::nt_action(m_states[m_top], symbol));
    if (!isInPlace(rule))
        runAction(rule);
    return state;
}

// The slots of the right-hand side begin at the top, which is the slot of the left-hand side as well.
// What a slot holds is moved up, so that nothing stays behind in a popped one.
inline void JsonParser::runAction(int rule)
{
    const int slot = m_top;
    switch (rule) {
    // Root: Value
    case 0:
        m_values[0].swap(m_values[slot]);
        break;
    // Object: { Members }
    case 1:
        moveInto(m_maps[slot + 1], m_values[slot]);
        --m_depth;
        break;
    // Members: string : Value
    case 2:
        m_maps[slot].clear();
        insertMember(slot, slot);
        break;
    // Members: Members , string : Value
    case 3:
        insertMember(slot, slot + 2);
        break;
    // Members: (empty)
    case 4:
        m_maps[slot].clear();
        break;
    // Value: false
    case 5:
        m_values[slot] = QVariant(false);
        break;
    // Value: true
    case 6:
        m_values[slot] = QVariant(true);
        break;
    // Array: [ Values ]
    case 12:
        moveInto(m_lists[slot + 1], m_values[slot]);
        --m_depth;
        break;
    // Values: Value
    case 13:
        m_lists[slot].clear();
        appendElement(slot, slot);
        break;
    // Values: Values , Value
    case 14:
        appendElement(slot, slot + 2);
        break;
    // Values: (empty)
    case 15:
        m_lists[slot].clear();
        break;
    default:
        break;
    }
}

// The colon stands between the key and the value.
inline void JsonParser::insertMember(int slot, int key)
{
    const QString &name = *static_cast<const QString *>(m_values[key].constData());
    m_maps[slot].insert(name, nothing).value().swap(m_values[key + 2]);
    m_values[key].clear();
}

inline void JsonParser::appendElement(int slot, int element)
{
    QVariantList &list = m_lists[slot];
    list.append(nothing);
    list.last().swap(m_values[element]);
}

bool JsonParser::fail(const JsonLexer *lexer, const QString &message)
{
    m_values[0].clear();
    m_errorMessage = message;
    m_errorLine = lexer->line();
    m_errorColumn = lexer->pos();
    return false;
}

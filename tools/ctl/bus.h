#ifndef BUS_H
#define BUS_H

#include <QtCore/QString>
#include <QtCore/QVariant>

// Blocking calls over the system bus; each waits up to ten seconds for its answer.
namespace bus
{

// The result of a call.
struct Answer
{
    Answer()
        : isThere(true)
    {
    }

    bool isGood() const { return problem.isEmpty(); }

    QVariantList values;
    QString problem; // empty, or a sentence: what is in the way, and what to do next
    bool isThere; // false when nobody owns the name that was called
};

// Connects. An empty text, or a sentence: what is in the way, and what to do next.
QString connectionProblem();

Answer call(const char *service, const char *path, const char *interface, const char *member,
    const QVariantList &arguments = QVariantList());

// These ask the bus itself.
bool hasOwner(const char *name);
// -1 when nobody owns it.
qint64 processOf(const char *name);
qint64 userOf(const char *name);

// Of a list ("av") or a dictionary ("a{sv}") that came in an answer, its values; empty if it is something else.
QVariantList toList(const QVariant &value);
QVariantMap toMap(const QVariant &value);

} // namespace bus

#endif

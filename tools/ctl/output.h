#ifndef OUTPUT_H
#define OUTPUT_H

#include <QtCore/QString>

// Output for the user. Everything is written in UTF-8; what strangers wrote has to be cleaned before (text.h). A closed pipe
// ends the program, by SIGPIPE.
namespace output
{

enum Style { Bold,
    Red,
    Green,
    Yellow };

// To be called once the bus has been connected to, which lets SIGPIPE be ignored.
void endWithTheReader();

// The width of the terminal that the standard output is; 0 if it is none.
int width();

// With colours where the standard output is a terminal that has some, and NO_COLOR is not set.
QString styled(Style style, const QString &text);

// A line to the standard output.
void say(const QString &line);
// A sentence to the standard error, behind the program's name.
void note(const QString &sentence);
// A line on a terminal that the next one of anything replaces. Nothing elsewhere.
void progress(const QString &line);

} // namespace output

#endif

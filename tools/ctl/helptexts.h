#ifndef HELPTEXTS_H
#define HELPTEXTS_H

class QString;

// What --help prints for a command; for the whole where the command is empty.
const char *helpText(const QString &command);

#endif

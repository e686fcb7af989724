#ifndef ANSWER_H
#define ANSWER_H

#include <stddef.h>
#include <sys/types.h>

/* What the floors have to say: the daemon's texts, of the same length. */

/* The local time as in the headers "DATE" and "Date" */
void format_date(char *text, size_t size);

/* Whether the datagram is a search that a root device answers */
int is_search(const char *datagram, ssize_t size);

/* The answer of the device at `address` to a search; returns its length */
int format_answer(char *text, size_t size, const char *address);

#endif

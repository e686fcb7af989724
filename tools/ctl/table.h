#ifndef TABLE_H
#define TABLE_H

#include <QtCore/QList>
#include <QtCore/QStringList>

// Aligned lines, one for each row; all rows have as many cells. An empty cell is shown as "-".
// Where the lines have to fit into a width (columns of a terminal; 0: any), the widest columns give way first.
QStringList tableLines(const QList<QStringList> &rows, int width);

#endif

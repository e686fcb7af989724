// Stands in for libFuzzer in ordinary builds: runs every file of the folders that are named, every beginning of it,
// and the large inputs.
#include "input.h"
#include "largeinputs.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdio>

#pragma weak LLVMFuzzerInitialize

static void run(const QByteArray &input)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.constData()), std::size_t(input.size()));
}

// The name is printed first: it is the last line when a check fails.
static bool runFile(const QString &path)
{
    std::printf("%s\n", path.toLocal8Bit().constData());
    std::fflush(stdout);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray input = file.readAll();
    for (int size = 0; size <= input.size(); ++size)
        run(input.left(size));
    return true;
}

static bool runFolder(const QString &path)
{
    const QDir folder(path);
    const QStringList names = folder.entryList(QDir::Files, QDir::Name);
    bool done = !names.isEmpty();
    for (int i = 0; i < names.size(); ++i)
        done = runFile(folder.filePath(names.at(i))) && done;
    return done;
}

static void runLargeInputs()
{
    const QList<LargeInput> inputs = largeInputs();
    for (int i = 0; i < inputs.size(); ++i) {
        std::printf("large: %s\n", inputs.at(i).name);
        std::fflush(stdout);
        run(inputs.at(i).bytes);
    }
}

int main(int argc, char **argv)
{
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    bool done = argc > 1;
    for (int i = 1; i < argc; ++i)
        done = runFolder(QFile::decodeName(argv[i])) && done;
    runLargeInputs();
    return done ? 0 : 1;
}

#include "numdict/console/OutputFile.h"

#include "numdict/console/StandardOutput.h"

#include <unistd.h>

namespace kavix::numdict {

bool isStandardOutputTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

OutputFile::OutputFile(const std::string& path) {
    if (path != "-")
        m_file.emplace(path);
}

void OutputFile::write(std::string_view text) {
    if (m_file)
        m_file->getStream().write(text.data(), text.size());
    else
        writeStandardOutput(text);
}

void OutputFile::finish() {
    if (m_file)
        m_file->commit();
    else
        flushStandardOutput();
}

}

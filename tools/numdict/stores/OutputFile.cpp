#include "numdict/stores/OutputFile.h"

#include "numdict/console/StandardOutput.h"

namespace kavix::numdict {

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

#include "numdict/stores/OutputFile.h"

#include "numdict/console/StandardOutput.h"

namespace kavix::numdict {

OutputFile::OutputFile(const std::string& path) {
    if (path != "-")
        m_file.emplace(path);
}

void OutputFile::writeBuffer() {
    if (m_file)
        m_file->getStream().write(m_buffer.data(), m_buffer.size());
    else
        writeStandardOutput(m_buffer);
    m_buffer.clear();
}

void OutputFile::finish() {
    writeBuffer();
    if (m_file)
        m_file->commit();
    else
        flushStandardOutput();
}

}

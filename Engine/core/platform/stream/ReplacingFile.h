#pragma once

#include "core/platform/stream/FileOutputStream.h"

#include <memory>
#include <string>

namespace kavix {

/// A file that replaces another one atomically: at any moment, even if something fails or the process is killed, the
/// name refers to the old file or to the complete new one.
///
///   writing --commit--> the new file is in place        writing --destruction--> the old file is untouched
///
/// The new content goes to a temporary file in the directory of the target (its name and ".unfinished"), which is
/// synchronised and renamed over the target; then the directory is synchronised. The temporary file is locked from the
/// beginning, so there is one writer at a time; the file that a killed writer left is reused by the next one. One
/// thread at a time.
class ReplacingFile {

public:

    /// Opens and locks the temporary file. A target that is a symbolic link remains one.
    /// @throws SystemCallException  another process or object is writing this file, it is not a regular file, or the
    ///                              directory cannot be written: no file is left
    explicit ReplacingFile(const std::string& fileName);

    ReplacingFile(const ReplacingFile&) = delete;

    ReplacingFile& operator=(const ReplacingFile&) = delete;

    /// Removes the temporary file unless it was committed. Never throws.
    ~ReplacingFile();

    OutputStream& getStream() noexcept { return *m_stream; }

    /// Puts the new file in place. Nothing may be written afterwards.
    /// @throws SystemCallException  the new file cannot be completed: the old one is in place, unless the message says
    ///                              that only the directory could not be synchronised
    void commit();

private:

    std::string m_fileName; // the target, symbolic links resolved
    std::string m_temporaryFileName;
    std::unique_ptr<FileOutputStream> m_stream;
    bool m_isInPlace = false;
};

}

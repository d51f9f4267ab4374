#pragma once

#include "core/platform/stream/FileOutputStream.h"

#include <memory>
#include <string>

namespace kavix {

/// A file that takes the place of another one all at once: at any moment, whatever fails and whenever the process is
/// killed, the name leads to the old file or to the complete new one.
///
///   writing --commit--> the new file is in place        writing --destruction--> the old file is untouched
///
/// The new content goes to a temporary file beside the target (its name with ".unfinished" behind it), which is
/// synchronised, renamed over the target, and its folder synchronised. The temporary file is locked from the beginning,
/// so there is one writer at a time; what a killed writer left behind is taken over by the next one. One thread at a
/// time.
class ReplacingFile {

public:

    /// Opens and locks the temporary file. A target that is a symbolic link keeps being one.
    /// @throws SystemCallException  another process or object is writing this file, it is no regular file, or the
    ///                              folder cannot be written: nothing is left behind
    explicit ReplacingFile(const std::string& fileName);

    ReplacingFile(const ReplacingFile&) = delete;

    ReplacingFile& operator=(const ReplacingFile&) = delete;

    /// Removes the temporary file unless it was committed. Never throws.
    ~ReplacingFile();

    OutputStream& getStream() noexcept { return *m_stream; }

    /// Puts the new file in place. Nothing may be written afterwards.
    /// @throws SystemCallException  the new file cannot be made complete: the old one is in place, unless the message
    ///                              says that only the folder could not be synchronised
    void commit();

private:

    std::string m_fileName; // the target, symbolic links resolved
    std::string m_temporaryFileName;
    std::unique_ptr<FileOutputStream> m_stream;
    bool m_isInPlace = false;
};

}

#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/platform/stream/MemoryOutputStream.h"

#include <string>

// The intact store that the fuzzers change.

namespace kavix::fuzz {

/// Integers, decimals, a deleted value and lost IDs; always the same bytes.
inline std::string makeSampleStore(ResourceIDWidth width) {
    Dictionary::Options options;
    options.resourceIDWidth = width;
    options.maxResourceID = 4096;
    Dictionary dictionary(options);
    for (const char* const form : {"0", "1", "-7", "9223372036854775807", "-9223372036854775808"})
        dictionary.resolve(form, D_XSD_INTEGER);
    for (const char* const form : {"0", "0.5", "-12.25", "0.9223372036854775807"})
        dictionary.resolve(form, D_XSD_DECIMAL);
    for (const char* const form : {"7", "127"})
        dictionary.resolve(form, D_XSD_BYTE);
    {
        Transaction transaction(dictionary);
        transaction.resolve("8", D_XSD_BYTE);
        transaction.resolve("8.5", D_XSD_DECIMAL);
    } // rolled back
    dictionary.resolve("9", D_XSD_INT);
    MemoryOutputStream output;
    dictionary.saveStore(output);
    return output.takeContent();
}

}

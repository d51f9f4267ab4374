#include "core/data-store/embedding/DictionaryFamilies.h"

#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/inspection/NumericDatatypeInspector.h"

namespace kavix {

namespace {

/// Makes the linker take an object from the static library, where the compiler would drop an address that nobody uses.
template<typename T>
void link(const T& object) noexcept {
    const T* volatile address = &object;
    [[maybe_unused]] const T* const read = address;
}

}

void registerBuiltInDatatypeFamilies() noexcept {
    // These register themselves when they are constructed, during static initialisation.
    link(s_NumericDatatypeFactory);
    link(s_NumericDatatypeInspector);
}

}

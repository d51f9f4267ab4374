#include "core/data-store/dictionary/DictionaryFamilies.h"

#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/dictionary/NumericDatatypeInspector.h"

namespace kavix {

void registerBuiltInDatatypeFamilies() noexcept {
    // Factories and inspectors register themselves when they are constructed, during static initialisation. Naming them
    // here makes the linker take them from the static library.
    [[maybe_unused]] static const DictionaryDatatypeFactory* volatile s_factory = &s_NumericDatatypeFactory;
    [[maybe_unused]] static const DictionaryDatatypeInspector* volatile s_inspector = &s_NumericDatatypeInspector;
}

}

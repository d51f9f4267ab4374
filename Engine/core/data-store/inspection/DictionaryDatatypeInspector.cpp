#include "core/data-store/inspection/DictionaryDatatypeInspector.h"

namespace kavix {

DictionaryDatatypeInspector::~DictionaryDatatypeInspector() = default;

}

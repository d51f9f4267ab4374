// Enters many literals by one call, with an outcome for each, and returns many values by one call.

#include "Kavix.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <vector>

int main() {
    kavix::Dictionary dictionary({.memoryBudgetBytes = 64 << 20});
    const uint8_t xsdByte = kavix::Dictionary::getDatatypeID("http://www.w3.org/2001/XMLSchema#byte");
    const uint8_t xsdDecimal = kavix::Dictionary::getDatatypeID("http://www.w3.org/2001/XMLSchema#decimal");

    // Cache misses overlap, so a batch takes a fraction of the time of single calls; IDs and errors are the same.
    const std::vector<kavix::Literal> literals = {{"5", xsdByte}, {"300", xsdByte}, {"0.50", xsdDecimal}};
    std::vector<kavix::Resolution> resolutions(literals.size());
    kavix::Transaction transaction(dictionary);
    const size_t numberOfErrors = transaction.resolve(literals, resolutions.data());
    transaction.commit();
    std::vector<uint64_t> ids;
    for (const kavix::Resolution& resolution : resolutions)
        if (resolution.error == nullptr)
            ids.push_back(resolution.resourceID);
        else
            try {
                std::rethrow_exception(resolution.error);
            }
            catch (const kavix::KavixException& exception) {
                std::cout << exception.what() << '\n';
            }

    std::vector<kavix::ResourceValue> values(ids.size());
    dictionary.getValues(ids, values.data());
    std::cout << int(values[0].datatypeID) << ' ' << values[0].getBinaryValue<int64_t>() << '\n'
              << values[1].getBinaryValue<kavix::XSDDecimal>().toString(false) << '\n';
    return numberOfErrors == 1 && ids.size() == 2 ? EXIT_SUCCESS : EXIT_FAILURE;
}

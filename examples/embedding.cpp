// The dictionary in a program of one's own, in ten lines.

#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/platform/errors/KavixException.h"

#include <cstdlib>
#include <iostream>

int main() {
    try {
        kavix::Dictionary dictionary({.memoryBudgetBytes = 64 << 20});
        kavix::Transaction transaction(dictionary); // any number of threads may enter values through it
        const uint8_t xsdByte = kavix::Dictionary::getDatatypeID("http://www.w3.org/2001/XMLSchema#byte");
        const uint64_t five = transaction.resolve("+005", "http://www.w3.org/2001/XMLSchema#int");
        const uint64_t half = transaction.resolve(".50", "http://www.w3.org/2001/XMLSchema#decimal");
        std::cout << five << ' ' << dictionary.getTurtleLiteral(five) << '\n'
                  << half << ' ' << dictionary.getTurtleLiteral(half) << '\n'
                  << dictionary.tryResolve("7", xsdByte) << " is not there\n";
        transaction.commit();
        dictionary.resolve("300", xsdByte);
    }
    catch (const kavix::KavixException& exception) {
        std::cout << exception.what() << '\n';
        return EXIT_SUCCESS;
    }
    return EXIT_FAILURE;
}

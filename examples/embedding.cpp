// Gives values resource IDs, finds them again, returns the values of IDs.

#include "Kavix.h"

#include <cstdlib>
#include <iostream>

int main() {
    kavix::Dictionary dictionary({.memoryBudgetBytes = 64 << 20});
    const uint8_t xsdByte = kavix::Dictionary::getDatatypeID("http://www.w3.org/2001/XMLSchema#byte");
    const uint64_t five = dictionary.resolve("+005", "http://www.w3.org/2001/XMLSchema#int");
    const uint64_t half = dictionary.resolve(".50", "http://www.w3.org/2001/XMLSchema#decimal");
    std::cout << five << ' ' << dictionary.getTurtleLiteral(five) << '\n'
              << half << ' ' << dictionary.getTurtleLiteral(half) << '\n';
    if (dictionary.tryResolve("7", xsdByte) == 0)
        std::cout << "7 is absent\n";
    try {
        dictionary.resolve("300", xsdByte);
    }
    catch (const kavix::KavixException& exception) {
        std::cout << exception.what() << '\n';
        return EXIT_SUCCESS; // 300 is not a byte
    }
    return EXIT_FAILURE;
}

// Saves a dictionary in a file, opens it again, and drops what is no longer needed.

#include "Kavix.h"

#include <cstdlib>
#include <iostream>
#include <memory>
#include <vector>

int main(int argc, char* argv[]) {
    const char* const path = argc > 1 ? argv[1] : "numbers.store";
    try {
        kavix::Dictionary dictionary({.memoryBudgetBytes = 64 << 20});
        const uint8_t xsdDecimal = kavix::Dictionary::getDatatypeID("http://www.w3.org/2001/XMLSchema#decimal");
        dictionary.resolve("0.1", xsdDecimal);
        const uint64_t second = dictionary.resolve("0.2", xsdDecimal);

        kavix::ReplacingFile file(path); // the file that was there stays until commit() replaces it
        dictionary.saveStore(file.getStream());
        file.commit();

        kavix::FileInputStream input(path); // nothing that is read is trusted before it was checked
        const std::unique_ptr<kavix::Dictionary> opened = kavix::Dictionary::openStore(input, {});
        std::cout << second << ' ' << opened->getLexicalForm(second) << '\n';

        // Keeps 0.2 alone. The IDs of the rest of the program follow by the table of new IDs.
        const std::vector<uint64_t> newIDs = opened->compact([second](uint64_t id) { return id == second; });
        std::cout << newIDs[second] << ' ' << opened->getLexicalForm(newIDs[second]) << '\n';
        return EXIT_SUCCESS;
    }
    catch (const kavix::KavixException& exception) {
        std::cerr << exception.what() << '\n';
        return EXIT_FAILURE;
    }
}

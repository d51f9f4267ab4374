// Enters values from several threads in one transaction, beside readers that see only what was committed.

#include "Kavix.h"

#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

int main() {
    kavix::Dictionary dictionary({.memoryBudgetBytes = 64 << 20});
    const uint8_t xsdInteger = kavix::Dictionary::getDatatypeID("http://www.w3.org/2001/XMLSchema#integer");

    // Any number of threads enter values through one transaction; equal values get the same ID.
    kavix::Transaction transaction(dictionary);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&transaction, xsdInteger, thread] {
            for (int number = 0; number < 1000; ++number)
                transaction.resolve(std::to_string(number + 500 * thread), xsdInteger);
        });
    const kavix::Snapshot before = dictionary.takeSnapshot(); // sees nothing of the transaction, now or later
    for (std::thread& thread : threads)
        thread.join();
    transaction.commit();
    const kavix::Snapshot after = dictionary.takeSnapshot();
    const bool wasAbsent = dictionary.tryResolve("1234", xsdInteger, before) == 0;
    const bool isPresent = dictionary.tryResolve("1234", xsdInteger, after) != 0;
    std::cout << (wasAbsent ? "absent" : "present") << " before, " << (isPresent ? "present" : "absent") << " after\n";

    // A transaction that is not committed is rolled back.
    {
        kavix::Transaction abandoned(dictionary);
        abandoned.resolve("99999", xsdInteger);
    }
    const bool isGone = dictionary.tryResolve("99999", xsdInteger) == 0;
    std::cout << dictionary.countResourcesByDatatypeID()[xsdInteger] << " integers\n";
    return wasAbsent && isPresent && isGone ? EXIT_SUCCESS : EXIT_FAILURE;
}

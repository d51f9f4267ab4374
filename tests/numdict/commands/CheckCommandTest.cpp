#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>

using namespace kavix::numdict;

TEST(CheckCommand, ExitCodesTellWhatHappened) {
    const StoreFolder folder;
    const ExpectedEnd rows[] = {
        {"check well", "check " + folder.m_store, 0, ""},
        {"check a damaged store", "check " + folder.m_damaged, 1, ""},
        {"check what is not a store", "check " + folder.m_records, 1, ""},
        {"check an empty file", "check /dev/null", 2, "is not a regular file"},
        {"check a missing one", "check " + folder.m_missing, 2, "there is no store"},
        {"repair without target", "check --repair " + folder.m_store, 2, "-o"},
        {"target without repair", "check -o " + folder.m_missing + " " + folder.m_store, 2, "--repair"},
        {"repair in place", "check --repair -o " + folder.m_store + " " + folder.m_store, 2, "another file"},
        {"repair what is not a store", "check --repair -o " + folder.m_missing + " " + folder.m_records, 1, ""},
        {"check with too little memory", "check --memory 100K " + folder.m_store, 3, "--memory"},
    };
    folder.expectEnds(rows);
}

// Long random sequences of everything that changes a dictionary, against a model of maps and vectors.

#include "core/data-store/embedding/Dictionary.h"

#include "core/data-store/embedding/Restoration.h"
#include "core/data-store/embedding/Transaction.h"
#include "support/SampleStore.h"
#include "support/Scale.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;

namespace {

using Literal = std::pair<uint8_t, std::string>; // datatype ID, canonical lexical form

/// What a dictionary must hold, too simple to be wrong.
struct Model {

    std::map<Literal, uint64_t> m_resourceIDs;

    void compact(const std::vector<uint64_t>& newResourceIDs) {
        std::map<Literal, uint64_t> kept;
        for (const auto& [literal, resourceID] : m_resourceIDs)
            if (newResourceIDs[resourceID] != 0)
                kept[literal] = newResourceIDs[resourceID];
        m_resourceIDs = std::move(kept);
    }
};

class Comparison {

public:

    Comparison(ResourceIDWidth width, uint64_t seed) :
        m_width(width),
        m_random(seed),
        m_dictionary(makeDictionary()) { }

    void run(size_t numberOfSteps) {
        for (size_t step = 0; step < numberOfSteps && !::testing::Test::HasFatalFailure(); ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            doStep();
            compare();
        }
    }

private:

    std::unique_ptr<Dictionary> makeDictionary() const {
        Dictionary::Options options;
        options.resourceIDWidth = m_width;
        options.maxResourceID = 1 << 22;
        return std::make_unique<Dictionary>(options);
    }

    uint64_t choose(uint64_t end) { return m_random() % end; }

    /// From a narrow range, so that values come again.
    Literal makeLiteral() {
        const uint64_t number = choose(400);
        switch (choose(5)) {
        case 0:
            return {D_XSD_INTEGER, (number == 0 ? "" : "-") + std::to_string(number)};
        case 1:
            return {D_XSD_INT, std::to_string(number)};
        case 2:
            return {D_XSD_UNSIGNED_LONG, std::to_string(number << 40)}; // all in one cluster
        case 3:
            return {D_XSD_DECIMAL, std::to_string(number) + ".5"};
        default:
            return {D_XSD_DECIMAL, std::to_string(number)};
        }
    }

    void doStep() {
        switch (choose(12)) {
        case 0:
        case 1:
        case 2:
            resolveOne();
            break;
        case 3:
        case 4:
        case 5:
            runTransaction(true);
            break;
        case 6:
        case 7:
            runTransaction(false);
            break;
        case 8:
            saveAndOpen();
            break;
        case 9:
            compact();
            break;
        case 10:
            restore();
            break;
        default:
            if (choose(10) == 0) {
                m_dictionary = makeDictionary();
                m_model = Model();
            }
        }
    }

    void resolveOne() {
        const Literal literal = makeLiteral();
        const Dictionary::Snapshot before = m_dictionary->takeSnapshot();
        const auto known = m_model.m_resourceIDs.find(literal);
        const uint64_t resourceID = m_dictionary->resolve(literal.second, literal.first);
        ASSERT_EQ(resourceID, known == m_model.m_resourceIDs.end() ? before.resourceIDEnd : known->second);
        m_model.m_resourceIDs[literal] = resourceID;
    }

    void runTransaction(bool isCommitted) {
        const Dictionary::Snapshot before = m_dictionary->takeSnapshot();
        Model changed = m_model;
        Transaction transaction(*m_dictionary);
        const uint64_t numberOfValues = choose(3) == 0 ? choose(1500) : choose(40);
        for (uint64_t i = 0; i < numberOfValues; ++i) {
            const Literal literal = makeLiteral();
            const uint64_t resourceID = transaction.resolve(literal.second, literal.first);
            const auto known = changed.m_resourceIDs.find(literal);
            if (known != changed.m_resourceIDs.end())
                ASSERT_EQ(resourceID, known->second);
            else {
                ASSERT_GE(resourceID, before.resourceIDEnd) << "an ID that was given out before";
                changed.m_resourceIDs[literal] = resourceID;
            }
            const auto old = m_model.m_resourceIDs.find(literal);
            ASSERT_EQ(
                m_dictionary->tryResolve(literal.second, literal.first, before),
                old == m_model.m_resourceIDs.end() ? 0 : old->second)
                << "through the snapshot";
        }
        if (isCommitted) {
            transaction.commit();
            m_model = std::move(changed);
        }
        else
            transaction.rollback();
    }

    void saveAndOpen() {
        const std::string bytes = test::saveStore(*m_dictionary);
        std::unique_ptr<Dictionary> opened = test::openStore(bytes, choose(2) == 0);
        ASSERT_EQ(test::saveStore(*opened), bytes);
        ASSERT_EQ(opened->takeSnapshot(), m_dictionary->takeSnapshot());
        m_dictionary = std::move(opened);
    }

    void compact() {
        const uint64_t divisor = choose(4);
        const uint64_t usedBytes = m_dictionary->getUsedBytes();
        m_model.compact(m_dictionary->compact(
            [divisor](uint64_t resourceID) { return divisor == 0 || resourceID % (divisor + 1) != 0; }));
        ASSERT_EQ(m_dictionary->takeSnapshot().resourceIDEnd, m_model.m_resourceIDs.size() + 1);
        ASSERT_LE(m_dictionary->getUsedBytes(), usedBytes);
    }

    /// Into a new dictionary, from the model, in random order; sometimes given up and begun again.
    void restore() {
        std::vector<std::pair<Literal, uint64_t>> records(m_model.m_resourceIDs.begin(), m_model.m_resourceIDs.end());
        std::shuffle(records.begin(), records.end(), m_random);
        m_dictionary = makeDictionary();
        std::vector<uint64_t> counts(256);
        for (const auto& [literal, resourceID] : records)
            ++counts[literal.first];
        for (const bool isFinished : {choose(2) == 0, true}) {
            Restoration restoration(*m_dictionary, choose(2) == 0 ? counts : std::vector<uint64_t>());
            for (const auto& [literal, resourceID] : records)
                restoration.restore(resourceID, literal.second, literal.first);
            if (isFinished) {
                restoration.finish();
                break;
            }
        }
    }

    void compare() {
        ASSERT_EQ(test::findProblems(*m_dictionary), std::vector<std::string>());
        std::map<uint64_t, Literal> literals;
        for (const auto& [literal, resourceID] : m_model.m_resourceIDs) {
            ASSERT_EQ(m_dictionary->tryResolve(literal.second, literal.first), resourceID) << literal.second;
            literals[resourceID] = literal;
        }
        std::array<uint64_t, 256> counts{};
        for (uint64_t resourceID = 0; resourceID < m_dictionary->takeSnapshot().resourceIDEnd + 10; ++resourceID) {
            const auto expected = literals.find(resourceID);
            const uint8_t datatypeID = m_dictionary->tryGetResourceDatatypeID(resourceID);
            ASSERT_EQ(datatypeID, expected == literals.end() ? uint8_t(D_NONE) : expected->second.first)
                << "ID " << resourceID;
            if (datatypeID != D_NONE) {
                ASSERT_EQ(m_dictionary->getLexicalForm(resourceID), expected->second.second);
                ++counts[datatypeID];
            }
        }
        ASSERT_EQ(m_dictionary->countResourcesByDatatypeID(), counts);
        for (int i = 0; i < 20; ++i) { // what must be absent
            const Literal literal = makeLiteral();
            ASSERT_EQ(
                m_dictionary->tryResolve(literal.second, literal.first) != 0, m_model.m_resourceIDs.count(literal) != 0)
                << literal.second;
        }
    }

    const ResourceIDWidth m_width;
    std::mt19937_64 m_random;
    std::unique_ptr<Dictionary> m_dictionary;
    Model m_model;
};

/// KAVIX_SEED replays or adds one seed; KAVIX_ROUNDS runs that many more.
std::vector<uint64_t> getSeeds() {
    if (const char* const seed = std::getenv("KAVIX_SEED"))
        return {std::strtoull(seed, nullptr, 10)};
    std::vector<uint64_t> seeds{1, 2, 3};
    if (const char* const rounds = std::getenv("KAVIX_ROUNDS"))
        for (uint64_t seed = 0; seed < std::strtoull(rounds, nullptr, 10); ++seed)
            seeds.push_back(1000 + seed);
    return seeds;
}

}

TEST(Dictionary, EverySequenceOfOperationsAgreesWithTheModel) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const uint64_t seed : getSeeds()) {
            SCOPED_TRACE("KAVIX_SEED=" + std::to_string(seed) + (width == ResourceIDWidth::BITS_32 ? ", 32" : ", 64"));
            Comparison(width, seed).run(250 / test::STRESS_DIVISOR);
        }
}

}

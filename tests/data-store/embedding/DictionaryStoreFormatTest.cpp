// The format of stores, as tools/inspect_store.py reads it: the program shares no code with the library, so it shows
// whether a store is what docs/store-file.md says.

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/Prefixes.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/data-store/store/Checksum.h"
#include "core/data-store/store/StoreFormat.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/FileOutputStream.h"
#include "core/platform/system/VMPageSize.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>

#include <sys/wait.h>

namespace kavix::test {

namespace {

constexpr char TOOLS[] = KAVIX_SOURCE_DIRECTORY "/tools";

struct Outcome {
    int m_exitStatus;
    std::string m_output;
    std::string m_errors;
};

class DictionaryStoreFormatTest : public ::testing::Test {

protected:

    std::string write(const std::string& name, const std::string& content) const {
        writeFile(m_folder / name, content);
        return m_folder / name;
    }

    std::string save(const Dictionary& dictionary) const {
        FileOutputStream file(m_folder / "store");
        dictionary.saveStore(file);
        file.close();
        return m_folder / "store";
    }

    /// Runs Python: without site packages, and without its leaving compiled files in the source tree.
    Outcome runPython(const std::string& arguments) const {
        const std::string command =
            "python3 -B -S " + arguments + " >'" + (m_folder / "output") + "' 2>'" + (m_folder / "errors") + "'";
        const int status = std::system(command.c_str());
        return Outcome{
            WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(m_folder / "output"), readFile(m_folder / "errors")};
    }

    Outcome inspect(const std::string& arguments) const {
        return runPython("'" + std::string(TOOLS) + "/inspect_store.py' " + arguments);
    }

    const TemporaryFolder m_folder;
};

/// What the inspector should print of a dictionary.
std::string describe(const Dictionary& dictionary) {
    std::string lines;
    const uint64_t end = dictionary.takeSnapshot().resourceIDEnd;
    for (uint64_t resourceID = 0; resourceID < end; ++resourceID) {
        const uint8_t datatypeID = dictionary.tryGetResourceDatatypeID(resourceID);
        if (datatypeID == D_NONE)
            continue;
        const std::string_view datatypeIRI = Dictionary::getDatatypeIRI(datatypeID);
        lines += std::to_string(resourceID) + '\t';
        Prefixes::s_defaultPrefixes.encodeIRI(datatypeIRI.data(), datatypeIRI.size(), lines);
        lines += '\t' + dictionary.getTurtleLiteral(resourceID) + '\n';
    }
    return lines;
}

/// Enters what every datatype takes of values at and around the bounds of the types, in single operations, in a
/// transaction and in one that is rolled back, so that there are IDs without a resource.
void fill(Dictionary& dictionary) {
    const char* const integers[] = {
        "-9223372036854775808", "-2147483649",        "-129", "-128", "-1", "0", "1", "127", "255", "256", "65535",
        "4294967295",           "9223372036854775807"};
    const char* const decimals[] = {
        "0",
        "7",
        "0.5",
        "-0.5",
        "10.05",
        "-0.9223372036854775808",
        "0.0000000000000000001",
        "-9223372036854775808",
        "922337203685477580.7"};
    const auto resolveAll = [&](auto& destination) {
        for (const char* const decimal : decimals)
            destination.resolve(decimal, D_XSD_DECIMAL);
        for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
            for (const char* const integer : integers)
                try {
                    destination.resolve(integer, datatypeID);
                }
                catch (const KavixException&) {
                    // Not a value of this datatype.
                }
    };
    dictionary.resolve("12.25", D_XSD_DECIMAL);
    {
        Transaction transaction(dictionary);
        transaction.resolve("99.75", D_XSD_DECIMAL);
        transaction.resolve("99", D_XSD_BYTE);
    }
    Transaction transaction(dictionary);
    resolveAll(transaction);
    transaction.commit();
    dictionary.resolve("-12", D_XSD_SHORT);
}

/// Where a section begins.
size_t getOffset(const std::string& store, size_t index) {
    StoreFormat::Section section;
    std::memcpy(&section, store.data() + sizeof(StoreFormat::Header) + index * sizeof(section), sizeof(section));
    return section.m_offset;
}

}

TEST_F(DictionaryStoreFormatTest, PrintsWhatTheDictionarySays) {
    for (const ResourceIDWidth width : {ResourceIDWidth::BITS_32, ResourceIDWidth::BITS_64}) {
        SCOPED_TRACE(static_cast<unsigned>(width));
        Dictionary dictionary({.memoryBudgetBytes = 64 << 20, .resourceIDWidth = width});
        fill(dictionary);
        const std::string expected = describe(dictionary);
        ASSERT_NE(expected.find("\txsd:unsignedByte\t\"255\"^^xsd:unsignedByte\n"), std::string::npos);
        ASSERT_EQ(expected.find("99.75"), std::string::npos);
        const std::string fileName = save(dictionary);

        const Outcome outcome = inspect(fileName);

        EXPECT_EQ(outcome.m_errors, "");
        EXPECT_EQ(outcome.m_exitStatus, 0);
        EXPECT_EQ(outcome.m_output, expected);
    }
}

TEST_F(DictionaryStoreFormatTest, PrintsNothingForAnEmptyStore) {
    const Dictionary dictionary({.memoryBudgetBytes = 64 << 20});

    const Outcome outcome = inspect(save(dictionary));

    EXPECT_EQ(outcome.m_errors, "");
    EXPECT_EQ(outcome.m_exitStatus, 0);
    EXPECT_EQ(outcome.m_output, "");
}

TEST_F(DictionaryStoreFormatTest, ListsTheFrame) {
    Dictionary dictionary({.memoryBudgetBytes = 64 << 20, .maxResourceID = 5000});
    dictionary.resolve("0.5", D_XSD_DECIMAL);
    dictionary.resolve("-2", D_XSD_INTEGER);

    const Outcome outcome = inspect("--frame --no-checksums " + save(dictionary));

    EXPECT_EQ(outcome.m_exitStatus, 0);
    for (const char* const line :
         {"format version\t1\n", "library version\t0.1.0\n", "resource ID width\t32\n", "number of sections\t5\n",
          "section\tcounters\t248\t32\t", "section\tdatatypes\t280\t3\t", "section\tdata\t283\t24\t",
          "section\tpool\t307\t13\t", "section\tdictionary-22\t320\t236581\t", "\tnot verified\n",
          "next resource ID\t3\n", "bound of resource IDs\t5000\n", "end of the data pool\t77\n",
          "number of resources\t2\n"})
        EXPECT_NE(outcome.m_output.find(line), std::string::npos) << line << "is not in\n" << outcome.m_output;
}

TEST_F(DictionaryStoreFormatTest, ItsChecksumIsTheLibrarysForEveryLength) {
    // Both sides of every length at which XXH3 goes another way: 0, 3, 8, 16, 32, 64, 96, 128, 240, stripes, blocks of
    // 1024.
    std::string data;
    std::string expected;
    for (size_t length = 0; length <= 8200; ++length) {
        if (length <= 600 || length % 1024 <= 1 || length % 1024 == 1023 || length % 64 == 33) {
            Checksum checksum;
            checksum.update(data.data(), length);
            char line[64];
            std::snprintf(
                line, sizeof(line), "%zu %016llx\n", length, static_cast<unsigned long long>(checksum.getValue()));
            expected += line;
        }
        data.push_back(static_cast<char>(length * length * 31 + length * 7 + (length >> 5)));
    }
    const std::string fileName = write("data", data);

    const Outcome outcome = runPython(
        "-c '"
        "import sys; sys.path.insert(0, sys.argv[1]); import inspect_store\n"
        "data = open(sys.argv[2], \"rb\").read()\n"
        "for length in range(8201):\n"
        "    if length <= 600 or length % 1024 <= 1 or length % 1024 == 1023 or length % 64 == 33:\n"
        "        print(length, \"%016x\" % inspect_store.get_checksum(data[:length]))\n"
        "' '" +
        std::string(TOOLS) + "' '" + fileName + "'");

    EXPECT_EQ(outcome.m_errors, "");
    EXPECT_EQ(outcome.m_output, expected);
}

constexpr uint64_t LARGEST_POOL_END = (1ULL << 30) + 40ULL * Dictionary::MAX_RESOURCE_ID_32;
constexpr uint64_t BEYOND_LARGEST_POOL_END = LARGEST_POOL_END + 1;

/// How a store of a decimal, an integer and a byte is changed, and why it is refused.
struct Damage {
    const char* name;
    const char* options;
    void (*change)(std::string& store);
    const char* expected;
};

constexpr Damage DAMAGES[] = {
    {"empty", "", [](std::string& store) { store.clear(); }, "not a Kavix store"},
    {"foreign", "", [](std::string& store) { store = "@prefix : <http://example.org/> ."; }, "not a Kavix store"},
    {"cut header", "", [](std::string& store) { store.resize(39); }, "the file ends in the middle of its header"},
    {"cut table", "", [](std::string& store) { store.resize(247); },
     "the file ends in the middle of its table of sections"},
    {"cut end", "", [](std::string& store) { store.pop_back(); }, "the file is shorter than its sections"},
    {"one byte more", "", [](std::string& store) { store.push_back('\0'); }, "there is data after the last section"},
    {"newer", "", [](std::string& store) { store[8] = 2; },
     "format version 2 is not supported (this program reads version 1)"},
    {"other byte order", "", [](std::string& store) { store[12] = 1; },
     "written on a machine with a different byte order"},
    {"width", "", [](std::string& store) { store[20] = 16; }, "unsupported resource ID width of 16 bits"},
    {"sections", "", [](std::string& store) { store[32] = 65; }, "invalid number of sections, 65"},
    {"header bit", "", [](std::string& store) { store[16] = 7; }, "the checksum of its header is wrong"},
    {"position", "--no-checksums", [](std::string& store) { ++store[96]; },
     "the position of section 'datatypes' is wrong"},
    {"last bit", "", [](std::string& store) { store.back() ^= 1; }, "the checksum of section 'dictionary-22' is wrong"},
    {"last bit in the frame", "--frame", [](std::string& store) { store.back() ^= 1; },
     "the checksum of section 'dictionary-22' is wrong"},
    {"unknown datatype", "--no-checksums", [](std::string& store) { store[getOffset(store, 1) + 1] = 36; },
     "resource 1 has the unknown datatype ID 36"},
    {"count of resources", "--no-checksums", [](std::string& store) { ++store[248 + 24]; },
     "it has 3 resources and counts 4"},
    {"next ID", "--no-checksums", [](std::string& store) { store[248] = 0; }, "invalid next resource ID 0"},
    {"pool end", "--no-checksums",
     [](std::string& store) { std::memcpy(store.data() + 248 + 16, &LARGEST_POOL_END, sizeof(uint64_t)); },
     "section 'pool' has 13 bytes instead of 172872433520"},
    {"pool end beyond", "--no-checksums",
     [](std::string& store) { std::memcpy(store.data() + 248 + 16, &BEYOND_LARGEST_POOL_END, sizeof(uint64_t)); },
     "invalid end of the data pool, 172872433585"},
    {"resource 0", "--no-checksums", [](std::string& store) { store[getOffset(store, 1)] = 22; },
     "resource ID 0, which is reserved, has a datatype"},
    {"range", "--no-checksums", [](std::string& store) { store[getOffset(store, 2) + 3 * 8 + 1] = 1; },
     "resource 3: its value 263 is not in the range of xsd:byte"},
    {"record outside", "--no-checksums", [](std::string& store) { ++store[getOffset(store, 2) + 8]; },
     "resource 1: its record at offset 65 is outside the data pool"},
    {"record of another", "--no-checksums", [](std::string& store) { store[getOffset(store, 3)] = 2; },
     "resource 1: its record belongs to resource 2"},
    {"not normalised", "--no-checksums", [](std::string& store) { store[getOffset(store, 3) + 4] = 10; },
     "resource 1: its decimal is not normalised, or has more than 19 fraction digits"},
};

/// Inspects many files in one process: starting Python takes longer than the rest of the test.
constexpr char INSPECT_ALL[] =
    "import contextlib, io, sys; sys.path.insert(0, sys.argv[1]); import inspect_store\n"
    "arguments = sys.argv[2:]\n"
    "for options, name in zip(arguments[::2], arguments[1::2]):\n"
    "    sys.argv = [\"inspect_store.py\", *options.split(), name]\n"
    "    with contextlib.redirect_stderr(io.StringIO()) as errors, contextlib.redirect_stdout(io.StringIO()) as "
    "output:\n"
    "        status = inspect_store.main()\n"
    "    print(status, errors.getvalue(), end=\"\")\n"
    "    if \"0.5\" in output.getvalue():\n"
    "        print(\"resources were printed\")\n";

TEST_F(DictionaryStoreFormatTest, RefusesDamagedAndForeignFiles) {
    Dictionary dictionary({.memoryBudgetBytes = 64 << 20});
    dictionary.resolve("0.5", D_XSD_DECIMAL);
    dictionary.resolve("-2", D_XSD_INTEGER);
    dictionary.resolve("7", D_XSD_BYTE);
    const std::string intact = readFile(save(dictionary));
    std::string arguments;
    std::string expected;
    for (const Damage& row : DAMAGES) {
        std::string store = intact;
        row.change(store);
        const std::string fileName = write(row.name, store);
        arguments += std::string(" '") + row.options + "' '" + fileName + "'";
        expected += "1 " + fileName + ": " + row.expected + ".\n";
    }

    const Outcome outcome = runPython(std::string("-c '") + INSPECT_ALL + "' '" + std::string(TOOLS) + "'" + arguments);

    EXPECT_EQ(outcome.m_errors, "");
    EXPECT_EQ(outcome.m_output, expected);
}

TEST_F(DictionaryStoreFormatTest, DistinguishesMissingFilesFromUsageErrors) {
    const Outcome missing = inspect(m_folder / "nothing");
    EXPECT_EQ(missing.m_exitStatus, 1);
    EXPECT_EQ(missing.m_errors, (m_folder / "nothing") + ": No such file or directory.\n");

    EXPECT_EQ(inspect("").m_exitStatus, 2);
    EXPECT_EQ(inspect("--unknown file").m_exitStatus, 2);
}

TEST_F(DictionaryStoreFormatTest, TheExampleInTheDocumentIsARealStore) {
    if (getVMPageSize() != 4096)
        GTEST_SKIP() << "The example was written on a machine with pages of 4096 bytes.";
    Dictionary dictionary({.memoryBudgetBytes = 64 << 20});
    dictionary.resolve("0.5", D_XSD_DECIMAL);
    dictionary.resolve("-2", D_XSD_INTEGER);
    dictionary.resolve("7", D_XSD_INT);
    const std::string store = readFile(save(dictionary));
    EXPECT_EQ(store.size(), 236910u);

    // Lines of the dump: an offset of six digits, two spaces, bytes of two digits with a space between them.
    const std::regex dumpLine("    ([0-9a-f]{6})  (([0-9a-f]{2} )*[0-9a-f]{2})(   .*)?");
    std::istringstream document(readFile(KAVIX_SOURCE_DIRECTORY "/docs/store-file.md"));
    size_t position = 0;
    std::smatch match;
    for (std::string line; std::getline(document, line);)
        if (std::regex_match(line, match, dumpLine)) {
            SCOPED_TRACE(line);
            EXPECT_EQ(std::stoul(match[1], nullptr, 16), position);
            std::istringstream bytes(match[2]);
            for (std::string byte; bytes >> byte; ++position)
                EXPECT_EQ(std::stoul(byte, nullptr, 16), static_cast<uint8_t>(store[position]));
        }
    EXPECT_EQ(position, 0x160u) << "the dump ends elsewhere";
}

}

// Writes the seeds of the corpus: MakeCorpus FOLDER. Each is a small input of which mutations are worth trying.

#include <array>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

template<typename... Numbers>
std::string join(Numbers... numbers) {
    std::string bytes;
    (bytes.append(reinterpret_cast<const char*>(&numbers), sizeof(numbers)), ...);
    return bytes;
}

class Corpus {

public:

    explicit Corpus(const std::filesystem::path& folder) :
        m_folder(folder) { }

    void add(const std::string& fuzzer, const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories(m_folder / fuzzer);
        std::ofstream output(m_folder / fuzzer / name, std::ios::binary);
        output << bytes;
        if (!output.flush())
            throw std::runtime_error("cannot write " + name);
    }

private:

    const std::filesystem::path m_folder;
};

/// kind, place, number; the place counts the fourteen tables first. The table of xsd:int is 7.
std::string changeImage(uint8_t kind, unsigned table, unsigned index, uint64_t number) {
    return join(kind, static_cast<uint16_t>(index * 14 + table), number);
}

struct NamedChange {
    const char* m_name;
    std::string m_bytes;
};

std::array<NamedChange, 14> getImageChanges() {
    const uint64_t all = UINT64_MAX;
    return {{
        {"buckets-2048", changeImage(0, 7, 0, 2048)},
        {"buckets-2-63", changeImage(0, 7, 0, uint64_t(1) << 63)},
        {"threshold", changeImage(0, 0, 1, 1024)},
        {"used", changeImage(0, 7, 2, 716)},
        {"deleted", changeImage(0, 9, 3, 0)},
        {"region-maximum", changeImage(0, 7, 4, uint64_t(1) << 39)},
        {"region-end", changeImage(0, 13, 5, 1023)},
        {"reservations", changeImage(0, 7, 2, 5000) + changeImage(1, 7, 0, 4999)},
        {"busy", changeImage(2, 1, 3, all)},
        {"deleted-bucket", changeImage(2, 7, 3, all - 1)},
        {"foreign-ID", changeImage(2, 7, 400, 4)},
        {"record-offset", changeImage(2, 0, 0, 64)},
        {"header", join(uint8_t(4), uint16_t(8), uint64_t('n'))},
        {"length", join(uint8_t(5), uint16_t(0), uint64_t(100'000))},
    }};
}

void makeCorpus(const Corpus& corpus) {
    for (uint8_t flags = 0; flags < 16; ++flags)
        corpus.add("store", "sound-" + std::to_string(flags), join(flags, uint8_t(0)));
    for (const uint8_t flags : {uint8_t(2), uint8_t(3), uint8_t(6), uint8_t(10)})
        for (const NamedChange& change : getImageChanges()) {
            uint8_t section = 4;
            std::string bytes = join(flags, static_cast<uint8_t>(change.m_bytes.size() / 11));
            for (size_t position = 0; position < change.m_bytes.size(); position += 11)
                bytes += join(section) + change.m_bytes.substr(position, 11);
            corpus.add("store", std::string(change.m_name) + "-" + std::to_string(flags), bytes);
        }
    const auto addSectionChange = [&corpus](const std::string& name, uint8_t section, uint16_t place, uint64_t number) {
        corpus.add("store", name, join(uint8_t(2), uint8_t(1), section, place, number));
    };
    addSectionChange("next-ID", 0, 0, 8);
    addSectionChange("maximum-ID", 0, 8, uint64_t(1) << 32);
    addSectionChange("pool-end", 0, 16, uint64_t(1) << 40);
    addSectionChange("resources", 0, 24, 0);
    addSectionChange("datatype", 65, 3, 29);
    addSectionChange("data-word", 2, 24, 12345);
    addSectionChange("record-ID", 67, 0, 9);
    addSectionChange("fraction-digits", 67, 12, 20);
    addSectionChange("short-pool", 195, 0, 10);
    for (const int place : {8, 12, 16, 20, 32, 40, 56, 64, 72})
        corpus.add(
            "store", "frame-" + std::to_string(place),
            join(uint8_t(2), uint8_t(0), static_cast<uint8_t>(place), uint64_t(0x0102030405060708)));

    for (const uint8_t flags : {uint8_t(0), uint8_t(1)}) {
        corpus.add("dictionary-image", "sound-" + std::to_string(flags), join(flags));
        for (const NamedChange& change : getImageChanges())
            corpus.add(
                "dictionary-image", std::string(change.m_name) + "-" + std::to_string(flags),
                join(flags) + change.m_bytes);
    }

    for (const uint8_t wide : {uint8_t(0), uint8_t(1)}) {
        const std::string suffix = wide == 0 ? "-bytes" : "-words";
        const auto addRegion = [&](const std::string& name, uint64_t maximum, uint64_t end, size_t numberOfBytes) {
            corpus.add("region-image", name + suffix, join(wide, maximum, end) + std::string(numberOfBytes, 'x'));
        };
        corpus.add("region-image", "none" + suffix, join(wide, uint64_t(0)));
        addRegion("empty", 100, 0, 0);
        addRegion("some", 100, 8, 64);
        addRegion("full", 16, 16, 128);
        addRegion("short", 100, 8, 7);
        addRegion("end-beyond", 8, 9, 128);
        addRegion("wrapping", uint64_t(1) << 61, uint64_t(1) << 61, 0);
        addRegion("huge", UINT64_MAX, 1, 8);
        addRegion("budget", uint64_t(1) << 30, uint64_t(1) << 21, 8);
    }
}

}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: MakeCorpus FOLDER\n", stderr);
        return 2;
    }
    try {
        makeCorpus(Corpus(argv[1]));
        return 0;
    }
    catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        return 1;
    }
}

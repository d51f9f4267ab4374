/// How fast are numbers parsed and printed, by their number of digits, compared with std::from_chars and std::to_chars?
///
/// Names are OPERATION/CONTESTANT/DIGITS. Every number is random with exactly that many digits.

#include "core/data-store/numbers/IntegerText.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "support/Keys.h"

#include <benchmark/benchmark.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kavix::benchmarks {

constexpr size_t NUMBER_OF_TEXTS = 1024; // they fit in the first-level cache

/// Random numbers with a number of digits, below 10^18 or at most the largest signed 64-bit number.
std::vector<uint64_t> makeNumbers(size_t digits) {
    uint64_t smallest = 1;
    for (size_t digit = 1; digit < digits; ++digit)
        smallest *= 10;
    const uint64_t count = digits == 19 ? (uint64_t(INT64_MAX) - smallest) : 9 * smallest;
    std::vector<uint64_t> numbers(NUMBER_OF_TEXTS);
    for (size_t index = 0; index < numbers.size(); ++index)
        numbers[index] = smallest + static_cast<uint64_t>(makeRandomInteger(index)) % count;
    return numbers;
}

struct Text {
    std::array<char, 24> m_characters;
    size_t m_length;
};

/// @param fractionDigits  how many of the digits follow the point; 0 for an integer
std::vector<Text> makeTexts(size_t digits, size_t fractionDigits) {
    std::vector<Text> texts;
    for (const uint64_t number : makeNumbers(digits)) {
        std::string string = std::to_string(number | 1); // odd: the last digit is not zero, so no form is shortened
        if (fractionDigits > 0)
            string.insert(string.size() - fractionDigits, 1, '.');
        Text text{};
        string.copy(text.m_characters.data(), string.size());
        text.m_length = string.size();
        texts.push_back(text);
    }
    return texts;
}

// The loops are separate functions, so that the code of every contestant's loop has the same layout, independent of the
// caller.

[[gnu::noinline]] int64_t parseOurs(const std::vector<Text>& texts) {
    int64_t sum = 0;
    for (const Text& text : texts)
        sum += parseIntegerSigned(text.m_characters.data(), text.m_length).second;
    return sum;
}

[[gnu::noinline]] int64_t parseStandard(const std::vector<Text>& texts) {
    int64_t sum = 0;
    for (const Text& text : texts) {
        int64_t value = 0;
        std::from_chars(text.m_characters.data(), text.m_characters.data() + text.m_length, value);
        sum += value;
    }
    return sum;
}

[[gnu::noinline]] int64_t parseDecimals(const std::vector<Text>& texts) {
    int64_t sum = 0;
    XSDDecimal value;
    for (const Text& text : texts) {
        XSDDecimal::tryParse(text.m_characters.data(), text.m_length, value);
        sum += value.getUnscaledValue();
    }
    return sum;
}

/// The nearest equivalent in the standard library; it rounds to a double.
[[gnu::noinline]] double parseDoubles(const std::vector<Text>& texts) {
    double sum = 0;
    for (const Text& text : texts) {
        double value = 0;
        std::from_chars(text.m_characters.data(), text.m_characters.data() + text.m_length, value);
        sum += value;
    }
    return sum;
}

[[gnu::noinline]] size_t printOurs(const std::vector<uint64_t>& numbers, char* buffer) {
    size_t sum = 0;
    for (const uint64_t number : numbers) {
        sum += appendNumber(number, buffer);
        benchmark::ClobberMemory();
    }
    return sum;
}

[[gnu::noinline]] size_t printStandard(const std::vector<uint64_t>& numbers, char* buffer) {
    size_t sum = 0;
    for (const uint64_t number : numbers) {
        sum += static_cast<size_t>(std::to_chars(buffer, buffer + 24, number).ptr - buffer);
        benchmark::ClobberMemory();
    }
    return sum;
}

[[gnu::noinline]] size_t printDecimals(const std::vector<XSDDecimal>& values, char* buffer) {
    size_t sum = 0;
    for (const XSDDecimal& value : values) {
        sum += value.toString(buffer, false);
        benchmark::ClobberMemory();
    }
    return sum;
}

/// The nearest equivalent in the standard library; it searches for the shortest text.
[[gnu::noinline]] size_t printDoubles(const std::vector<double>& values, char* buffer) {
    size_t sum = 0;
    for (const double value : values) {
        sum += static_cast<size_t>(std::to_chars(buffer, buffer + 24, value).ptr - buffer);
        benchmark::ClobberMemory();
    }
    return sum;
}

template<typename Pass>
void measure(benchmark::State& state, Pass pass) {
    for (auto _ : state)
        benchmark::DoNotOptimize(pass());
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(NUMBER_OF_TEXTS));
}

template<typename Parse>
void parse(benchmark::State& state, size_t fractionDigits, Parse parseTexts) {
    const std::vector<Text> texts = makeTexts(static_cast<size_t>(state.range(0)), fractionDigits);
    measure(state, [&] { return parseTexts(texts); });
}

template<typename Print>
void print(benchmark::State& state, Print printNumbers) {
    const std::vector<uint64_t> numbers = makeNumbers(static_cast<size_t>(state.range(0)));
    char buffer[24];
    benchmark::DoNotOptimize(&buffer);
    measure(state, [&] { return printNumbers(numbers, buffer); });
}

void printDecimal(benchmark::State& state) {
    std::vector<XSDDecimal> values;
    for (const Text& text : makeTexts(static_cast<size_t>(state.range(0)), 2))
        values.emplace_back(text.m_characters.data(), text.m_length);
    char buffer[24];
    benchmark::DoNotOptimize(&buffer);
    measure(state, [&] { return printDecimals(values, buffer); });
}

void printDouble(benchmark::State& state) {
    std::vector<double> values;
    for (const Text& text : makeTexts(static_cast<size_t>(state.range(0)), 2))
        values.push_back(XSDDecimal(text.m_characters.data(), text.m_length).toDouble());
    char buffer[24];
    benchmark::DoNotOptimize(&buffer);
    measure(state, [&] { return printDoubles(values, buffer); });
}

template<typename Function>
void registerByDigits(const char* name, int64_t fewest, int64_t most, Function function) {
    auto* registered = benchmark::RegisterBenchmark(name, function);
    for (int64_t digits = fewest; digits <= most; ++digits)
        registered->Arg(digits);
    registered->MinTime(0.02);
}

}

int main(int argc, char** argv) {
    using namespace kavix::benchmarks;
    benchmark::Initialize(&argc, argv);
    registerByDigits("parse_integer/kavix", 1, 19, [](benchmark::State& state) { parse(state, 0, parseOurs); });
    registerByDigits(
        "parse_integer/from_chars", 1, 19, [](benchmark::State& state) { parse(state, 0, parseStandard); });
    registerByDigits("print_integer/kavix", 1, 19, [](benchmark::State& state) { print(state, printOurs); });
    registerByDigits("print_integer/to_chars", 1, 19, [](benchmark::State& state) { print(state, printStandard); });
    registerByDigits("parse_decimal/kavix", 3, 18, [](benchmark::State& state) { parse(state, 2, parseDecimals); });
    registerByDigits(
        "parse_decimal/from_chars-double", 3, 18, [](benchmark::State& state) { parse(state, 2, parseDoubles); });
    registerByDigits("print_decimal/kavix", 3, 18, printDecimal);
    registerByDigits("print_decimal/to_chars-double", 3, 18, printDouble);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

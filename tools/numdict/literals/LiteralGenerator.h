#pragma once

#include <cstdint>
#include <string>

namespace kavix::numdict {

/// Makes statements with numeric literals as shops and sensors would, the same ones for the same seed on every machine.
/// A few values are met very often and many seldom: ranks are drawn with probabilities of about 1/rank.
class LiteralGenerator {

public:

    explicit LiteralGenerator(uint64_t seed) noexcept;

    /// Appends the next statement in N-Triples, with line end.
    void appendStatement(std::string& text);

private:

    uint64_t next() noexcept;

    /// 0 to bound - 1, all alike.
    uint64_t nextBelow(uint64_t bound) noexcept;

    /// 0 to 2^bits - 1; each power of two is as likely as any other, so small ranks are much more likely.
    uint64_t nextRank(unsigned bits) noexcept;

    void appendPrice(std::string& text);
    void appendRating(std::string& text);
    void appendYear(std::string& text);
    void appendIdentifier(std::string& text);
    void appendReading(std::string& text);
    void appendCount(std::string& text);

    uint64_t m_state;
};

}

#pragma once
// Draws from std::mt19937_64, whose output sequence the C++ standard fixes.
// The standard distributions are implementation-defined, so the bounded
// draws are done here: a seed then means the same corpus with any library.

#include <QStringList>

#include <cstdint>
#include <iterator>
#include <random>
#include <vector>

namespace mv::corpus {

class CorpusRandom {
public:
    explicit CorpusRandom(std::uint64_t seed) : m_engine(seed) {}

    // Uniform in [0, n) by rejection, so no value is favoured. n > 0.
    std::uint64_t Below(std::uint64_t n)
    {
        const std::uint64_t limit = UINT64_MAX - UINT64_MAX % n;
        std::uint64_t x = 0;
        do {
            x = m_engine();
        } while (x >= limit);
        return x % n;
    }
    // Uniform in [low, high].
    int Between(int low, int high) { return low + static_cast<int>(Below(static_cast<std::uint64_t>(high - low) + 1)); }
    bool Percent(int chance) { return static_cast<int>(Below(100)) < chance; }

    template <class List>
    const auto& Pick(const List& items)
    {
        return items[static_cast<std::size_t>(Below(static_cast<std::uint64_t>(std::size(items))))];
    }

    // Index into `weights`, each chosen in proportion to its weight.
    int Weighted(const std::vector<int>& weights)
    {
        int total = 0;
        for (int w : weights) total += w;
        int draw = static_cast<int>(Below(static_cast<std::uint64_t>(total)));
        for (size_t i = 0; i < weights.size(); ++i) {
            if (draw < weights[i]) return static_cast<int>(i);
            draw -= weights[i];
        }
        return static_cast<int>(weights.size()) - 1;
    }

    std::uint64_t Next() { return m_engine(); }

private:
    std::mt19937_64 m_engine;
};

}  // namespace mv::corpus

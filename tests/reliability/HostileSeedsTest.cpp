// The PKCS#15 application over a hostile card, one seed per case: every
// operation ends normally or in a card or application exception with a
// clear message; never a crash, a hang or an exception of another kind.
// P15_HOSTILE_CASES sets how many seeds run (from P15_HOSTILE_FIRST_SEED,
// default 1); P15_HOSTILE_SEED replays one.
#include "HostileCard.hpp"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

std::uint64_t fromEnvironment(const char* name, std::uint64_t fallback) {
    const char* value = std::getenv(name);
    return value ? std::stoull(value) : fallback;
}

TEST(HostileCard, EverySeededCaseEndsInAClearErrorOrSuccess) {
    // Seeds that once found a fault run every time: 90100 answers a public
    // key with an even exponent, which the crypto provider refuses.
    std::vector<std::uint64_t> seeds{90100};
    const std::uint64_t first = fromEnvironment("P15_HOSTILE_FIRST_SEED", 1);
    for (std::uint64_t seed = first; seed < first + fromEnvironment("P15_HOSTILE_CASES", 300);) {
        seeds.push_back(seed++);
    }
    if (const std::uint64_t replay = fromEnvironment("P15_HOSTILE_SEED", 0)) {
        seeds = {replay};
    }
    std::uint64_t failedOperations = 0, cleanCases = 0;
    for (const std::uint64_t seed : seeds) {
        const std::string replay = " (replay: P15_HOSTILE_SEED=" + std::to_string(seed) + ")";
        hostile::SeededChoices choices(seed);
        try {
            const hostile::Outcome outcome = hostile::runCase(choices);
            for (const std::string& error : outcome.errors) {
                ASSERT_NE(error.rfind("unclear: ", 0), 0u) << error << replay;
            }
            failedOperations += outcome.errors.size();
            cleanCases += outcome.errors.empty() ? 1 : 0;
        } catch (const std::exception& e) {
            FAIL() << e.what() << replay;
        }
    }
    std::cout << seeds.size() << " hostile-card cases, " << failedOperations
              << " operations refused, " << cleanCases << " cases without an error\n";
    if (seeds.size() >= 100) {
        // The wrapper spoils answers yet lets some cases through untouched.
        EXPECT_GT(failedOperations, seeds.size() / 4);
        EXPECT_GT(cleanCases, 0u);
    }
}

} // namespace

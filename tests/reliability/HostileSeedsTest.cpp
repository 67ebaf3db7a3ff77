// Cards that answer otherwise than the virtual card, through the real card
// layer. A hostile card, one seed per case: every operation ends normally or
// in a card or application exception with a clear message, never a crash, a
// hang or another exception. P15_HOSTILE_CASES seeds run from
// P15_HOSTILE_FIRST_SEED (1); P15_HOSTILE_SEED replays one. A card of another
// make: keys are bound under the algorithm references the application states.
#include "AppOnCard.hpp"
#include "HostileCard.hpp"

#include "app/crypto/ICipher.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/IApplicationInfo.hpp"
#include "card/CardException.hpp"
#include "mw/Hex.hpp"

#include <boost/exception/get_error_info.hpp>
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

using mw::ByteBuffer;

// Each row edits the personalised card (TokenInfo: reference 1 = algRef 1,
// rsaEncryption, signing and deciphering) and binds its key once; a card
// of another make refuses GET DATA of its algorithm list with 6A81.
TEST(ForeignCard, KeysAreBoundUnderTheReferencesTheApplicationStates) {
    const struct {
        bool refuseList, stateNoAlgorithms, decipher;
        std::vector<std::uint32_t> keyReferences; // empty: as personalised
        ByteBuffer algorithm;                     // after 84 01 rr; empty: no tag 80
        unsigned short sw;                        // the card's refusal; 0: the operation works
    } cases[] = {
        {true, false, false, {}, {0x80, 0x01, 0x01}, 0},
        {true, true, false, {}, {}, 0},
        {true, false, true, {1}, {0x80, 0x01, 0x01}, 0},
        {true, false, false, {7}, {0x80, 0x01, 0x07}, 0x6A80},
        {false, false, false, {7}, {0x80, 0x01, 0x01}, 0}, // the card's own list rules
    };
    for (const auto& c : cases) {
        const support::AppOnCard card(support::cardWithKeyImage());
        if (c.refuseList) {
            card.recorder->answer(mw::fromHex("00CA01A000"), 0x6A81); // GET DATA
        }
        const card::IChannel& channel = *card.channel;
        auto application = card.open();
        card.verifyUserPin(*application);
        const auto key = application->getPrivateKeys(channel).at(0);
        if (!c.keyReferences.empty()) {
            key->setAlgorithmReferences(c.keyReferences);
            application->writeCardObject(channel, *key);
        }
        if (c.stateNoAlgorithms) {
            const auto info = application->getApplicationInfo(channel);
            info->setSupportedAlgorithms({});
            application->writeCardObject(channel, *info);
        }
        application = card.open(); // the entries as the card now has them
        card.verifyUserPin(*application);
        const auto privateKey = application->getPrivateKeys(channel).at(0);
        unsigned short sw = 0;
        try {
            if (c.decipher) {
                application->getCipher("1.2.840.113549.1.1.1")
                    ->init(channel, app::crypto::ICipher::Decipher, *privateKey);
            } else {
                const auto signer = application->getSignature("1.2.840.113549.1.1.11");
                signer->init(channel, app::crypto::ISignature::Sign, *privateKey);
                EXPECT_EQ(signer->sign(channel, {1, 2, 3}).size(), 128u);
            }
        } catch (const card::CardException& e) {
            const unsigned short* status = boost::get_error_info<card::StatusCode>(e);
            sw = status ? *status : 1;
        }
        EXPECT_EQ(sw, c.sw);
        const std::vector<ByteBuffer> environments = card.recorder->sent(0x22);
        ASSERT_FALSE(environments.empty());
        const ByteBuffer& sent = environments.back(); // 84 01 rr after the header
        EXPECT_EQ(sent.get(8, sent.size() - 8), c.algorithm);
    }
}

} // namespace

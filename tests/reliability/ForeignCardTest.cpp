// A card of another make: the virtual card without its algorithm list. The
// application binds keys under the algorithm references its PKCS#15
// application states, through the real card layer.
#include "AppOnCard.hpp"
#include "mw/Hex.hpp"

#include "app/crypto/ICipher.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/IApplicationInfo.hpp"
#include "card/CardException.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

namespace {

using mw::ByteBuffer;

// Each row edits the personalised card (TokenInfo: reference 1 = algRef 1,
// rsaEncryption, signing and deciphering) and binds its key once; a card
// of another make refuses GET DATA of its algorithm list with 6A81.
TEST(ForeignCard, KeysAreBoundUnderTheReferencesTheApplicationStates) {
    const struct {
        bool refuseList;
        std::vector<std::uint32_t> keyReferences; // empty: as personalised
        bool stateNoAlgorithms, decipher;
        ByteBuffer algorithm; // after 84 01 rr; empty: no tag 80
        unsigned short sw;    // the card's refusal; 0: the operation works
    } cases[] = {
        {true, {}, false, false, {0x80, 0x01, 0x01}, 0},
        {true, {}, true, false, {}, 0},
        {true, {1}, false, true, {0x80, 0x01, 0x01}, 0},
        {true, {7}, false, false, {0x80, 0x01, 0x07}, 0x6A80},
        {false, {7}, false, false, {0x80, 0x01, 0x01}, 0}, // the card's own list rules
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
            sw = boost::get_error_info<card::StatusCode>(e)
                     ? *boost::get_error_info<card::StatusCode>(e)
                     : 1;
        }
        EXPECT_EQ(sw, c.sw);
        const std::vector<ByteBuffer> environments = card.recorder->sent(0x22);
        ASSERT_FALSE(environments.empty());
        const ByteBuffer& sent = environments.back(); // 84 01 rr after the header
        EXPECT_EQ(sent.get(8, sent.size() - 8), c.algorithm);
    }
}

} // namespace

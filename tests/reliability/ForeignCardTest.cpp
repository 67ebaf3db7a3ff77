// A card of another make: the virtual card without its algorithm list. The
// application binds keys under the algorithm references its PKCS#15
// application states, through the real card layer.
#include "AppOnCard.hpp"

#include "app/crypto/ICipher.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/IApplicationInfo.hpp"
#include "app/object/IPrivateKey.hpp"
#include "card/Apdu.hpp"
#include "card/CardException.hpp"

#include <boost/exception/get_error_info.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace {

using mw::ByteBuffer;

const char* const rsaEncryption = "1.2.840.113549.1.1.1";

// Refuses GET DATA of the algorithm list with 6A81 when asked to; keeps the
// data of every MANAGE SECURITY ENVIRONMENT.
class ForeignTransport : public card::ICardTransport {
public:
    ForeignTransport(std::unique_ptr<card::ICardTransport> honest, bool refuseList,
                     std::vector<ByteBuffer>& environments)
        : honest_(std::move(honest))
        , refuseList_(refuseList)
        , environments_(environments) {}

    ByteBuffer getAtr() const override { return honest_->getAtr(); }
    boost::shared_ptr<ByteBuffer> transmit(const card::Apdu& command) const override {
        const ByteBuffer bytes = command.bytes();
        if (refuseList_ && bytes.get(1) == 0xCA && bytes.get(2) == 0x01 && bytes.get(3) == 0xA0) {
            return boost::make_shared<ByteBuffer>(ByteBuffer{0x6A, 0x81});
        }
        if (bytes.get(1) == 0x22) {
            environments_.push_back(bytes.get(5, bytes.size() - 5));
        }
        return honest_->transmit(command);
    }
    void beginTransaction() const override {}
    void endTransaction() const override {}

private:
    std::unique_ptr<card::ICardTransport> honest_;
    bool refuseList_;
    std::vector<ByteBuffer>& environments_;
};

// Each row edits the personalised card (TokenInfo: reference 1 = algRef 1,
// rsaEncryption, signing and deciphering) and binds its key once.
TEST(ForeignCard, KeysAreBoundUnderTheReferencesTheApplicationStates) {
    const struct {
        bool refuseList;
        std::vector<std::uint32_t> keyReferences; // empty: as personalised
        bool stateNoAlgorithms;
        bool decipher;
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
        std::vector<ByteBuffer> environments;
        const support::AppOnCard card(support::cardWithKeyImage(), [&](auto honest) {
            return std::make_unique<ForeignTransport>(std::move(honest), c.refuseList,
                                                      environments);
        });
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
        try {
            if (c.decipher) {
                application->getCipher(rsaEncryption)
                    ->init(channel, app::crypto::ICipher::Decipher, *privateKey);
            } else {
                const auto signer = application->getSignature("1.2.840.113549.1.1.11");
                signer->init(channel, app::crypto::ISignature::Sign, *privateKey);
                EXPECT_EQ(signer->sign(channel, {1, 2, 3}).size(), 128u);
            }
            EXPECT_EQ(c.sw, 0);
        } catch (const card::CardException& e) {
            const unsigned short* sw = boost::get_error_info<card::StatusCode>(e);
            EXPECT_EQ(sw ? *sw : 0, c.sw);
        }
        ASSERT_FALSE(environments.empty());
        const ByteBuffer& sent = environments.back();
        EXPECT_EQ(sent.get(3, sent.size() - 3), c.algorithm);
    }
}

} // namespace

// What only the in-process virtual card shows: how many commands an
// operation costs, and a card that goes away in the middle of one.
#include "CardFixture.hpp"
#include "TestKeys.hpp"

#include "card/CardException.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/exception/get_error_info.hpp>

namespace hosttest {
namespace {

using namespace card::service;
using Fault = vcard::Instrumentation::Fault;

class InProcessCardTest : public CardTest {
protected:
    std::uint64_t commandsSince(std::uint64_t before) const {
        return virtualCard_->instrumentation().counters().commands - before;
    }
    std::uint64_t commands() const { return commandsSince(0); }
};

TEST_P(InProcessCardTest, WholeFileReadAfterSelectCostsOnlyTheReads) {
    const std::uint64_t before = commands();
    files()->select(*channel_, {0x44, 0x04}); // CDF, 8192 bytes
    EXPECT_EQ(files()->read(*channel_, 0, 0).size(), 8192u);
    EXPECT_EQ(commandsSince(before), 1u + 8192 / 256);
}

TEST_P(InProcessCardTest, LongUpdateIsOneChainedCommand) {
    verifyUserPin();
    fileSystem()->createFile(*channel_,
                             DataObjectCreateParams({0xDF, 0x02, 0x0D, 0x81}, 1000,
                                                    grant(AccessRead | AccessUpdate, always())));
    const std::uint64_t before = commands();
    files()->update(*channel_, 0, mw::ByteBuffer(1000));
    EXPECT_EQ(commandsSince(before), 4u); // 255 + 255 + 255 + 235 bytes
}

TEST_P(InProcessCardTest, LongAnswersAndChainedCryptogramsOf2048BitKeys) {
    const KeyRef privateKey = keyRef(0x0D, 2048, 0x0E);
    const KeyRef publicKey = keyRef(0x0D, 2048, 0x0F);
    verifyUserPin();
    fileSystem()->createFile(
        *channel_,
        PrivateKeyCreateParams(privateKey, grant(AccessUpdate | AccessExecute, always())));
    fileSystem()->createFile(
        *channel_, PublicKeyCreateParams(publicKey, grant(AccessRead | AccessUpdate, always())));

    std::uint64_t before = commands();
    const auto generated = keys()->generateKeyPair(*channel_, privateKey, publicKey);
    EXPECT_EQ(commandsSince(before), 2u); // GENERATE, GET RESPONSE

    const auto cipher = crypto()->getCipher("1.2.840.113549.1.1.1");
    cipher->init(*channel_, privateKey, ICardKeyOperation::Decipher);
    const mw::ByteBuffer message{1, 2, 3, 4, 5};
    const mw::ByteBuffer cryptogram = encipher(generated, message);
    before = commands();
    EXPECT_EQ(cipher->decipher(*channel_, cryptogram), message);
    EXPECT_EQ(commandsSince(before), 2u); // 00 || 256 bytes in two chained parts
}

TEST_P(InProcessCardTest, KeyCommandsSelectTheApplicationOnlyWhenOutsideIt) {
    const KeyRef key = keyRef(0x01, 1024, 0x0E);
    const auto signer = crypto()->getSignature("1.2.840.113549.1.1.1");
    std::uint64_t before = commands();
    EXPECT_CARD_ERROR(signer->init(*channel_, key, ICardKeyOperation::Sign),
                      "Manage Security Environment", 0x6A88);
    EXPECT_EQ(commandsSince(before), 1u);

    files()->select(*channel_, {0x3F, 0x00, 0x2F, 0x00});
    before = commands();
    EXPECT_CARD_ERROR(signer->init(*channel_, key, ICardKeyOperation::Sign),
                      "Manage Security Environment", 0x6A88);
    EXPECT_EQ(commandsSince(before), 2u);
}

TEST_P(InProcessCardTest, CardRemovedInTheMiddleOfAReadIsAClearError) {
    files()->select(*channel_, {0x44, 0x04});
    virtualCard_->instrumentation().injectFault(5, Fault::CardRemoved);
    try {
        files()->read(*channel_, 0, 0);
        FAIL() << "read from a removed card";
    } catch (const card::CardException& e) {
        const char* const* text = boost::get_error_info<card::ErrorText>(e);
        ASSERT_TRUE(text);
        EXPECT_STREQ(*text, "card removed");
        const char* const* command = boost::get_error_info<card::Command>(e);
        ASSERT_TRUE(command);
        EXPECT_STREQ(*command, "Read Binary");
    }
    // The card stays away: the next command fails the same way at once.
    EXPECT_THROW(files()->select(*channel_, {0x50, 0x31}), card::CardException);
}

INSTANTIATE_TEST_SUITE_P(VirtualCard, InProcessCardTest,
                         ::testing::Values(TransportKind::InProcess), transportName);

} // namespace
} // namespace hosttest

// What only the in-process card shows: commands per operation, removal mid-operation.
#include "CardFixture.hpp"
#include "TestKeys.hpp"

#include "vcard/VirtualCard.hpp"

#include <functional>

namespace hosttest {
namespace {

using namespace card::service;
using card::service::PinInfo;
using Fault = vcard::Instrumentation::Fault;

class InProcessCardTest : public CardTest {
protected:
    // The commands the card received while `work` ran.
    template <class Work> std::uint64_t commandsOf(const Work& work) const {
        const std::uint64_t before = virtualCard_->instrumentation().counters().commands;
        work();
        return virtualCard_->instrumentation().counters().commands - before;
    }
};

// A whole read after its SELECT costs only the reads; the file selected already is not selected
// again, unless a deletion in its DF may have moved the card's current file.
TEST_P(InProcessCardTest, SelectionIsSentOnlyWhenTheCurrentFileChanges) {
    EXPECT_EQ(commandsOf([&] {
                  files()->select(*channel_, {0x44, 0x04}); // CDF, 8192 bytes
                  EXPECT_EQ(files()->read(*channel_, 0, 0).size(), 8192u);
              }),
              1u + apdus(8192 / 256, 1));
    files()->select(*channel_, {0x50, 0x32});
    EXPECT_EQ(commandsOf([&] {
                  files()->select(*channel_, {0x50, 0x32});
                  files()->select(*channel_, {0x3F, 0x00, 0x50, 0x15, 0x50, 0x32}); // the same
              }),
              0u);
    EXPECT_EQ(files()->read(*channel_, 0, 1).size(), 1u);

    verifyUserPin();
    const mw::ByteBuffer scratch{0x0D, 0x82};
    fileSystem()->createFile(
        *channel_, DataObjectCreateParams(scratch, 16, grant(AccessRead | AccessUpdate, always())));
    files()->select(*channel_, {0x50, 0x32});
    fileSystem()->deleteFile(*channel_, scratch);
    EXPECT_EQ(commandsOf([&] { files()->select(*channel_, {0x50, 0x32}); }), 1u);
    EXPECT_EQ(files()->read(*channel_, 0, 1).size(), 1u);
}

TEST_P(InProcessCardTest, LongUpdateIsOneChainedCommand) {
    verifyUserPin();
    fileSystem()->createFile(*channel_,
                             DataObjectCreateParams({0xDF, 0x02, 0x0D, 0x81}, 1000,
                                                    grant(AccessRead | AccessUpdate, always())));
    // Short: 255 + 255 + 255 + 235 bytes; exact multiples of the chunk sizes end without an
    // empty last part.
    EXPECT_EQ(commandsOf([&] { files()->update(*channel_, 0, mw::ByteBuffer(1000)); }),
              apdus(4, 1));
    EXPECT_EQ(commandsOf([&] { files()->update(*channel_, 0, mw::ByteBuffer(510)); }), apdus(2, 1));
    EXPECT_EQ(commandsOf([&] { files()->read(*channel_, 0, 512); }), apdus(2, 1));
    // Data short fields carry goes in short APDUs on either card.
    const std::uint64_t bytesIn = virtualCard_->instrumentation().counters().bytesIn;
    files()->update(*channel_, 0, mw::ByteBuffer(255));
    EXPECT_EQ(virtualCard_->instrumentation().counters().bytesIn - bytesIn, 5u + 255);
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

    boost::optional<card::crypto::spec::RsaPublicKeySpec> generated;
    EXPECT_EQ(
        commandsOf([&] { generated = keys()->generateKeyPair(*channel_, privateKey, publicKey); }),
        apdus(2, 1)); // short: GENERATE, GET RESPONSE
    ASSERT_TRUE(generated);

    const auto cipher = crypto()->getCipher("1.2.840.113549.1.1.1");
    cipher->init(*channel_, privateKey, ICardKeyOperation::Decipher);
    const mw::ByteBuffer message{1, 2, 3, 4, 5};
    const mw::ByteBuffer cryptogram = encipher(*generated, message);
    EXPECT_EQ(commandsOf([&] { EXPECT_EQ(cipher->decipher(*channel_, cryptogram), message); }),
              apdus(2, 1)); // short: 00 || 256 bytes in two parts
}

TEST_P(InProcessCardTest, KeyCommandsSelectTheApplicationOnlyWhenOutsideIt) {
    const KeyRef key = keyRef(0x01, 1024, 0x0E);
    const auto signer = crypto()->getSignature("1.2.840.113549.1.1.1");
    const auto init = [&] {
        EXPECT_CARD_ERROR(signer->init(*channel_, key, ICardKeyOperation::Sign),
                          "Manage Security Environment", 0x6A88);
    };
    EXPECT_EQ(commandsOf(init), 1u);
    files()->select(*channel_, {0x3F, 0x00, 0x2F, 0x00});
    EXPECT_EQ(commandsOf(init), 2u);
}

// 6Cxx to a command without Le must not get the command (and its PIN) sent again.
TEST_P(InProcessCardTest, WrongLengthIsNeverRepeatedForPinCommands) {
    const mw::ByteBuffer pin = paddedPin(userPin);
    const PinReference user = pinReference(0x01);
    const std::tuple<unsigned char, const char*, std::function<void()>> commands[] = {
        {0x20, "Verify", [&] { pins()->authenticate(*channel_, user, pin); }},
        {0x24, "Change Reference Data", [&] { pins()->change(*channel_, user, pin, pin); }},
        {0x2C, "Reset Retry Counter",
         [&] { pins()->unblockAndChange(*channel_, user, paddedPin(puk), pin); }},
    };
    for (const auto& [ins, commandName, command] : commands) {
        virtualCard_->instrumentation().injectStatusWord(ins, 0x6C08);
        EXPECT_EQ(commandsOf([&] { EXPECT_CARD_ERROR(command(), commandName, 0x6C08); }), 1u)
            << commandName;
    }
    EXPECT_EQ(pins()->getPinInfo(*channel_, user).state, PinInfo::NotVerified);
}

TEST_P(InProcessCardTest, CardRemovedInTheMiddleOfAReadIsAClearError) {
    files()->select(*channel_, {0x44, 0x04});
    virtualCard_->instrumentation().injectFault(apdus(5, 1), Fault::CardRemoved);
    EXPECT_CARD_ERROR(files()->read(*channel_, 0, 0), "Read Binary", 0); // no status word
    // The card stays away: the next command fails the same way at once.
    EXPECT_EQ(errorInfo<card::ErrorText>([&] {
                  files()->select(*channel_, {0x50, 0x31});
              }),
              "card removed");
}

INSTANTIATE_TEST_SUITE_P(VirtualCard, InProcessCardTest,
                         ::testing::Values(TransportKind::InProcess, TransportKind::InProcessShort),
                         transportName);

} // namespace
} // namespace hosttest

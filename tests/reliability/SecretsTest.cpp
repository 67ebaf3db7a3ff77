// Secrets through the whole stack (application, card layer, transport,
// virtual card, its image file) leave no copy in memory given back to the
// runtime: PINs, imported keys, a key file the tool reads, a plaintext the
// card deciphers and the tool writes. This binary replaces free() to look,
// and turns tracing on, into a file of its own, before anything is traced.
#include "AppOnCard.hpp"
#include "FreeHook.hpp"

#include "app/crypto/ICipher.hpp"
#include "card/CardException.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/KeyFile.hpp"
#include "tools/p15tool/Streams.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

std::string temporaryFile(const std::string& name) {
    return (std::filesystem::temp_directory_path() / (name + std::to_string(getpid()))).string();
}

const std::string tracePath = temporaryFile("p15-pin-trace-");
const bool tracing = setenv("P15_TRACE", tracePath.c_str(), 1) == 0;

// PIN values never reach the trace.
TEST(PinTrace, NamesThePinOperationsButNeverTheirValues) {
    ASSERT_TRUE(tracing);
    const support::AppOnCard card(vcard::personalise());
    const card::IChannel& channel = *card.channel;
    const auto application = card.open();
    const auto user = support::pinAt(*application, channel);
    const std::string secrets[] = {support::userPin, "24680", support::puk, "997755"};
    EXPECT_THROW(user->authenticate(channel, support::ascii(secrets[3])), card::CardException);
    user->unblock(channel, support::ascii(support::puk));
    user->change(channel, support::ascii(support::userPin), support::ascii("24680"));
    user->authenticate(channel, support::ascii("24680"));

    std::ifstream file(tracePath);
    const std::string trace((std::istreambuf_iterator<char>(file)), {});
    EXPECT_NE(trace.find("P15Pin::authenticate"), std::string::npos) << "the trace is on";
    for (const std::string& secret : secrets) {
        EXPECT_EQ(trace.find(secret), std::string::npos) << secret;
        EXPECT_EQ(trace.find(mw::toHex(support::ascii(secret))), std::string::npos) << secret;
    }
    std::remove(tracePath.c_str());
}

using Use = std::function<void(const support::AppOnCard&, const app::pkcs15::P15Application&)>;

// For each form of a secret: `use` on a card saving to its image, opened
// again after; no released block may hold that form.
void expectNoReleasedBlockHolds(const std::vector<std::string>& forms, const Use& use) {
    const std::string image = temporaryFile("p15-secrets-");
    for (const std::string& form : forms) {
        SCOPED_TRACE(&form - forms.data());
        vcard::VirtualCard(vcard::personalise()).save(image);
        freehook::lookFor(form);
        {
            const support::AppOnCard card(vcard::CardImage::load(image), nullptr, image);
            use(card, *card.open());
            support::AppOnCard(vcard::CardImage::load(image)).open();
        }
        EXPECT_EQ(freehook::blocksFreedHoldingSecret(), 0u);
        freehook::lookFor("");
    }
    std::filesystem::remove(image);
}

// Changed and verified: as typed, as the card stores it (padded with FF),
// and as the image's text.
TEST(PinSecrets, NoReleasedBlockHoldsTheNewPin) {
    const char* const newPin = "975318";
    expectNoReleasedBlockHolds(
        {newPin, "975318\xFF\xFF", "393735333138FFFF"}, [&](const auto& card, const auto& app) {
            const auto pin = support::pinAt(app, *card.channel);
            pin->change(*card.channel, support::ascii(support::userPin), support::ascii(newPin));
            pin->authenticate(*card.channel, support::ascii(newPin));
        });
}

// Each CRT component as the import carries it, and the first prime's first
// 32 bytes as the image's text (the hook looks for 64 bytes at most).
TEST(KeySecrets, NoReleasedBlockHoldsACrtComponentOfAnImportedKey) {
    const support::RsaKeyMaterial& key = support::rsaKey();
    std::vector<std::string> forms{mw::toHex(mw::ByteBuffer(key.p.data(), 32))};
    for (const mw::ByteBuffer* part : {&key.p, &key.q, &key.dp, &key.dq, &key.pInv, &key.qInv}) {
        forms.emplace_back(reinterpret_cast<const char*>(part->data()), part->size());
    }
    expectNoReleasedBlockHolds(forms, [](const auto& card, const auto& application) {
        card.verifyUserPin(application);
        support::importKeyPair(application, *card.channel, "Secret key");
    });
}

// 64 bytes from the middle of a key file: parts of the key's components.
TEST(KeySecrets, NoReleasedBlockHoldsTheContentOfAKeyFileTheToolReads) {
    CryptoPP::AutoSeededRandomPool random;
    CryptoPP::RSA::PrivateKey key;
    key.GenerateRandomWithKeySize(random, 1024);
    // Through wiping blocks only: a block freed unwiped could be reused and found.
    CryptoPP::ByteQueue queue;
    key.DEREncode(queue);
    mw::ByteBuffer der(static_cast<std::size_t>(queue.MaxRetrievable()));
    queue.Get(der.data(), der.size());
    const std::string path = temporaryFile("p15-key-file-");
    p15tool::writeOutput(path, der, true);
    const std::string part(reinterpret_cast<const char*>(der.data()) + der.size() / 2, 64);
    freehook::lookFor(part);
    EXPECT_EQ(p15tool::readPrivateKeyFile(path).bits, 1024u);
    EXPECT_EQ(freehook::blocksFreedHoldingSecret(), 0u);
    freehook::lookFor("");
    std::filesystem::remove(path);
}

TEST(PlaintextSecrets, NoReleasedBlockHoldsWhatTheCardDecipheredNorWhatWasWrittenOfIt) {
    using app::crypto::ICipher;
    const std::string wanted = "the 32 bytes of a session key :)";
    const support::AppOnCard card(support::cardWithKeyImage());
    const card::IChannel& channel = *card.channel;
    const auto application = card.open();
    card.verifyUserPin(*application);
    const auto publicKey = application->getPublicKeys(channel).at(0);
    application->readCardObject(channel, *publicKey);
    const auto cipher = application->getCipher("1.2.840.113549.1.1.1");
    cipher->init(channel, ICipher::Encipher, *publicKey);
    const mw::ByteBuffer cryptogram = cipher->encipher(channel, support::ascii(wanted));
    freehook::lookFor(wanted);
    cipher->init(channel, ICipher::Decipher, *application->getPrivateKeys(channel).at(0));
    const mw::ByteBuffer plaintext = cipher->decipher(channel, cryptogram);
    const std::size_t deciphering = freehook::blocksFreedHoldingSecret();
    const std::string path = temporaryFile("p15-plaintext-");
    p15tool::writeOutput(path, plaintext, true, p15tool::Exposure::secret);
    const std::size_t writing = freehook::blocksFreedHoldingSecret() - deciphering;
    freehook::lookFor("");
    std::filesystem::remove(path);
    EXPECT_EQ(plaintext, support::ascii(wanted));
    EXPECT_EQ(deciphering, 0u) << "through the virtual card, the card layer and the plugin";
    EXPECT_EQ(writing, 0u) << "into the file";
}

} // namespace

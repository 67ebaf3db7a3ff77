// The card services against the card, in-process and over PC/SC, and what only a reader shows.
#include "CardFixture.hpp"

#include "card/crypto/spec/KeySpec.hpp"
#include "card/service/FileCreationParams.hpp"
#include "host/iso7816/Fcp.hpp"
#include "host/pcsc/PcscContext.hpp"
#include "host/pcsc/PcscTransport.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <chrono>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <thread>
#include <unistd.h>
#include <vector>

namespace hosttest {
namespace {

using namespace card::service;

SecurityConditionPtr always() {
    return boost::make_shared<AlwaysSecurityCondition>();
}
SecurityConditionPtr pinVerified(unsigned char reference) {
    return boost::make_shared<PinRefSecurityCondition>(pinReference(reference));
}
AccessConditions grant(unsigned short modes, SecurityConditionPtr condition) {
    return {AccessCondition{modes, std::move(condition)}};
}

KeyRef keyRef(unsigned char kid, unsigned short bits, unsigned char filePrefix) {
    KeyRef key;
    key.keyReference = static_cast<unsigned char>(0x80 | kid);
    key.modulusBits = bits;
    key.fileId = mw::ByteBuffer{filePrefix, kid};
    return key;
}

// `message` enciphered with PKCS#1 v1.5 (block type 2) under the public key.
mw::ByteBuffer encipher(const card::crypto::spec::RsaPublicKeySpec& key,
                        const mw::ByteBuffer& message) {
    const auto integer = [](const mw::ByteBuffer& bytes) {
        return CryptoPP::Integer(bytes.data(), bytes.size());
    };
    CryptoPP::RSA::PublicKey publicKey;
    publicKey.Initialize(integer(key.getModulus()), integer(key.getPublicExponent()));
    CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(publicKey);
    CryptoPP::AutoSeededRandomPool rng;
    mw::ByteBuffer cryptogram(encryptor.CiphertextLength(message.size()));
    encryptor.Encrypt(rng, message.data(), message.size(), cryptogram.data());
    return cryptogram;
}

// What the card exception `work` throws carries as `Info` ("(none)": nothing; "": no exception).
template <class Info, class Work> std::string errorInfo(const Work& work) {
    try {
        work();
    } catch (const card::CardException& e) {
        const auto* value = boost::get_error_info<Info>(e);
        return value ? std::string(*value) : "(none)";
    }
    return "";
}

using std::chrono::seconds;

mw::ByteBuffer pattern(std::size_t length, unsigned char seed) {
    mw::ByteBuffer bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes.data()[i] = static_cast<unsigned char>(seed + i * 7);
    return bytes;
}

class FileServicesTest : public CardTest {
protected:
    // A file in DF02 (whose update right is the user PIN's).
    mw::ByteBuffer createFile(unsigned char fid, std::size_t size, AccessConditions conditions) {
        verifyUserPin();
        const mw::ByteBuffer path{0xDF, 0x02, 0x0D, fid};
        fileSystem()->createFile(*channel_, DataObjectCreateParams(path, size, conditions));
        return path;
    }

    // The PIN service of another host on this card, letting go of it with `onRelease`.
    std::pair<boost::shared_ptr<host::Channel>, boost::shared_ptr<IPinManagementService>>
    anotherHost(host::OnRelease onRelease) const {
        std::unique_ptr<card::ICardTransport> transport;
        if (virtualCard_ != nullptr) { // not owned: the test's own transport keeps the card
            transport = std::make_unique<host::VirtualCardTransport>(
                std::shared_ptr<vcard::VirtualCard>(std::shared_ptr<void>(), virtualCard_),
                onRelease);
        } else {
            const char* reader = std::getenv("P15_READER");
            transport = host::connectReader(reader ? reader : "Virtual PCD",
                                            std::chrono::seconds(10), onRelease);
        }
        const auto channel = boost::make_shared<host::Channel>(std::move(transport));
        host::iso7816::Card card(channel);
        card.selectApplication(*channel, host::iso7816::pkcs15Aid());
        return {channel, boost::dynamic_pointer_cast<IPinManagementService>(
                             card.getInterface("PinManagementService"))};
    }
};

// Every path form reaches the same file, a read from an offset takes the rest of it, and a failure
// names the file it was about.
TEST_P(FileServicesTest, PathFormsSlicesAndFailuresOfReadingAFile) {
    files()->select(*channel_, {0x3F, 0x00, 0x50, 0x15, 0x50, 0x32});
    const mw::ByteBuffer whole = files()->read(*channel_, 0, 0);
    ASSERT_EQ(whole.size(), 512u);
    EXPECT_EQ(files()->read(*channel_, 500, 0), whole.get(500, 12));
    files()->select(*channel_, {0x3F, 0x00, 0x2F, 0x00}); // a visit to the MF
    for (const mw::ByteBuffer& path : {mw::ByteBuffer{0x50, 0x32}, {0x3F, 0xFF, 0x50, 0x32}}) {
        files()->select(*channel_, path);
        EXPECT_EQ(files()->read(*channel_, 0, 0), whole);
    }
    files()->select(*channel_, {0x99, 0x99}); // 8 bytes
    EXPECT_CARD_ERROR(files()->read(*channel_, 4, 8), "Read Binary", 0x6282);
    using host::iso7816::FilePath;
    EXPECT_EQ(errorInfo<FilePath>([&] { files()->read(*channel_, 8, 1); }), "3F00/5015/9999");
    EXPECT_TRUE(files()->read(*channel_, 8, 0).empty());
    const auto selectMissing = [&] { files()->select(*channel_, {0x3F, 0x00, 0x12, 0x34}); };
    EXPECT_EQ(errorInfo<FilePath>(selectMissing), "3F00/1234");
    EXPECT_THROW(files()->select(*channel_, {0x50}), mw::IllegalArgumentException);
}

// The largest EF, across the 7FFF/8000 line of offsets in P1-P2 and objects, at chunk edges.
TEST_P(FileServicesTest, AnFfffByteFileIsReadAndUpdatedToItsLastByte) {
    const mw::ByteBuffer path =
        createFile(0x93, 0xFFFF, {{AccessRead, always()}, {AccessUpdate, always()}});
    const mw::ByteBuffer content = pattern(0xFFFF, 5);
    files()->update(*channel_, 0, content);
    files()->select(*channel_, path);
    EXPECT_EQ(files()->size(*channel_), 0xFFFFu);
    EXPECT_EQ(files()->read(*channel_, 0, 0), content);

    const std::pair<std::size_t, std::size_t> ranges[] = {
        {1, 255},    {1, 256},        {1, 510},        {1, 513},    {0x7FFF, 1},
        {0x8000, 1}, {0x7F80, 0x100}, {0x8000, 0x200}, {0xFFFE, 1}, {0xFE00, 0x1FF}};
    mw::ByteBuffer expected = content;
    for (const auto& [offset, length] : ranges) {
        const mw::ByteBuffer part = pattern(length, static_cast<unsigned char>(offset + length));
        files()->update(*channel_, offset, part);
        std::copy(part.begin(), part.end(), expected.begin() + offset);
        EXPECT_EQ(files()->read(*channel_, offset, length), part) << offset;
    }
    EXPECT_EQ(files()->read(*channel_, 0, 0), expected) << "nothing around the ranges changes";
    EXPECT_EQ(files()->read(*channel_, 0xFFFE, 0), expected.get(0xFFFE, 1));
    // Nothing past the last byte is sent: the card would answer with a card exception.
    EXPECT_THROW(files()->read(*channel_, 0xFFFF, 1), mw::IllegalArgumentException);
    EXPECT_THROW(files()->read(*channel_, 0x7F00, 0x8100), mw::IllegalArgumentException);
    EXPECT_THROW(files()->update(*channel_, 0xFFFE, {0x01, 0x02}), mw::IllegalArgumentException);
    fileSystem()->deleteFile(*channel_, path);
    EXPECT_CARD_ERROR(files()->select(*channel_, path), "Select", 0x6A82);
}

// The card enforces the AND, OR and NOT conditions files are created with, deletion as update; a
// verified PIN's status answer has no count.
TEST_P(FileServicesTest, CreatedConditionsAreEnforcedByTheCard) {
    const SecurityConditionPtr userAndSo = boost::make_shared<AndSecurityCondition>(
        SecurityConditionList{pinVerified(0x01), pinVerified(0x03)});
    const mw::ByteBuffer guarded =
        createFile(0x91, 16, {{AccessRead, always()}, {AccessUpdate, userAndSo}});
    const mw::ByteBuffer data = pattern(16, 1);
    EXPECT_CARD_ERROR(files()->update(*channel_, 0, data), "Update Binary", 0x6982);
    pins()->authenticate(*channel_, pinReference(0x03), paddedPin(soPin));
    const PinInfo so = pins()->getPinInfo(*channel_, pinReference(0x03));
    EXPECT_EQ(so.state, PinInfo::Verified);
    EXPECT_EQ(so.triesLeft, PinInfo::UnknownTries);
    files()->update(*channel_, 0, data);
    // Past the end the card refuses the whole update (6A84), leaving the file as it was.
    EXPECT_CARD_ERROR(files()->update(*channel_, 8, pattern(9, 9)), "Update Binary", 0x6A84);
    pins()->deauthenticate(*channel_, pinReference(0x03));
    EXPECT_CARD_ERROR(files()->update(*channel_, 0, data), "Update Binary", 0x6982);
    EXPECT_EQ(files()->read(*channel_, 0, 0), data);
    EXPECT_CARD_ERROR(fileSystem()->deleteFile(*channel_, guarded), "Delete File", 0x6982);
    pins()->authenticate(*channel_, pinReference(0x03), paddedPin(soPin));
    fileSystem()->deleteFile(*channel_, guarded);
    pins()->deauthenticate(*channel_, pinReference(0x03));

    const SecurityConditionPtr userAbsent =
        boost::make_shared<NotSecurityCondition>(pinVerified(0x01));
    const SecurityConditionPtr soOrPuk = boost::make_shared<OrSecurityCondition>(
        SecurityConditionList{pinVerified(0x03), pinVerified(0x02)});
    // Two grants of one mode are alternatives: update after the user PIN, or the SO PIN or PUK.
    const mw::ByteBuffer inverted = createFile(
        0x92, 4,
        {{AccessRead, userAbsent}, {AccessUpdate, pinVerified(0x01)}, {AccessUpdate, soOrPuk}});
    EXPECT_CARD_ERROR(files()->read(*channel_, 0, 4), "Read Binary", 0x6982);
    files()->update(*channel_, 0, data.get(0, 4));
    pins()->deauthenticate(*channel_, pinReference(0x01));
    files()->select(*channel_, inverted);
    EXPECT_EQ(files()->read(*channel_, 0, 0), data.get(0, 4));
    EXPECT_CARD_ERROR(files()->update(*channel_, 0, data.get(0, 4)), "Update Binary", 0x6982);
    pins()->authenticate(*channel_, pinReference(0x03), paddedPin(soPin));
    fileSystem()->deleteFile(*channel_, inverted);
    pins()->deauthenticate(*channel_, pinReference(0x03));
}

// Another host verifies the user PIN and lets go of the card: the login ends with it (a reset)
// unless that host was told to keep it.
TEST_P(FileServicesTest, AnotherHostsLoginEndsWithItsReleaseUnlessKept) {
    for (const auto& [onRelease, state] : {std::pair{host::OnRelease::LogOut, PinInfo::NotVerified},
                                           {host::OnRelease::KeepLogin, PinInfo::Verified}}) {
        {
            const auto [channel, pins] = anotherHost(onRelease);
            pins->authenticate(*channel, pinReference(0x01), paddedPin(userPin));
        }
        const auto [channel, pins] = anotherHost(host::OnRelease::KeepLogin);
        EXPECT_EQ(pins->getPinInfo(*channel, pinReference(0x01)).state, state);
    }
    pins()->deauthenticate(*channel_, pinReference(0x01));
}

INSTANTIATE_TEST_SUITE_P(Transports, FileServicesTest,
                         ::testing::Values(TransportKind::InProcess, TransportKind::InProcessShort,
                                           TransportKind::Pcsc),
                         transportName);

class InProcessCardTest : public CardTest {
protected:
    // The commands the card received while `work` ran.
    template <class Work> std::uint64_t commandsOf(const Work& work) const {
        const std::uint64_t before = virtualCard_->instrumentation().counters().commands;
        work();
        return virtualCard_->instrumentation().counters().commands - before;
    }
};

// The file selected already is selected again after a deletion in its DF, which may have moved
// the card's current file. (Selections saved: bench_apdu_economy.)
TEST_P(InProcessCardTest, ADeletionInTheCurrentDfEndsTheKnownSelection) {
    verifyUserPin();
    const mw::ByteBuffer scratch{0x0D, 0x82};
    fileSystem()->createFile(
        *channel_, DataObjectCreateParams(scratch, 16, grant(AccessRead | AccessUpdate, always())));
    files()->select(*channel_, {0x50, 0x32});
    fileSystem()->deleteFile(*channel_, scratch);
    files()->select(*channel_, {0x3F, 0x00, 0x50, 0x15, 0x50, 0x32});
    EXPECT_EQ(files()->read(*channel_, 0, 1).size(), 1u);
}

// The last key reference, FF, reaches GENERATE, MSE and its key files (0E7F/0F7F, never 0EFF)
// whole; 7F (no top bit) and a key file on a longer path are refused before anything is sent. A
// 2048-bit key's public key and cryptograms take two short APDUs each.
TEST_P(InProcessCardTest, KeyReferencesReachTheCardWholeToTheLastOne) {
    KeyRef last = keyRef(0x7F, 2048, 0x0E);
    const KeyRef lastPublic = keyRef(0x7F, 2048, 0x0F);
    verifyUserPin();
    fileSystem()->createFile(
        *channel_, PrivateKeyCreateParams(last, grant(AccessUpdate | AccessExecute, always())));
    fileSystem()->createFile(
        *channel_, PublicKeyCreateParams(lastPublic, grant(AccessRead | AccessUpdate, always())));
    boost::optional<card::crypto::spec::RsaPublicKeySpec> generated;
    EXPECT_EQ(commandsOf([&] { generated = keys()->generateKeyPair(*channel_, last, lastPublic); }),
              apdus(2, 1)); // short: GENERATE, GET RESPONSE
    ASSERT_TRUE(generated);
    EXPECT_EQ(keys()->readPublicKey(*channel_, last).getModulus(), generated->getModulus());
    const auto cipher = crypto()->getCipher("1.2.840.113549.1.1.1");
    cipher->init(*channel_, last, ICardKeyOperation::Decipher);
    const mw::ByteBuffer message{1, 2, 3, 4, 5}, cryptogram = encipher(*generated, message);
    EXPECT_EQ(commandsOf([&] { EXPECT_EQ(cipher->decipher(*channel_, cryptogram), message); }),
              apdus(2, 1)); // short: 00 || 256 bytes in two parts
    last.fileId.clear();    // named by the reference alone
    keys()->removePrivateKey(*channel_, last);
    EXPECT_CARD_ERROR(files()->select(*channel_, {0x0E, 0x7F}), "Select", 0x6A82);
    last.keyReference = 0x7F;
    EXPECT_EQ(
        commandsOf([&] {
            EXPECT_THROW(keys()->removePublicKey(*channel_, last), mw::IllegalArgumentException);
            last.keyReference = 0x81;
            last.fileId = {0x3F, 0x00, 0x50, 0x15, 0x4B, 0x01};
            EXPECT_THROW(keys()->removePublicKey(*channel_, last), mw::IllegalArgumentException);
        }),
        0u);
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

INSTANTIATE_TEST_SUITE_P(VirtualCard, InProcessCardTest,
                         ::testing::Values(TransportKind::InProcess, TransportKind::InProcessShort),
                         transportName);

// Waits one second for another application's transaction, not ten.
class PcscEventsTest : public CardTest {
protected:
    void SetUp() override {
        setenv("P15_TRANSACTION_TIMEOUT", "1", 1);
        CardTest::SetUp();
        if (IsSkipped())
            return;
        context_ = std::make_unique<host::PcscContext>();
        const char* chosen = std::getenv("P15_READER"); // the reader the fixture's card is in
        reader_ = host::connectReader(chosen ? chosen : "Virtual PCD", seconds(10),
                                      host::OnRelease::KeepLogin)
                      ->reader();
    }
    void TearDown() override { unsetenv("P15_TRANSACTION_TIMEOUT"); }

    // Made in SetUp: without pcscd there is none, and the test skips.
    std::unique_ptr<host::PcscContext> context_;
    std::string reader_;
};

// Another application's warm reset drops the PIN and goes to the MF: the host reconnects and reads
// on from its file. Another application's transaction is a clear error until released.
TEST_P(PcscEventsTest, AnotherApplicationsResetIsFollowedAndItsTransactionReported) {
    files()->select(*channel_, {0x50, 0x32});
    const mw::ByteBuffer tokenInfo = files()->read(*channel_, 0, 0);
    verifyUserPin();
    host::connectReader(reader_, seconds(10), host::OnRelease::LogOut).reset();
    EXPECT_EQ(files()->read(*channel_, 0, 0), tokenInfo);
    EXPECT_EQ(pins()->getPinInfo(*channel_, pinReference(0x01)).state, PinInfo::NotVerified);

    const std::string inUse = "card in use by another application: no transaction after 1 s";
    auto loggingOut = host::connectReader(reader_, seconds(10), host::OnRelease::LogOut);
    const auto other = host::connectReader(reader_, seconds(10), host::OnRelease::KeepLogin);
    other->beginTransaction();
    // The first wait is for a transaction, the second for a new connection.
    EXPECT_EQ(errorInfo<card::ErrorText>([&] { files()->read(*channel_, 0, 0); }), inUse);
    EXPECT_EQ(errorInfo<card::ErrorText>([&] { files()->read(*channel_, 0, 0); }), inUse);
    // Its log-out waits for the card too, a bounded time.
    const auto start = std::chrono::steady_clock::now();
    loggingOut.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    other->endTransaction();
    EXPECT_EQ(files()->read(*channel_, 0, 0), tokenInfo);
}

// Stops what the pcscd fixture started (the bridge, pcscd) and starts them again for later tests.
class PcscRemovalTest : public PcscEventsTest {
protected:
    void SetUp() override {
        state_ = std::getenv("P15_PCSCD_STATE") ? std::getenv("P15_PCSCD_STATE") : "";
        if (state_.empty()) {
            GTEST_SKIP() << "runs only under the pcscd fixture (P15_PCSCD_STATE)";
        }
        PcscEventsTest::SetUp();
    }
    void TearDown() override {
        startStopped();
        PcscEventsTest::TearDown();
    }

    void stop(const std::string& name) {
        pid_t pid = 0;
        std::ifstream(state_ + "/" + name + ".pid") >> pid;
        ASSERT_GT(pid, 0);
        ASSERT_EQ(kill(pid, SIGTERM), 0);
        stopped_.push_back(name);
        // pcscd must be gone before another can take its socket.
        for (int i = 0; i < 100 && !ended(pid); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ASSERT_TRUE(ended(pid)) << name;
    }
    // In the reverse order: pcscd before the bridge that connects to it.
    void startStopped() {
        for (auto name = stopped_.rbegin(); name != stopped_.rend(); ++name) {
            const std::string program =
                *name == "pcscd" ? "pcscd --foreground" : "\"${P15_VCARD_SERVE:-p15-vcard-serve}\"";
            const std::string start = program + " >>\"" + state_ + "/" + *name + ".log\" 2>&1 & " +
                                      "echo $! >\"" + state_ + "/" + *name + ".pid\"";
            ASSERT_EQ(std::system(start.c_str()), 0);
        }
        if (!stopped_.empty()) { // a client of its own: one that pcscd knew stays cut off
            stopped_.clear();
            EXPECT_EQ(std::system("\"${P15_PCSC_WAIT:-pcsc-wait-card}\" 10"), 0);
        }
    }

    std::string state_;

private:
    static bool ended(pid_t pid) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string id, name, state;
        return !(stat >> id >> name >> state) || state == "Z";
    }
    std::vector<std::string> stopped_;
};

TEST_P(PcscRemovalTest, RestartedPcscdIsAClearErrorThenConnectsAgain) {
    if (!std::ifstream(state_ + "/pcscd.pid")) {
        GTEST_SKIP() << "pcscd was running before the fixture, which leaves it alone";
    }
    files()->select(*channel_, {0x50, 0x32});
    stop("bridge");
    stop("pcscd");
    startStopped();
    EXPECT_EQ(errorInfo<card::ErrorText>([&] { files()->read(*channel_, 0, 0); }),
              "PC/SC service stopped or restarted: open the card again");
    // Not a removal: nothing is known about the card.
    EXPECT_THROW(context_->waitForRemoval(reader_, seconds(1)), card::CardException);
    EXPECT_FALSE(host::connectReader(reader_, seconds(10))->getAtr().empty());
}

INSTANTIATE_TEST_SUITE_P(Reader, PcscEventsTest, ::testing::Values(TransportKind::Pcsc),
                         transportName);
INSTANTIATE_TEST_SUITE_P(Reader, PcscRemovalTest, ::testing::Values(TransportKind::Pcsc),
                         transportName);

} // namespace
} // namespace hosttest

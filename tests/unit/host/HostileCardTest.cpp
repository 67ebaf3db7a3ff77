// A hostile card, scripted: bad answers end in clear exceptions, never a hang or crash.
#include "CardFixture.hpp"
#include "TestKeys.hpp"
#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "card/service/ICryptographyService.hpp"
#include "card/service/IFileAccessService.hpp"
#include "card/service/IPinManagementService.hpp"
#include "host/Channel.hpp"
#include "host/iso7816/Applet.hpp"
#include "host/iso7816/Card.hpp"
#include "host/iso7816/Fcp.hpp"
#include "host/iso7816/SecurityAttributes.hpp"
#include "mw/Exception.hpp"

#include <boost/exception/get_error_info.hpp>
#include <boost/make_shared.hpp>
#include <deque>
#include <functional>
#include <gtest/gtest.h>

namespace hosttest {
namespace {

using mw::ByteBuffer;

// Answers with the next scripted response (the last repeats); records the commands.
class ScriptedTransport : public card::ICardTransport {
public:
    ScriptedTransport(std::deque<ByteBuffer>& script, std::vector<ByteBuffer>& sent)
        : script_(script)
        , sent_(sent) {}

    ByteBuffer getAtr() const override { return {0x3B, 0x00}; }
    boost::shared_ptr<ByteBuffer> transmit(const card::Apdu& command) const override {
        sent_.push_back(command.bytes());
        if (script_.empty()) {
            return nullptr;
        }
        auto answer = boost::make_shared<ByteBuffer>(script_.front());
        if (script_.size() > 1) {
            script_.pop_front();
        }
        return answer;
    }
    void beginTransaction() const override {}
    void endTransaction() const override {}

private:
    std::deque<ByteBuffer>& script_;
    std::vector<ByteBuffer>& sent_;
};

const ByteBuffer applicationFcp{0x62, 0x07, 0x82, 0x01, 0x38, 0x83, 0x02, 0x50, 0x15, 0x90, 0x00};

class HostileCardTest : public ::testing::Test {
protected:
    HostileCardTest()
        : channel_(boost::make_shared<host::Channel>(
              std::make_unique<ScriptedTransport>(script_, sent_)))
        , card_(boost::make_shared<host::iso7816::Card>(channel_)) {}

    // Selects the application, then lets the card answer `answers`.
    void play(std::initializer_list<ByteBuffer> answers) {
        script_ = {applicationFcp};
        card_->selectApplication(*channel_, host::iso7816::pkcs15Aid());
        answer(answers);
    }

    template <class Service> boost::shared_ptr<Service> service(const char* name) const {
        return boost::dynamic_pointer_cast<Service>(card_->getInterface(name));
    }

    // Lets the card answer `answers` without selecting anything first.
    void answer(std::initializer_list<ByteBuffer> answers) {
        script_.assign(answers.begin(), answers.end());
        sent_.clear();
    }

    // Runs `operation`, expects card::InvalidDataException for `command`;
    // returns its text and the file it names.
    template <class Operation>
    std::pair<std::string, std::string> expectInvalidData(const Operation& operation,
                                                          const char* command) {
        try {
            operation();
            ADD_FAILURE() << "the malformed answer was accepted";
        } catch (const card::InvalidDataException& e) {
            const char* const* name = boost::get_error_info<card::Command>(e);
            EXPECT_STREQ(name ? *name : "", command);
            const char* const* text = boost::get_error_info<card::ErrorText>(e);
            EXPECT_TRUE(text);
            const std::string* file = boost::get_error_info<host::iso7816::FilePath>(e);
            return {text ? *text : "", file ? *file : ""};
        }
        return {};
    }

    void selectFile() {
        service<card::service::IFileAccessService>("FileAccessService")
            ->select(*channel_, {0x50, 0x31});
    }

    std::deque<ByteBuffer> script_;
    std::vector<ByteBuffer> sent_;
    boost::shared_ptr<host::Channel> channel_;
    boost::shared_ptr<host::iso7816::Card> card_;
};

// Every parser of card answers (FCP, wrapped READ BINARY, 7F49 key template, algorithm list) and
// the framing itself: answers too short, too long, or with nested lengths overrunning their
// template fail their command as invalid data, never read past the answer.
TEST_F(HostileCardTest, MalformedAnswersFailTheirCommandAsInvalidData) {
    const auto files = service<card::service::IFileAccessService>("FileAccessService");
    const auto keys =
        service<card::service::IAsymmetricKeyManagementService>("AsymmetricKeyManagementService");
    const ByteBuffer threeBytes{0x62, 0x07, 0x80, 0x02, 0x00, 0x03, 0x82, 0x01, 0x01, 0x90, 0x00};
    const ByteBuffer largest{0x62, 0x07, 0x80, 0x02, 0xFF, 0xFF, 0x82, 0x01, 0x01, 0x90, 0x00};
    const std::function<void()> select = [&] { selectFile(); };
    const std::function<void()> readAll = [&] { selectFile(), files->read(*channel_, 0, 0); };
    const std::function<void()> read8000 = [&] { selectFile(), files->read(*channel_, 0x8000, 1); };
    const std::function<void()> algorithms = [&] { host::iso7816::Card(channel_).getAlgorithms(); };
    const ByteBuffer efFcp{0x62, 0x03, 0x82, 0x01, 0x01, 0x90, 0x00};
    const std::function<void()> selectMf = [&] { files->select(*channel_, {0x3F, 0x00}); };
    const std::function<void()> selectApplication = [&] {
        card_->selectApplication(*channel_, host::iso7816::pkcs15Aid());
    };
    const std::function<void()> publicKey = [&] {
        keys->readPublicKey(*channel_, keyRef(1, 1024, 0x0F));
    };
    const char* const tlv = "malformed TLV data from the card";
    const char* const key = "Generate Asymmetric Key Pair";
    const struct {
        std::vector<ByteBuffer> answers;
        const std::function<void()>& operation;
        const char* command;
        const char* text; // checked with the file it names when given
    } cases[] = {
        {{{0x90}}, select, "Select", nullptr},                   // a one-byte answer
        {{}, select, "Select", nullptr},                         // no answer at all
        {{{0x01, 0x61, 0x00}}, select, "Get Response", nullptr}, // an answer that never ends
        {{{0x62, 0x05, 0x82, 0x90, 0x00}}, select, "Select", tlv},
        {{{0x62, 0x03, 0x82, 0x03, 0x01, 0x00, 0x00, 0x90, 0x00}}, select, "Select", tlv},
        {{{0x6F, 0x03, 0x82, 0x01, 0x01, 0x90, 0x00}}, select, "Select", tlv},
        {{{0x62, 0x04, 0x83, 0x02, 0x50, 0x31, 0x90, 0x00}},
         select,
         "Select",
         "FCP without a file descriptor"},
        {{{0x62, 0x08, 0x80, 0x03, 0x00, 0x00, 0x20, 0x82, 0x01, 0x01, 0x90, 0x00}},
         select,
         "Select",
         "FCP with a malformed file size"},
        {{{0x62, 0x06, 0x82, 0x01, 0x01, 0x83, 0x01, 0x50, 0x90, 0x00}},
         select,
         "Select",
         "FCP with a malformed file identifier"},
        {{{0x62, 0x07, 0x82, 0x01, 0x01, 0x83, 0x02, 0x50, 0x32, 0x90, 0x00}},
         select,
         "Select",
         "FCP with another file identifier than selected"},
        {{{0x62, 0x03, 0x82, 0x01, 0x01, 0x00, 0x90, 0x00}},
         select,
         "Select",
         "FCP followed by other data"},
        {{efFcp}, selectMf, "Select", nullptr},          // the MF as an EF
        {{efFcp}, selectApplication, "Select", nullptr}, // an EF as the application
        // READ BINARY of a 3-byte EF answered with 2 or 4 bytes.
        {{threeBytes, {0x01, 0x02, 0x90, 0x00}}, readAll, "Read Binary", nullptr},
        {{threeBytes, {0x01, 0x02, 0x03, 0x04, 0x90, 0x00}}, readAll, "Read Binary", nullptr},
        // Beyond 7FFF: another object, a longer or shorter one, or one overrunning the answer.
        {{largest, {0x73, 0x01, 0xAB, 0x90, 0x00}}, read8000, "Read Binary", nullptr},
        {{largest, {0x53, 0x02, 0xAB, 0xCD, 0x90, 0x00}}, read8000, "Read Binary", nullptr},
        {{largest, {0x53, 0x00, 0x90, 0x00}}, read8000, "Read Binary", nullptr},
        {{largest, {0x53, 0x00, 0xAB, 0x90, 0x00}}, read8000, "Read Binary", nullptr},
        {{largest, {0x53, 0x02, 0xAB, 0x90, 0x00}}, read8000, "Read Binary", nullptr},
        {{largest, {0xAB, 0x90, 0x00}}, read8000, "Read Binary", nullptr},
        // Algorithm lists: an empty or cut OID, an OID overrunning the list, a list overrunning
        // the answer.
        {{{0xA0, 0x02, 0x06, 0x00, 0x90, 0x00}}, algorithms, "Get Data", nullptr},
        {{{0xA0, 0x03, 0x06, 0x01, 0x81, 0x90, 0x00}}, algorithms, "Get Data", nullptr},
        {{{0xA0, 0x03, 0x06, 0x05, 0x2B, 0x90, 0x00}}, algorithms, "Get Data", tlv},
        {{{0xA0, 0x05, 0x06, 0x01, 0x2B, 0x90, 0x00}}, algorithms, "Get Data", tlv},
        // 7F49 without an exponent, with a 4-byte length, overrun by its exponent, overrunning
        // the answer.
        {{{0x7F, 0x49, 0x03, 0x81, 0x01, 0xC5, 0x90, 0x00}}, publicKey, key, nullptr},
        {{{0x7F, 0x49, 0x84, 0x00, 0x00, 0x00, 0x01, 0x90, 0x00}}, publicKey, key, nullptr},
        {{{0x7F, 0x49, 0x06, 0x81, 0x01, 0xC5, 0x82, 0x03, 0x01, 0x90, 0x00}}, publicKey, key, tlv},
        {{{0x7F, 0x49, 0x09, 0x81, 0x01, 0xC5, 0x82, 0x01, 0x03, 0x90, 0x00}}, publicKey, key, tlv},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.answers));
        play({});
        script_.assign(c.answers.begin(), c.answers.end());
        const auto [text, file] = expectInvalidData(c.operation, c.command);
        if (c.text != nullptr && &c.operation == &select) {
            EXPECT_EQ(std::make_pair(text, file),
                      std::make_pair(std::string(c.text), std::string("3F00/5015/5031")));
            EXPECT_EQ(sent_.size(), 1u) << "the SELECT fails at once";
        } else if (c.text != nullptr) {
            EXPECT_EQ(text, c.text);
        }
        EXPECT_LE(sent_.size(), 300u) << "GET RESPONSE is not asked for ever";
    }
}

// Offsets up to 7FFF travel in P1-P2, beyond in an offset object 54 with the
// answer wrapped in 53; nothing past the last byte of an FFFF-byte EF is sent.
TEST_F(HostileCardTest, OffsetsBeyond7FFFUseTheOddInsAndCheckTheWrappedAnswer) {
    const auto files = service<card::service::IFileAccessService>("FileAccessService");
    play({{0x62, 0x07, 0x80, 0x02, 0xFF, 0xFF, 0x82, 0x01, 0x01, 0x90, 0x00}});
    selectFile();
    EXPECT_EQ(files->size(*channel_), 0xFFFFu);
    const struct {
        std::size_t offset;
        ByteBuffer apdu;
        ByteBuffer answer;
    } reads[] = {
        {0x7FFF, {0x00, 0xB0, 0x7F, 0xFF, 0x01}, {0xAB, 0x90, 0x00}},
        {0x8000,
         {0x00, 0xB1, 0x00, 0x00, 0x04, 0x54, 0x02, 0x80, 0x00, 0x03},
         {0x53, 0x01, 0xAB, 0x90, 0x00}},
        {0xFFFE,
         {0x00, 0xB1, 0x00, 0x00, 0x04, 0x54, 0x02, 0xFF, 0xFE, 0x03},
         {0x53, 0x01, 0xAB, 0x90, 0x00}},
    };
    for (const auto& read : reads) {
        answer({read.answer});
        EXPECT_EQ(files->read(*channel_, read.offset, 1), ByteBuffer{0xAB});
        EXPECT_EQ(sent_, std::vector<ByteBuffer>{read.apdu});
    }

    answer({{0x90, 0x00}});
    files->update(*channel_, 0x8000, {0xAB});
    EXPECT_EQ(sent_, (std::vector<ByteBuffer>{{0x00, 0xD7, 0x00, 0x00, 0x07, 0x54, 0x02, 0x80, 0x00,
                                               0x53, 0x01, 0xAB}}));

    sent_.clear();
    EXPECT_THROW(files->read(*channel_, 0xFFFF, 1), mw::IllegalArgumentException);
    EXPECT_THROW(files->read(*channel_, 0x7F00, 0x8100), mw::IllegalArgumentException);
    EXPECT_THROW(files->update(*channel_, 0xFFFE, {0x01, 0x02}), mw::IllegalArgumentException);
    EXPECT_TRUE(sent_.empty());
}

ByteBuffer statusWord(unsigned short sw) {
    return {static_cast<unsigned char>(sw >> 8), static_cast<unsigned char>(sw)};
}

// Only 9000, 63Cx and 6983 are a PIN state. Any other answer leaves every PIN
// of the session unknown without asking again: some cards count the query.
TEST_F(HostileCardTest, PinStatusOnlyFromTheAnswersThatDefineIt) {
    using card::service::PinInfo;
    const auto pins = service<card::service::IPinManagementService>("PinManagementService");
    play({{0x63, 0xC2}});
    EXPECT_EQ(pins->getPinInfo(*channel_, pinReference(0x01)).triesLeft, 2);
    for (unsigned short sw : {0x6300, 0x6A86, 0x63D2, 0x6984, 0x9001}) {
        const host::iso7816::Card card(channel_);
        const auto ownPins = boost::dynamic_pointer_cast<card::service::IPinManagementService>(
            card.getInterface("PinManagementService"));
        answer({statusWord(sw), {0x90, 0x00}});
        EXPECT_EQ(ownPins->getPinInfo(*channel_, pinReference(0x01)).state, PinInfo::Unknown);
        EXPECT_EQ(ownPins->getPinInfo(*channel_, pinReference(0x02)).state, PinInfo::Unknown);
        EXPECT_EQ(sent_.size(), 1u) << std::hex << sw;
    }
    // Whatever the status word, a card that refuses the GET DATA lists nothing.
    for (unsigned short sw : {0x6A81, 0x6A86, 0x6A88, 0x6D00, 0x6982}) {
        answer({statusWord(sw)});
        EXPECT_TRUE(host::iso7816::Card(channel_).getAlgorithms().empty()) << std::hex << sw;
    }
}

// Cards answer GET CHALLENGE with their own length: every non-empty answer counts.
TEST_F(HostileCardTest, ChallengeAnswersOfAnyLengthAreCollected) {
    const auto random =
        service<card::service::ICryptographyService>("CryptographyService")->getRandom();
    answer({{1, 2, 3, 4, 5, 6, 7, 8, 0x90, 0x00}});
    EXPECT_EQ(random->generate(*channel_, 20),
              (ByteBuffer{1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 4}));
    EXPECT_EQ(sent_, (std::vector<ByteBuffer>{{0x00, 0x84, 0x00, 0x00, 0x14},
                                              {0x00, 0x84, 0x00, 0x00, 0x0C},
                                              {0x00, 0x84, 0x00, 0x00, 0x04}}));
    answer({{0x90, 0x00}});
    expectInvalidData([&] { random->generate(*channel_, 8); }, "Get Challenge");
}

TEST_F(HostileCardTest, WrongLeAndGetResponseAreFollowed) {
    play(
        {{0x6C, 0x0D},
         {0xA0, 0x10, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01, 0x61, 0x00},
         {0x06, 0x03, 0x2B, 0x0E, 0x03, 0x90, 0x00}});
    EXPECT_EQ(card_->getAlgorithms(),
              (std::vector<std::string>{"1.2.840.113549.1.1.1", "1.3.14.3"}));
    EXPECT_EQ(sent_, (std::vector<ByteBuffer>{{0x00, 0xCA, 0x01, 0xA0, 0x00},
                                              {0x00, 0xCA, 0x01, 0xA0, 0x0D},
                                              {0x00, 0xC0, 0x00, 0x00, 0x00}}));

    // A refused GET RESPONSE fails as itself, with the card's status word.
    play({{0x01, 0x61, 0x10}, {0x6A, 0x86}});
    EXPECT_CARD_ERROR(selectFile(), "Get Response", 0x6A86);

    // A card that keeps asking gets one more try only.
    play({{0x62, 0x07, 0x80, 0x02, 0x00, 0x20, 0x82, 0x01, 0x01, 0x90, 0x00}, {0x6C, 0x05}});
    selectFile();
    const auto files = service<card::service::IFileAccessService>("FileAccessService");
    EXPECT_CARD_ERROR(files->read(*channel_, 0, 8), "Read Binary", 0x6C05);
    ASSERT_EQ(sent_.size(), 3u);
    EXPECT_EQ(sent_[2], (ByteBuffer{0x00, 0xB0, 0x00, 0x00, 0x05}));
}

// The last key reference, FF, reaches MSE, GENERATE and the key file (0E7F) whole; 7F, the one
// just below the first reference with the top bit, names no key file and sends nothing.
TEST_F(HostileCardTest, KeyReferencesReachTheCardWholeToTheLastOne) {
    using card::service::ICardKeyOperation;
    const auto keys =
        service<card::service::IAsymmetricKeyManagementService>("AsymmetricKeyManagementService");
    card::service::KeyRef last;
    last.keyReference = 0xFF;
    last.modulusBits = 1024;
    play({{0x6A, 0x88}, {0x90, 0x00}}); // the card lists no algorithms
    service<card::service::ICryptographyService>("CryptographyService")
        ->getSignature("1.2.840.113549.1.1.1")
        ->init(*channel_, last, ICardKeyOperation::Sign);
    EXPECT_EQ(sent_.back().get(0, 8), (ByteBuffer{0x00, 0x22, 0x41, 0xB6, 0x03, 0x84, 0x01, 0xFF}));
    answer({{0x7F, 0x49, 0x06, 0x81, 0x01, 0xC5, 0x82, 0x01, 0x03, 0x90, 0x00}});
    keys->generateKeyPair(*channel_, last, last);
    keys->readPublicKey(*channel_, last);
    ASSERT_EQ(sent_.size(), 2u);
    EXPECT_EQ(sent_[0].get(0, 4), (ByteBuffer{0x00, 0x46, 0x00, 0xFF}));
    EXPECT_EQ(sent_[1].get(0, 4), (ByteBuffer{0x00, 0x46, 0x01, 0xFF}));
    answer({{0x90, 0x00}});
    keys->removePrivateKey(*channel_, last);
    EXPECT_EQ(sent_.back(), (ByteBuffer{0x00, 0xE4, 0x00, 0x00, 0x02, 0x0E, 0x7F}));

    last.keyReference = 0x7F;
    sent_.clear();
    EXPECT_THROW(keys->removePublicKey(*channel_, last), mw::IllegalArgumentException);
    last.keyReference = 0x81; // nor does a longer path for its file
    last.fileId = ByteBuffer{0x3F, 0x00, 0x50, 0x15, 0x4B, 0x01};
    EXPECT_THROW(keys->removePublicKey(*channel_, last), mw::IllegalArgumentException);
    EXPECT_TRUE(sent_.empty());
}

TEST_F(HostileCardTest, ChainedCommandStopsAtTheFirstRefusedPart) {
    play({{0x68, 0x84}});
    const auto files = service<card::service::IFileAccessService>("FileAccessService");
    EXPECT_CARD_ERROR(files->update(*channel_, 0, ByteBuffer(600)), "Update Binary", 0x6884);
    ASSERT_EQ(sent_.size(), 1u);
    EXPECT_EQ(sent_[0].get(0), 0x10);
    EXPECT_EQ(sent_[0].get(4), 0xFF);

    // Repeating the last part alone would write it at the chain's offset.
    play({{0x90, 0x00}, {0x6C, 0x10}});
    EXPECT_CARD_ERROR(files->update(*channel_, 0, ByteBuffer(300)), "Update Binary", 0x6C10);
    EXPECT_EQ(sent_.size(), 2u);
}

TEST(SecurityAttributesTest, ModesBecomeTheProfilesExpressions) {
    using namespace card::service;
    const SecurityConditionPtr userOrSo = boost::make_shared<OrSecurityCondition>(
        SecurityConditionList{pinVerified(0x01), pinVerified(0x03)});
    const ByteBuffer encoded =
        host::iso7816::encodeSecurityAttributes({{AccessRead, always()}, {AccessUpdate, userOrSo}});
    EXPECT_EQ(encoded,
              (ByteBuffer{0xA1, 0x18, 0xA0, 0x02, 0x90, 0x00,                            // read
                          0xA1, 0x08, 0xAE, 0x06, 0x88, 0x01, 0x01, 0x88, 0x01, 0x03,    // update
                          0xA2, 0x08, 0xAE, 0x06, 0x88, 0x01, 0x01, 0x88, 0x01, 0x03})); // delete
    // Two grants of one mode are alternatives; no grant at all is "never".
    const ByteBuffer use = host::iso7816::encodeSecurityAttributes(
        {{AccessExecute, pinVerified(0x01)}, {AccessExecute | AccessRead, pinVerified(0x02)}});
    EXPECT_EQ(use, (ByteBuffer{0xA1, 0x0F, 0xA0, 0x03, 0x88, 0x01, 0x02, 0xA3, 0x08, 0xAE, 0x06,
                               0x88, 0x01, 0x01, 0x88, 0x01, 0x02}));
}

} // namespace
} // namespace hosttest

// A hostile card, scripted: bad answers end in clear exceptions, never a hang or crash.
#include "CardFixture.hpp"

#include "card/Apdu.hpp"
#include "host/iso7816/Fcp.hpp"
#include "mw/Hex.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <deque>
#include <functional>
#include <iterator>

namespace hosttest {
namespace {

using host::iso7816::pkcs15Aid;
using mw::ByteBuffer;
using mw::fromHex;
using Sent = std::vector<ByteBuffer>;

// Answers with the next scripted response (the last repeats); records the commands.
class ScriptedTransport : public card::ICardTransport {
public:
    ScriptedTransport(std::deque<ByteBuffer>& script, Sent& sent)
        : script_(script)
        , sent_(sent) {}

    ByteBuffer getAtr() const override { return {0x3B, 0x00}; }
    boost::shared_ptr<ByteBuffer> transmit(const card::Apdu& command) const override {
        sent_.push_back(command.bytes());
        if (script_.empty())
            return nullptr;
        auto answer = boost::make_shared<ByteBuffer>(script_.front());
        if (script_.size() > 1)
            script_.pop_front();
        return answer;
    }
    void beginTransaction() const override {}
    void endTransaction() const override {}

private:
    std::deque<ByteBuffer>& script_;
    Sent& sent_;
};

class HostileCardTest : public ::testing::Test {
protected:
    // Selects the application, then lets the card answer `answers` (hexadecimal).
    void play(const std::vector<std::string>& answers) {
        script_ = {fromHex("6207 820138 83025015 9000")};
        card_->selectApplication(*channel_, pkcs15Aid());
        answer(answers);
    }
    // Lets the card answer `answers` without selecting anything first.
    void answer(const std::vector<std::string>& answers) {
        script_.clear();
        std::transform(answers.begin(), answers.end(), std::back_inserter(script_), fromHex);
        sent_.clear();
    }

    // Expects card::InvalidDataException for `command` from `operation`; its text and file.
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

    void selectFile() { files_->select(*channel_, {0x50, 0x31}); }
    template <class Service> boost::shared_ptr<Service> service(const char* name) const {
        return boost::dynamic_pointer_cast<Service>(card_->getInterface(name));
    }

    std::deque<ByteBuffer> script_;
    Sent sent_;
    const boost::shared_ptr<host::Channel> channel_ =
        boost::make_shared<host::Channel>(std::make_unique<ScriptedTransport>(script_, sent_));
    const boost::shared_ptr<host::iso7816::Card> card_ =
        boost::make_shared<host::iso7816::Card>(channel_);
    const boost::shared_ptr<card::service::IFileAccessService> files_ =
        service<card::service::IFileAccessService>("FileAccessService");
    const boost::shared_ptr<card::service::IAsymmetricKeyManagementService> keys_ =
        service<card::service::IAsymmetricKeyManagementService>("AsymmetricKeyManagementService");
};

// Every parser of card answers (FCP, wrapped READ BINARY, 7F49, algorithm list) and the framing:
// answers too short, too long or overrunning their template are invalid data, never read past.
TEST_F(HostileCardTest, MalformedAnswersFailTheirCommandAsInvalidData) {
    const std::string threeBytes = "6207 80020003 820101 9000",
                      largest = "6207 8002FFFF 820101 9000";
    using Operation = const std::function<void()>;
    Operation select = [&] { selectFile(); };
    Operation selectMf = [&] { files_->select(*channel_, {0x3F, 0}); };
    Operation readAll = [&] { selectFile(), files_->read(*channel_, 0, 0); };
    Operation read8000 = [&] { selectFile(), files_->read(*channel_, 0x8000, 1); };
    Operation algorithms = [&] { host::iso7816::Card(channel_).getAlgorithms(); };
    Operation selectApplication = [&] { card_->selectApplication(*channel_, pkcs15Aid()); };
    Operation publicKey = [&] { keys_->readPublicKey(*channel_, card::service::KeyRef()); };
    const char* const tlv = "malformed TLV data from the card";
    // The card's answers, the operation, the command it fails, the text (and a SELECT's file).
    // clang-format off
    const struct { std::vector<std::string> answers; Operation& operation; const char* command; const char* text; } cases[] = {
        {{"90"}, select, "Select", "card answer shorter than a status word"}, // a one-byte answer
        {{}, select, "Select", nullptr}, // no answer at all
        {{"01 6100"}, select, "Get Response", nullptr}, // an answer that never ends
        {{"6205 82 9000"}, select, "Select", tlv},
        {{"6203 8203010000 9000"}, select, "Select", tlv},
        {{"6F03 820101 9000"}, select, "Select", tlv},
        {{"6204 83025031 9000"}, select, "Select", "FCP without a file descriptor"},
        {{"6208 8003000020 820101 9000"}, select, "Select", "FCP with a malformed file size"},
        {{"6206 820101 830150 9000"}, select, "Select", "FCP with a malformed file identifier"},
        {{"6207 820101 83025032 9000"}, select, "Select", "FCP with another file identifier than selected"},
        {{"6203 820101 00 9000"}, select, "Select", "FCP followed by other data"},
        {{"6203 820101 9000"}, selectMf, "Select", nullptr}, // the MF as an EF
        {{"6203 820101 9000"}, selectApplication, "Select", nullptr}, // an EF as the application
        // READ BINARY of a 3-byte EF answered with 2 or 4 bytes.
        {{threeBytes, "0102 9000"}, readAll, "Read Binary", nullptr},
        {{threeBytes, "01020304 9000"}, readAll, "Read Binary", nullptr},
        // Beyond 7FFF: another object, a longer or shorter one, or one overrunning the answer.
        {{largest, "7301AB 9000"}, read8000, "Read Binary", nullptr},
        {{largest, "5302ABCD 9000"}, read8000, "Read Binary", nullptr},
        {{largest, "5300 9000"}, read8000, "Read Binary", nullptr},
        {{largest, "5300AB 9000"}, read8000, "Read Binary", nullptr},
        {{largest, "5302AB 9000"}, read8000, "Read Binary", nullptr},
        {{largest, "AB 9000"}, read8000, "Read Binary", nullptr},
        // Algorithm lists: an empty or cut OID, an OID overrunning the list, a list overrunning the answer.
        {{"A002 0600 9000"}, algorithms, "Get Data", nullptr},
        {{"A003 060181 9000"}, algorithms, "Get Data", nullptr},
        {{"A003 06052B 9000"}, algorithms, "Get Data", tlv},
        {{"A005 06012B 9000"}, algorithms, "Get Data", tlv},
        // 7F49 without an exponent, with a 4-byte length, overrun by its exponent, overrunning the answer.
        {{"7F4903 8101C5 9000"}, publicKey, "Generate Asymmetric Key Pair", nullptr},
        {{"7F4984000000 01 9000"}, publicKey, "Generate Asymmetric Key Pair", nullptr},
        {{"7F4906 8101C5 820301 9000"}, publicKey, "Generate Asymmetric Key Pair", tlv},
        {{"7F4909 8101C5 820103 9000"}, publicKey, "Generate Asymmetric Key Pair", tlv},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.answers));
        play({});
        answer(c.answers);
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

// Only 9000, 63Cx and 6983 are a PIN state. Any other answer leaves every PIN of the session
// unknown without asking again: some cards count the query.
TEST_F(HostileCardTest, PinStatusOnlyFromTheAnswersThatDefineIt) {
    using card::service::IPinManagementService;
    using card::service::PinInfo;
    play({});
    for (const char* sw : {"6300", "6A86", "63D2", "6984", "9001"}) {
        const host::iso7816::Card card(channel_);
        const auto pins = boost::dynamic_pointer_cast<IPinManagementService>(
            card.getInterface("PinManagementService"));
        answer({sw, "9000"});
        for (unsigned char reference : {0x01, 0x02})
            EXPECT_EQ(pins->getPinInfo(*channel_, pinReference(reference)).state, PinInfo::Unknown);
        EXPECT_EQ(sent_.size(), 1u) << sw;
    }
    // Whatever the status word, a card that refuses the GET DATA lists nothing.
    for (const char* sw : {"6A81", "6A86", "6A88", "6D00", "6982"}) {
        answer({sw});
        EXPECT_TRUE(host::iso7816::Card(channel_).getAlgorithms().empty()) << sw;
    }
}

// Cards answer GET CHALLENGE with their own length: every non-empty answer counts.
TEST_F(HostileCardTest, ChallengeAnswersOfAnyLengthAreCollected) {
    const auto random =
        service<card::service::ICryptographyService>("CryptographyService")->getRandom();
    answer({"0102030405060708 9000"});
    EXPECT_EQ(random->generate(*channel_, 20),
              fromHex("0102030405060708 0102030405060708 01020304"));
    EXPECT_EQ(sent_, (Sent{fromHex("0084000014"), fromHex("008400000C"), fromHex("0084000004")}));
    answer({"9000"});
    expectInvalidData([&] { random->generate(*channel_, 8); }, "Get Challenge");
}

TEST_F(HostileCardTest, WrongLeAndGetResponseAreFollowed) {
    play({"6C0D", "A010 06092A864886F70D010101 6100", "06032B0E03 9000"});
    EXPECT_EQ(card_->getAlgorithms(),
              (std::vector<std::string>{"1.2.840.113549.1.1.1", "1.3.14.3"}));
    EXPECT_EQ(sent_, (Sent{fromHex("00CA01A000"), fromHex("00CA01A00D"), fromHex("00C0000000")}));

    // A refused GET RESPONSE fails as itself, with the card's status word.
    play({"01 6110", "6A86"});
    EXPECT_CARD_ERROR(selectFile(), "Get Response", 0x6A86);

    // A card that keeps asking gets one more try only.
    play({"6207 80020020 820101 9000", "6C05"});
    selectFile();
    EXPECT_CARD_ERROR(files_->read(*channel_, 0, 8), "Read Binary", 0x6C05);
    ASSERT_EQ(sent_.size(), 3u);
    EXPECT_EQ(sent_[2], fromHex("00B0000005"));
}

TEST_F(HostileCardTest, ChainedCommandStopsAtTheFirstRefusedPart) {
    play({"6884"});
    EXPECT_CARD_ERROR(files_->update(*channel_, 0, ByteBuffer(600)), "Update Binary", 0x6884);
    ASSERT_EQ(sent_.size(), 1u);
    EXPECT_EQ(sent_[0].get(0), 0x10);
    EXPECT_EQ(sent_[0].get(4), 0xFF);

    // Repeating the last part alone would write it at the chain's offset.
    play({"9000", "6C10"});
    EXPECT_CARD_ERROR(files_->update(*channel_, 0, ByteBuffer(300)), "Update Binary", 0x6C10);
    EXPECT_EQ(sent_.size(), 2u);
}

} // namespace
} // namespace hosttest

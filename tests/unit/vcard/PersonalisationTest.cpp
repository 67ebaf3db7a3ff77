// EF(DIR) and the TokenInfo serial of the personalised card, read through APDUs and decoded.

#include "CardTestSupport.hpp"

#include "app/pkcs15/oss/Codec.hpp"

namespace vcard::test {
namespace {

namespace oss = app::pkcs15::oss;

class Personalised : public CardTest {
protected:
    /// The content of the EF at the path (from the MF), read whole.
    Bytes readFile(const std::string& path) {
        Bytes select = apdu(0, 0xA4, 0x08, 0x0C, hex(path));
        EXPECT_EQ(sw(select), 0x9000);
        Bytes content;
        for (std::uint16_t status = 0x9000; status == 0x9000;) {
            Bytes response = send(apdu(0, 0xB0, static_cast<std::uint8_t>(content.size() >> 8),
                                       static_cast<std::uint8_t>(content.size()), {}, 0));
            status = statusWord(response);
            if (status == 0x6B00)
                break;
            content = concat(content, dataOf(response));
        }
        return content;
    }

    template <class T> std::vector<T> decodeAll(const Bytes& content) {
        std::vector<T> values;
        std::size_t offset = 0;
        while (offset < content.size() && content[offset] != 0x00) {
            T value;
            offset += oss::decode(content.data() + offset, content.size() - offset, value);
            values.push_back(value);
        }
        return values;
    }
};

TEST_F(Personalised, TokenInfoHasARandomSerialAndTheCardAlgorithm) {
    auto info = decodeAll<oss::TokenInfo>(readFile("5015 5032")).at(0);
    ASSERT_TRUE(info.serialNumber);
    EXPECT_EQ(info.serialNumber->size(), 8u);
    ASSERT_TRUE(info.supportedAlgorithms);
    EXPECT_EQ(oss::oidToText(*info.supportedAlgorithms->at(0).algId), "1.2.840.113549.1.1.1");

    auto other = VirtualCard::personalised();
    card = std::move(other);
    auto otherInfo = decodeAll<oss::TokenInfo>(readFile("5015 5032")).at(0);
    ASSERT_TRUE(otherInfo.serialNumber);
    EXPECT_NE(*otherInfo.serialNumber, *info.serialNumber);
}

TEST_F(Personalised, DirNamesTheApplication) {
    auto records = decodeAll<oss::DIRRecord>(readFile("2F00"));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].aid, pkcs15ApplicationId());
    EXPECT_EQ(records[0].path, hex("3F005015"));
}

TEST(Personalisation, RefusesPinsThatDoNotFit) {
    Personalisation options;
    options.userPin = "123";
    EXPECT_THROW(personalise(options), std::invalid_argument);
    options.userPin = "12a456";
    EXPECT_THROW(personalise(options), std::invalid_argument);
}

} // namespace
} // namespace vcard::test

// The personalised card as the plugin reads it: EF(DIR), EF(ODF), EF(TokenInfo), AODF, decoded
// with the PKCS#15 codec after reading them through APDUs.

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

TEST_F(Personalised, OdfListsTheDirectoryFilesByFid) {
    Bytes odf = readFile("5015 5031");
    EXPECT_EQ(odf.size(), 256u);
    auto entries = decodeAll<oss::PKCS15Objects>(odf);
    std::map<int, Bytes> paths;
    for (const auto& entry : entries) {
        ASSERT_EQ(entry.value.choice, oss::PathOrObjects::path);
        paths[entry.choice] = entry.value.pathValue.path;
    }
    EXPECT_EQ(paths[oss::PKCS15Objects::privateKeys], hex("4400"));
    EXPECT_EQ(paths[oss::PKCS15Objects::publicKeys], hex("4401"));
    EXPECT_EQ(paths[oss::PKCS15Objects::certificates], hex("4404"));
    EXPECT_EQ(paths[oss::PKCS15Objects::dataObjects], hex("4407"));
    EXPECT_EQ(paths[oss::PKCS15Objects::authObjects], hex("4408"));
    // Every listed file exists, empty (all 00), with room for dozens of entries.
    for (const auto& [choice, fid] : paths) {
        if (choice == oss::PKCS15Objects::authObjects)
            continue;
        Bytes content = readFile("5015" + toHex(fid));
        EXPECT_GE(content.size(), 4096u);
        EXPECT_EQ(content, Bytes(content.size(), 0x00));
    }
}

TEST_F(Personalised, AodfPinsCarryTheCardReferenceInTheirAuthId) {
    auto entries = decodeAll<oss::AuthenticationType>(readFile("5015 4408"));
    ASSERT_EQ(entries.size(), 3u);
    for (const auto& entry : entries) {
        ASSERT_EQ(entry.choice, oss::AuthenticationType::pin);
        const auto& pin = entry.pinValue;
        const std::uint8_t reference = pin.classAttributes.authId.at(0);
        EXPECT_EQ(pin.typeAttributes.pinReference.value_or(-1), oss::Integer(reference));
        EXPECT_EQ(pin.typeAttributes.storedLength, 8);
        EXPECT_EQ(pin.typeAttributes.maxLength.value_or(-1), oss::Integer(8));
        EXPECT_EQ(pin.typeAttributes.padChar.value_or(Bytes{}), Bytes{0xFF});
        // The card knows this reference and has it unverified with all tries.
        EXPECT_EQ(sw(apdu(0, 0x20, 0, reference, {})) & 0xFFF0, 0x63C0);
    }
    // unblockingPin (bit 6) on reference 02, soPin (bit 7) on 03.
    EXPECT_EQ(entries[1].pinValue.typeAttributes.pinFlags.octets.at(0) & 0x02, 0x02);
    EXPECT_EQ(entries[2].pinValue.typeAttributes.pinFlags.octets.at(0) & 0x01, 0x01);
    EXPECT_EQ(entries[0].pinValue.commonObjectAttributes.authId.value_or(Bytes{}), Bytes{0x02});
}

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

TEST_F(Personalised, CardStatusFileAndCertificateDfExist) {
    selectApplication();
    EXPECT_EQ(sw("00A4020C 02 9999"), 0x9000); // what the plugin sends after selecting
    EXPECT_EQ(sw("00A40800 04 5015 DF02"), 0x9000);
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

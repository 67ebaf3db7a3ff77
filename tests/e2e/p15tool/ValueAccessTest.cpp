// Who may read, replace and delete the files of the certificates and data
// objects p15tool writes: raw APDUs to the card image, no PIN verified, as
// any program sharing the card sends them.
#include "ToolProcess.hpp"

#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/VirtualCard.hpp"

#include <gtest/gtest.h>

namespace p15tool::test {
namespace {

namespace oss = app::pkcs15::oss;

using ValueAccess = InitialisedCard;

const oss::ObjectValue& valueOf(const oss::CertificateType& entry) {
    return entry.x509CertificateValue.typeAttributes.value;
}
const oss::ObjectValue& valueOf(const oss::DataType& entry) {
    return entry.opaqueDOValue.typeAttributes;
}

// The status words of READ BINARY, UPDATE BINARY and DELETE FILE, each on a
// card just reset, on the value file of entry `index` of the application's
// directory file 44`fid`.
template <class Entry>
std::vector<int> answers(const std::string& image, std::uint8_t fid, std::size_t index) {
    vcard::CardState state = vcard::CardImage::load(image);
    const vcard::Bytes& content =
        state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, fid}, true).content;
    Entry entry;
    for (std::size_t at = 0, read = 0; read <= index; ++read) {
        at += oss::decode(content.data() + at, content.size() - at, entry);
    }
    vcard::Bytes select{0x00, 0xA4, 0x08, 0x0C, 0x00, 0x50, 0x15};
    const oss::Bytes& path = valueOf(entry).indirectValue.pathValue.path;
    select.insert(select.end(), path.begin(), path.end());
    select[4] = static_cast<std::uint8_t>(select.size() - 5);
    std::vector<int> statusWords;
    for (const vcard::Bytes& command :
         {vcard::Bytes{0x00, 0xB0, 0x00, 0x00, 0x01},
          vcard::Bytes{0x00, 0xD6, 0x00, 0x00, 0x01, 0x00}, vcard::Bytes{0x00, 0xE4, 0x00, 0x00}}) {
        vcard::VirtualCard card(vcard::CardImage::load(image));
        EXPECT_EQ(card.transmit(select), (vcard::Bytes{0x90, 0x00}));
        const vcard::Bytes answer = card.transmit(command);
        statusWords.push_back(answer[answer.size() - 2] << 8 | answer.back());
    }
    return statusWords;
}

TEST_F(ValueAccess, OnlyTheUserReplacesOrDeletesValuesAndReadsPrivateOnes) {
    openssl("req -x509 -newkey rsa:1024 -nodes -keyout key.pem -out cert.pem -subj /CN=v -days 1");
    writeFile(file("value"), "public value");
    writeFile(file("secret"), "private value");
    ASSERT_EQ(tool({"cert", "write", file("cert.pem"), "--pin-env", "USER_PIN"}).exitCode, 0);
    ASSERT_EQ(
        tool({"data", "write", file("value"), "--label", "open", "--pin-env", "USER_PIN"}).exitCode,
        0);
    ASSERT_EQ(tool({"data", "write", file("secret"), "--label", "closed", "--private", "--pin-env",
                    "USER_PIN"})
                  .exitCode,
              0);

    const std::vector<int> readOnly{0x9000, 0x6982, 0x6982};
    EXPECT_EQ(answers<oss::CertificateType>(image, 0x04, 0), readOnly);
    EXPECT_EQ(answers<oss::DataType>(image, 0x07, 0), readOnly);
    EXPECT_EQ(answers<oss::DataType>(image, 0x07, 1), std::vector<int>(3, 0x6982));

    EXPECT_EQ(tool({"data", "read", "--label", "closed", "--pin-env", "USER_PIN"}).out,
              "private value");
    const nlohmann::json listed = tool({"--json", "list"}).json();
    const nlohmann::json userUpdates = {
        {{"accessMode", {"update"}}, {"condition", "authId 01 (User PIN)"}}};
    EXPECT_EQ(listed["certificates"][0]["accessControlRules"], userUpdates);
    EXPECT_EQ(listed["dataObjects"][0]["accessControlRules"], userUpdates);
    EXPECT_EQ(listed["dataObjects"][1]["accessControlRules"][0]["accessMode"],
              nlohmann::json({"read", "update"}));
    EXPECT_EQ(listed["dataObjects"][1]["flags"], nlohmann::json({"private", "modifiable"}));
}

} // namespace
} // namespace p15tool::test

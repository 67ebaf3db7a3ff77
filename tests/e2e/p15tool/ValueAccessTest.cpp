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

// The value paths the entries of the application's directory file `fid`
// name, in card order.
template <class Entry, class ValueOf>
std::vector<vcard::Bytes> valuePaths(vcard::CardState& state, std::uint8_t fid, ValueOf valueOf) {
    const vcard::Bytes& content =
        state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, fid}, true).content;
    std::vector<vcard::Bytes> paths;
    for (std::size_t at = 0; at < content.size() && content[at] != 0;) {
        Entry entry;
        at += oss::decode(content.data() + at, content.size() - at, entry);
        paths.push_back(valueOf(entry).indirectValue.pathValue.path);
    }
    return paths;
}

// The status words of READ BINARY, UPDATE BINARY and DELETE FILE on the file
// at `path` (below the application's DF), each on a card just reset.
std::vector<std::uint16_t> refusals(const vcard::CardState& state, const vcard::Bytes& path) {
    std::vector<std::uint16_t> statusWords;
    for (vcard::Bytes command :
         {vcard::Bytes{0x00, 0xB0, 0x00, 0x00, 0x01},
          vcard::Bytes{0x00, 0xD6, 0x00, 0x00, 0x01, 0x00}, vcard::Bytes{0x00, 0xE4, 0x00, 0x00}}) {
        vcard::VirtualCard card(state);
        vcard::Bytes select{0x00, 0xA4, 0x08, 0x0C, static_cast<std::uint8_t>(path.size() + 2),
                            0x50, 0x15};
        select.insert(select.end(), path.begin(), path.end());
        EXPECT_EQ(card.transmit(select), (vcard::Bytes{0x90, 0x00}));
        const vcard::Bytes answer = card.transmit(command);
        statusWords.push_back(
            static_cast<std::uint16_t>(answer[answer.size() - 2] << 8 | answer.back()));
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

    vcard::CardState state = vcard::CardImage::load(image);
    const auto certificates = valuePaths<oss::CertificateType>(state, 0x04, [](const auto& entry) {
        return entry.x509CertificateValue.typeAttributes.value;
    });
    const auto data = valuePaths<oss::DataType>(
        state, 0x07, [](const auto& entry) { return entry.opaqueDOValue.typeAttributes; });
    ASSERT_EQ(certificates.size(), 1u);
    ASSERT_EQ(data.size(), 2u);
    const std::vector<std::uint16_t> readOnly{0x9000, 0x6982, 0x6982};
    EXPECT_EQ(refusals(state, certificates[0]), readOnly);
    EXPECT_EQ(refusals(state, data[0]), readOnly);
    EXPECT_EQ(refusals(state, data[1]), std::vector<std::uint16_t>(3, 0x6982));

    EXPECT_EQ(tool({"data", "read", "--label", "closed", "--pin-env", "USER_PIN"}).out,
              "private value");
    EXPECT_NE(tool({"data", "read", "--label", "closed"}).exitCode, 0) << "no PIN given";
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

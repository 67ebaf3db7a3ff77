#pragma once

#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <gtest/gtest.h>

#include <string>

namespace vcard::test {

inline Bytes hex(const std::string& text) {
    std::string digits;
    for (char c : text)
        if (c != ' ')
            digits.push_back(c);
    return fromHex(digits);
}

inline std::uint16_t statusWord(const Bytes& response) {
    return static_cast<std::uint16_t>(response[response.size() - 2] << 8 | response.back());
}

inline Bytes dataOf(const Bytes& response) {
    return Bytes(response.begin(), response.end() - 2);
}

inline Bytes concat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// A short APDU with Lc and data, and optionally Le.
inline Bytes apdu(std::uint8_t cla, std::uint8_t ins, std::uint8_t p1, std::uint8_t p2,
                  const Bytes& data, int le = -1) {
    Bytes out = {cla, ins, p1, p2};
    if (!data.empty()) {
        out.push_back(static_cast<std::uint8_t>(data.size()));
        out.insert(out.end(), data.begin(), data.end());
    }
    if (le >= 0)
        out.push_back(static_cast<std::uint8_t>(le));
    return out;
}

/// CREATE FILE with the FCP tags given in hex and the security attributes (content of A1).
inline Bytes createFile(const std::string& tags, const std::string& security) {
    Bytes attributes = hex(security);
    Bytes inner = concat(hex(tags), {0xA1, static_cast<std::uint8_t>(attributes.size())});
    inner = concat(inner, attributes);
    return apdu(0, 0xE0, 0, 0, concat({0x62, static_cast<std::uint8_t>(inner.size())}, inner));
}

inline Bytes paddedPin(const std::string& digits) {
    Bytes pin(digits.begin(), digits.end());
    pin.resize(8, 0xFF);
    return pin;
}

inline std::uint16_t sw(VirtualCard& card, const Bytes& command) {
    return statusWord(card.transmit(command));
}
inline std::uint16_t sw(VirtualCard& card, const std::string& command) {
    return sw(card, hex(command));
}

/// VERIFY of the PIN with this reference; without a value, its status.
inline std::uint16_t verify(VirtualCard& card, std::uint8_t reference, const std::string& pin) {
    return sw(card, apdu(0, 0x20, 0, reference, paddedPin(pin)));
}
inline std::uint16_t pinStatus(VirtualCard& card, std::uint8_t reference) {
    return sw(card, apdu(0, 0x20, 0, reference, {}));
}

/// From the application DF after the user PIN: key files 0E01/0F01 and key pair 81 of 1024 bits.
inline std::vector<Bytes> keyPairCommands() {
    return {createFile("80020400 820111 83020E01", "A0029700 A103880101 A203880101 A303880101"),
            hex("00A4000C 02 5015"),
            createFile("80020400 820112 83020F01", "A0029000 A103880101 A203880101 A3029700"),
            hex("00A4000C 02 5015"), hex("00460081 04 80020400 00")};
}

/// A personalised in-memory card and shorthand for the commands most tests need.
class CardTest : public ::testing::Test {
protected:
    std::unique_ptr<VirtualCard> card = VirtualCard::personalised();

    Bytes send(const Bytes& command) { return card->transmit(command); }
    Bytes send(const std::string& command) { return card->transmit(hex(command)); }
    std::uint16_t sw(const std::string& command) { return test::sw(*card, command); }
    std::uint16_t sw(const Bytes& command) { return test::sw(*card, command); }

    void selectApplication() { ASSERT_EQ(sw("00A4040C0C A000000063504B43532D3135"), 0x9000); }
    void verifyUserPin() { ASSERT_EQ(sw(apdu(0, 0x20, 0, 1, paddedPin("123456"))), 0x9000); }

    /// Sends data with command chaining in parts of at most 255 bytes; the last answer.
    Bytes sendChained(std::uint8_t ins, std::uint8_t p1, std::uint8_t p2, const Bytes& data,
                      int le = -1) {
        std::size_t offset = 0;
        for (; data.size() - offset > 255; offset += 255) {
            Bytes part(data.begin() + offset, data.begin() + offset + 255);
            EXPECT_EQ(statusWord(send(apdu(0x10, ins, p1, p2, part))), 0x9000);
        }
        return send(apdu(0x00, ins, p1, p2, Bytes(data.begin() + offset, data.end()), le));
    }

    /// The whole answer of a command, following 61xx with GET RESPONSE.
    Bytes sendAndCollect(const Bytes& command, std::uint16_t& finalStatus) {
        Bytes response = send(command);
        Bytes data = dataOf(response);
        while ((statusWord(response) & 0xFF00) == 0x6100) {
            response = send(apdu(0, 0xC0, 0, 0, {}, statusWord(response) & 0xFF));
            data = concat(data, dataOf(response));
        }
        finalStatus = statusWord(response);
        return data;
    }
};

} // namespace vcard::test

#pragma once

#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace vcard::test {

inline Bytes hex(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return fromHex(text);
}

/// Two bytes of hexadecimal, as FIDs and sizes are written.
inline std::string hex16(unsigned value) {
    return toHex({static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)});
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

inline std::uint16_t verify(VirtualCard& card, std::uint8_t reference, const std::string& pin) {
    return sw(card, apdu(0, 0x20, 0, reference, paddedPin(pin)));
}
inline std::uint16_t pinStatus(VirtualCard& card, std::uint8_t reference) {
    return sw(card, apdu(0, 0x20, 0, reference, {}));
}

inline const std::string selectPkcs15 = "00A4040C 0C A000000063504B43532D3135";

/// Sends each command, expecting 9000.
inline void sendAll(VirtualCard& card, const std::vector<Bytes>& commands) {
    for (const Bytes& command : commands)
        ASSERT_EQ(sw(card, command), 0x9000) << toHex(command);
}

/// From the application DF: key files 0E kid (user PIN) and 0F kid (public), each reselecting it.
inline std::vector<Bytes> keyFileCommands(std::uint8_t kid, unsigned bits) {
    const std::string size = hex16(bits), id = toHex({kid});
    return {
        createFile("8002" + size + "820111 83020E" + id,
                   "A0029700 A103880101 A203880101 A303880101"),
        hex("00A4000C 02 5015"),
        createFile("8002" + size + "820112 83020F" + id, "A0029000 A103880101 A203880101 A3029700"),
        hex("00A4000C 02 5015")};
}

inline void logIn(VirtualCard& card) {
    sendAll(card, {hex(selectPkcs15), apdu(0, 0x20, 0, 1, paddedPin("123456"))});
}

/// After logIn: key files 0E01/0F01 and key pair 81 of 1024 bits in them.
inline void addKeyPair(VirtualCard& card) {
    sendAll(card, keyFileCommands(0x01, 1024));
    sendAll(card, {hex("00460081 04 80020400 00")});
}

/// A personalised in-memory card and shorthand for the commands most tests need.
class CardTest : public ::testing::Test {
protected:
    std::unique_ptr<VirtualCard> card = VirtualCard::personalised();

    Bytes send(const Bytes& command) { return card->transmit(command); }
    Bytes send(const std::string& command) { return card->transmit(hex(command)); }
    std::uint16_t sw(const std::string& command) { return test::sw(*card, command); }
    std::uint16_t sw(const Bytes& command) { return test::sw(*card, command); }

    void selectApplication() { ASSERT_EQ(sw(selectPkcs15), 0x9000); }
    void verifyUserPin() { ASSERT_EQ(test::verify(*card, 1, "123456"), 0x9000); }
    void logIn() { test::logIn(*card); }

    /// Sends data with command chaining in parts of at most 255 bytes; the last answer.
    Bytes sendChained(std::uint8_t ins, std::uint8_t p1, std::uint8_t p2, const Bytes& data) {
        std::size_t offset = 0;
        for (; data.size() - offset > 255; offset += 255) {
            Bytes part(data.begin() + offset, data.begin() + offset + 255);
            EXPECT_EQ(statusWord(send(apdu(0x10, ins, p1, p2, part))), 0x9000);
        }
        return send(apdu(0x00, ins, p1, p2, Bytes(data.begin() + offset, data.end())));
    }
};

} // namespace vcard::test

#ifndef TESTS_UNIT_APP_APPCARD_HPP
#define TESTS_UNIT_APP_APPCARD_HPP

#include "AppErrors.hpp"
#include "AppOnCard.hpp"
#include "CardFixture.hpp"
#include "vcard/Personalise.hpp"

#include <memory>
#include <string>
#include <vector>

namespace apptest {

// A freshly personalised virtual card in this process, reached through the
// host card layer exactly as a host would.
struct AppCard : support::AppOnCard {
    AppCard()
        : AppOnCard(vcard::personalise()) {}

    boost::shared_ptr<app::pkcs15::P15Application>
    appletApplication(const std::string& configuration = "") const;

    template <class Service> boost::shared_ptr<Service> service(const std::string& name) const {
        return boost::dynamic_pointer_cast<Service>(card->getInterface(name));
    }
    void verifyPin(unsigned char reference, const std::string& value) const;
    // A value file, and a generated 1024-bit key pair under `reference`, that
    // anyone may read, change, delete and use.
    void createValueFile(const mw::ByteBuffer& path, std::size_t size = 16) const;
    void createKeyPair(unsigned char reference) const;
    // Writes the whole content of a file of the application, padded with 00
    // to the file's size (needs the file's update condition satisfied).
    void writeFile(const mw::ByteBuffer& fileId, const mw::ByteBuffer& content) const;
};

using hosttest::soPin;

// Files of the personalised card's application.
inline const mw::ByteBuffer odfFile{0x50, 0x31};
inline const mw::ByteBuffer prkdfFile{0x44, 0x00};
inline const mw::ByteBuffer pukdfFile{0x44, 0x01};
inline const mw::ByteBuffer cdfFile{0x44, 0x04};
inline const mw::ByteBuffer dodfFile{0x44, 0x07};
inline const mw::ByteBuffer aodfFile{0x44, 0x08};
inline const mw::ByteBuffer tokenInfoFile{0x50, 0x32};
using hosttest::userPin;

mw::ByteBuffer bytes(const std::vector<std::uint8_t>& value);
mw::ByteBuffer concat(std::initializer_list<mw::ByteBuffer> parts);

// Directory entries as a card would hold them, encoded by the codec.
mw::ByteBuffer rsaPrivateKeyEntry(unsigned char keyReference, const mw::ByteBuffer& keyFile,
                                  unsigned short modulusBits = 1024);
mw::ByteBuffer rsaPublicKeyEntry(unsigned char keyReference, const mw::ByteBuffer& keyFile,
                                 unsigned short modulusBits = 1024);
mw::ByteBuffer certificateEntry(const std::string& label, const mw::ByteBuffer& valueFile);
mw::ByteBuffer dataObjectEntry(const std::string& label, const mw::ByteBuffer& valueFile);
// A private EC key entry: a kind the application lists but does not use.
mw::ByteBuffer ecPrivateKeyEntry();
using p15test::errorText;

} // namespace apptest

// Runs `statement` and expects an exception of exactly the family `Type`
// carrying `text`.
#define EXPECT_APP_ERROR(statement, Type, text)                                                    \
    try {                                                                                          \
        statement;                                                                                 \
        ADD_FAILURE() << "no exception from " #statement;                                          \
    } catch (const app::ApplicationException& e) {                                                 \
        EXPECT_EQ(p15test::familyOf(e), P15TEST_FAMILY_NAME(Type));                                \
        EXPECT_EQ(apptest::errorText(e), text);                                                    \
    }

#endif

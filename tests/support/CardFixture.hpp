#ifndef TESTS_SUPPORT_CARDFIXTURE_HPP
#define TESTS_SUPPORT_CARDFIXTURE_HPP

#include "app/plugin/IConfigurationSource.hpp"
#include "card/CardException.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "card/service/ICryptographyService.hpp"
#include "card/service/IFileAccessService.hpp"
#include "card/service/IFileSystemService.hpp"
#include "card/service/IPinManagementService.hpp"
#include "host/Channel.hpp"
#include "host/iso7816/Applet.hpp"
#include "host/iso7816/Card.hpp"

#include <boost/exception/get_error_info.hpp>
#include <boost/shared_ptr.hpp>
#include <gtest/gtest.h>
#include <string>

namespace vcard {
class VirtualCard;
}

namespace hosttest {

// InProcessShort: the in-process card that takes short APDUs only.
enum class TransportKind { InProcess, InProcessShort, Pcsc };

std::string transportName(const ::testing::TestParamInfo<TransportKind>& info);

// A personalised card behind a real transport with the PKCS#15 application
// selected: a fresh virtual card in-process, or the card that the pcscd
// fixture serves through vpcd (shared by all tests, so tests leave it as
// they found it).
class CardTest : public ::testing::TestWithParam<TransportKind> {
protected:
    void SetUp() override;

    template <class Service> boost::shared_ptr<Service> service(const std::string& name) const {
        return boost::dynamic_pointer_cast<Service>(card_->getInterface(name));
    }
    boost::shared_ptr<card::service::IFileAccessService> files() const {
        return service<card::service::IFileAccessService>("FileAccessService");
    }
    boost::shared_ptr<card::service::IFileSystemService> fileSystem() const {
        return service<card::service::IFileSystemService>("FileSystemService");
    }
    boost::shared_ptr<card::service::IPinManagementService> pins() const {
        return service<card::service::IPinManagementService>("PinManagementService");
    }
    boost::shared_ptr<card::service::ICryptographyService> crypto() const {
        return service<card::service::ICryptographyService>("CryptographyService");
    }
    boost::shared_ptr<card::service::IAsymmetricKeyManagementService> keys() const {
        return service<card::service::IAsymmetricKeyManagementService>(
            "AsymmetricKeyManagementService");
    }

    void verifyUserPin() const;
    // Commands cost by the card of this test: `shortOnly` for a card without
    // extended length, `extended` for one with.
    std::uint64_t apdus(std::uint64_t shortOnly, std::uint64_t extended) const {
        return GetParam() == TransportKind::InProcessShort ? shortOnly : extended;
    }

    boost::shared_ptr<host::Channel> channel_;
    boost::shared_ptr<host::iso7816::Card> card_;
    // Set in-process only: counters and fault injection.
    vcard::VirtualCard* virtualCard_ = nullptr;
};

card::service::PinReference pinReference(unsigned char reference);
// A PIN as the card stores it: padded with FF to 8 bytes.
mw::ByteBuffer paddedPin(const std::string& digits);

extern const char* const userPin;
extern const char* const puk;
extern const char* const soPin;

// The bytes of a text, as a host passes on what its user typed.
mw::ByteBuffer text(const std::string& value);

// A host's configuration store that holds no file.
class NoConfiguration : public plugin::IConfigurationSource {
public:
    boost::optional<std::string> readFile(const std::string&) const override { return boost::none; }
};

} // namespace hosttest

// Runs `statement`, expects a card exception with this command and status word.
#define EXPECT_CARD_ERROR(statement, command, sw)                                                  \
    try {                                                                                          \
        statement;                                                                                 \
        ADD_FAILURE() << "no card exception from " #statement;                                     \
    } catch (const card::CardException& e) {                                                       \
        const char* const* name = boost::get_error_info<card::Command>(e);                         \
        const unsigned short* status = boost::get_error_info<card::StatusCode>(e);                 \
        EXPECT_STREQ(name ? *name : "", command);                                                  \
        EXPECT_EQ(status ? *status : 0, sw) << std::hex;                                           \
    }

#endif
